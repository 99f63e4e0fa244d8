// The error handler: table registration, message lookup, composed messages
// and the error boxes.
#include <atomic>
#include <new>
#include <string>

#include "kernel/error_internal.h"
#include "base/format.h"
#include "base/spin_lock.h"
#include "qz/qzkernel.h"

namespace qz::errors {

namespace {

// Identifiers up to this value name a context sentence; larger ones are the
// caller's own sentence (no text lives in the first 64 KiB of an address
// space).
constexpr DWORD_PTR kLargestContextId = 0xFFFF;
// The message text is appended only while the sentence leaves this much
// room of QZERROR_MESSAGE_CHARS, enough for any of the kernel's texts.
constexpr size_t kMessageRoomLimit = 1948;

using WString = std::basic_string<WCHAR>;

struct Registration {
    const QZERROR_TABLE* table;
    const QZERROR_TABLE_RCID* rcid_table;
    int count;
    HQZLANG lang;
};

// Registrations happen at start-up; lookups may run on any thread at any
// time, so an entry is complete before the count that publishes it grows.
Registration g_tables[QZERROR_MAX_TABLES];
std::atomic<int> g_table_count{0};
constinit qz::base::SpinLock g_register_lock;

HRESULT add_registration(const Registration& entry) {
    std::lock_guard<qz::base::SpinLock> guard(g_register_lock);
    const int n = g_table_count.load(std::memory_order_relaxed);
    if (n >= QZERROR_MAX_TABLES) return S_FALSE;
    g_tables[n] = entry;
    g_table_count.store(n + 1, std::memory_order_release);
    return S_OK;
}

// Text of `code` in one registered table; null when the table lacks the
// code or its text cannot be resolved, so that later tables still count.
LPCWSTR lookup_in(const Registration& r, HRESULT code) {
    for (int i = 0; i < r.count; ++i) {
        if (r.table && r.table[i].code == code) return QzGetString(r.lang, r.table[i].text);
        if (r.rcid_table && r.rcid_table[i].code == code) {
            thread_local WCHAR text[QZERROR_MESSAGE_CHARS];
            return QzLoadString(r.lang, r.rcid_table[i].id, text, QZERROR_MESSAGE_CHARS) > 0
                       ? text
                       : nullptr;
        }
    }
    return nullptr;
}

bool is_digit(WCHAR c) {
    return c >= WCHAR('0') && c <= WCHAR('9');
}

// True when the only conversion of `text` is a single "%s" (flags, width
// and precision allowed) besides "%%": then formatting it with one string
// argument is safe. A caller's own sentence such as "100% done" is not
// formatted at all.
bool takes_one_string(const WCHAR* text) {
    int strings = 0;
    for (const WCHAR* p = text; *p; ++p) {
        if (*p != WCHAR('%')) continue;
        ++p;
        if (*p == WCHAR('%')) continue;
        while (*p == WCHAR('-') || *p == WCHAR(' ') || *p == WCHAR('#')) ++p;
        while (is_digit(*p)) ++p;
        if (*p == WCHAR('.'))
            for (++p; is_digit(*p);) ++p;
        if (*p != WCHAR('s') || ++strings > 1) return false;
    }
    return true;
}

size_t copy_cut(WCHAR* out, size_t capacity, const WCHAR* text) {
    size_t n = 0;
    while (text[n] && n + 1 < capacity) {
        out[n] = text[n];
        ++n;
    }
    out[n] = 0;
    return n;
}

LPCWSTR kernel_text(const QzLocalText<1>& record) {
    const LPCWSTR text = QzGetString(nullptr, record.record());
    return text ? text : QZTEXT("");
}

}  // namespace

int registered_table_count() {
    return g_table_count.load(std::memory_order_acquire);
}

void compose_error_text(DWORD_PTR context, HRESULT code, LPCWSTR extra, WCHAR* out) {
    WCHAR work[QZERROR_MESSAGE_CHARS];
    const LPCWSTR sentence = QzErrorHandler_GetContextString(context);
    const LPCWSTR argument = extra ? extra : kernel_text(kDefaultExtraText);
    size_t used = takes_one_string(sentence)
                      ? qz::base::format(work, QZERROR_MESSAGE_CHARS, sentence, argument).length
                      : copy_cut(work, QZERROR_MESSAGE_CHARS, sentence);
    if (used < kMessageRoomLimit) {
        if (const LPCWSTR message = QzErrorHandler_GetHresultString(code))
            used += copy_cut(work + used, QZERROR_MESSAGE_CHARS - used, message);
        else
            used += qz::base::format(work + used, QZERROR_MESSAGE_CHARS - used,
                               kernel_text(kGenericMessage), DWORD(code))
                        .length;
    }
    QzLang_ExpandText(work, out, QZERROR_MESSAGE_CHARS);
}

}  // namespace qz::errors

using qz::errors::Registration;

QZ_API HRESULT QZ_STDCALL QzErrorHandler_AddErrorTable(const QZERROR_TABLE* table, int count) {
    if (!table) return E_POINTER;
    if (count < 1) return E_INVALIDARG;
    return qz::errors::add_registration(Registration{table, nullptr, count, nullptr});
}

QZ_API HRESULT QZ_STDCALL QzErrorHandler_AddErrorTable(HQZLANG lang,
                                                       const QZERROR_TABLE_RCID* table, int count) {
    if (!table) return E_POINTER;
    if (count < 1) return E_INVALIDARG;
    return qz::errors::add_registration(Registration{nullptr, table, count, lang});
}

QZ_EXTERN_C QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_GetHresultString(HRESULT code) {
    using namespace qz::errors;
    const int n = g_table_count.load(std::memory_order_acquire);
    for (int i = 0; i < n; ++i)
        if (const LPCWSTR text = lookup_in(g_tables[i], code)) return text;
    const QZLOCALTEXT* record = builtin_message(code);
    return record ? QzGetString(nullptr, record) : nullptr;
}

QZ_EXTERN_C QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_GetContextString(DWORD_PTR context) {
    using namespace qz::errors;
    if (context > kLargestContextId) return reinterpret_cast<LPCWSTR>(context);
    const ContextText* found = &kContextTexts[0];
    for (size_t i = 0; i < kContextTextCount; ++i) {
        if (kContextTexts[i].id == context) {
            found = &kContextTexts[i];
            break;
        }
    }
    return kernel_text(found->text);
}

QZ_EXTERN_C QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_GetErrorMessage(DWORD_PTR context,
                                                                     HRESULT code, LPCWSTR extra) {
    thread_local WCHAR message[QZERROR_MESSAGE_CHARS];
    qz::errors::compose_error_text(context, code, extra, message);
    return message;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzErrorHandler_ComposeErrorText(DWORD_PTR context,
                                                                      LPCWSTR extra,
                                                                      LPWSTR buffer) {
    if (!buffer) return E_POINTER;
    qz::errors::compose_error_text(context, QzErrorHandler_GetLastError(), extra, buffer);
    return S_OK;
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzErrorHandler_MsgBoxText(HWND owner, UINT style, LPCWSTR text,
                                                            DWORD flags) {
    if (!text) return 0;
    WCHAR caption[MAX_PATH];
    QzLang_ExpandText(QZTEXT("$(AppName)"), caption, MAX_PATH);
    try {
        qz::errors::WString box = text;
        qz::errors::append_details_for_box(box, flags);
        return QzMessageBox(owner, box.c_str(), caption, style);
    } catch (const std::bad_alloc&) {
        // Without memory for the details, the message alone still goes out.
        return QzMessageBox(owner, text, caption, style);
    }
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzErrorHandler_MsgBox(HWND owner, UINT style, DWORD_PTR context,
                                                        HRESULT code, LPCWSTR extra, DWORD flags) {
    // A cancellation is the user's own choice: nothing to report.
    if (code == QZE_CANCELLED) return IDOK;
    WCHAR text[QZERROR_MESSAGE_CHARS];
    QzErrorHandler_ComposeErrorText(context, extra, text);
    return QzErrorHandler_MsgBoxText(owner, style, text, flags);
}
