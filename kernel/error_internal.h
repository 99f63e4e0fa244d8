/*
 * error_internal.h - what the error handler's files share: the kernel's
 * built-in texts and the process-wide state behind the exports.
 */
#ifndef QZ_KERNEL_ERROR_INTERNAL_H
#define QZ_KERNEL_ERROR_INTERNAL_H

#include <cstddef>
#include <string>

#include "qz/qzerror.h"

namespace qz::errors {

/* A kernel text in English, the one language the kernel's records carry. */
constexpr QzLocalText<1> english(LPCWSTR text) {
    return {QZLANG_TEXT_MARKER, 1, {text}};
}

struct BuiltInMessage {
    HRESULT code;
    QzLocalText<1> text;
};

struct ContextText {
    DWORD id;
    QzLocalText<1> text;
};

/* The kernel's message table, searched from the first pair. */
extern const BuiltInMessage kBuiltInMessages[];
extern const size_t kBuiltInMessageCount;

/* The context table; the first pair holds the default sentence. */
extern const ContextText kContextTexts[];
extern const size_t kContextTextCount;

/* The text appended for a code without a message; "%08X" takes the code. */
extern const QzLocalText<1> kGenericMessage;
/* What a context sentence's "%s" reads when the caller gives no extra text. */
extern const QzLocalText<1> kDefaultExtraText;
/* Heading of the details lines in the error box. */
extern const QzLocalText<1> kDetailsHeading;

/* Tables registered so far (at most QZERROR_MAX_TABLES). */
int registered_table_count();

/* The record of `code` in the built-in table, or null. */
const QZLOCALTEXT* builtin_message(HRESULT code);

/*
 * Composes a message into `out` (QZERROR_MESSAGE_CHARS characters): the
 * context sentence with the extra text, the code's text while room remains,
 * "$(AppName)" replaced.
 */
void compose_error_text(DWORD_PTR context, HRESULT code, LPCWSTR extra, WCHAR* out);

/*
 * Adds the details record to an error box's text: unless `flags` leaves
 * them out, its lines under the "Details:" heading and its hyperlink.
 * May throw std::bad_alloc.
 */
void append_details_for_box(std::basic_string<WCHAR>& box, DWORD flags);

/* What a stack dump saw besides its lines. */
struct StackSummary {
    int lines;
    int code_references;   /* words into the application's own images */
    int module_references; /* words into other modules, only flagged */
};

/*
 * The stack lines of the exception dump, from `sp` up to the top of the
 * calling thread's stack (when `sp` lies in it) or until the buffer is
 * nearly full, keeping `reserve` characters free. The buffer starts as an
 * empty string, as with the other dumps. Returns what it saw.
 */
StackSummary dump_stack_lines(char* buffer, int size, const void* sp, size_t reserve);

}  // namespace qz::errors

#endif
