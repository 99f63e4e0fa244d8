// The details record: the lines, code, owner and hyperlink of the error
// being collected for the next error box.
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <string>

#include "base/format.h"
#include "base/spin_lock.h"
#include "kernel/error_internal.h"
#include "platform/win32api.h"

namespace qz::errors {

namespace {

constexpr size_t kDetailsChars = QZERROR_DETAILS_BYTES / sizeof(WCHAR);
constexpr size_t kLinkTextChars = 2048;
constexpr size_t kLinkTargetChars = 2083;
constexpr WCHAR kSeparator[] = QZTEXT("\r\n");
constexpr size_t kSeparatorChars = 2;

struct DetailsRecord {
    HRESULT last_code;
    DWORD owner;
    int lines;
    size_t length;  // characters of `text` in use
    WCHAR text[kDetailsChars];
    WCHAR link_text[kLinkTextChars];
    WCHAR link_target[kLinkTargetChars];
    // A line is formatted into `scratch`, then its macros expanded into
    // `expanded`; a line that does not fit either cannot fit `text`.
    WCHAR scratch[kDetailsChars];
    WCHAR expanded[kDetailsChars];
};

// The owner rule lets other threads add lines for the same error, so the
// record is locked even though it is meant for one thread at a time.
constinit qz::base::SpinLock g_lock;
DetailsRecord g_record;

size_t length_of(const WCHAR* text) {
    return std::char_traits<WCHAR>::length(text);
}

void copy_cut(WCHAR* out, size_t capacity, const WCHAR* text) {
    size_t n = 0;
    for (; text[n] && n + 1 < capacity; ++n) out[n] = text[n];
    out[n] = 0;
}

bool has_macro_or_conversion(const WCHAR* format) {
    for (const WCHAR* p = format; *p; ++p)
        if (*p == WCHAR('%') || *p == WCHAR('$')) return true;
    return false;
}

HRESULT add_line(HRESULT code, LPCWSTR format, va_list args) {
    std::lock_guard<qz::base::SpinLock> guard(g_lock);
    DetailsRecord& d = g_record;
    const DWORD me = GetCurrentThreadId();
    if (d.owner == 0)
        d.owner = me;
    else if (d.owner != me && code != d.last_code)
        return E_FAIL;
    if (!format) return E_POINTER;
    const WCHAR* line = format;
    if (has_macro_or_conversion(format)) {
        if (qz::base::vformat(d.scratch, kDetailsChars, format, args).truncated) return E_FAIL;
        QzLang_ExpandText(d.scratch, d.expanded, int(kDetailsChars));
        line = d.expanded;
    }
    const size_t n = length_of(line);
    // The text, the new line and its separator must stay below the limit,
    // which leaves room for the terminating zero.
    if ((d.length + n + kSeparatorChars) * sizeof(WCHAR) >= QZERROR_DETAILS_BYTES) return E_FAIL;
    std::char_traits<WCHAR>::copy(d.text + d.length, line, n);
    std::char_traits<WCHAR>::copy(d.text + d.length + n, kSeparator, kSeparatorChars);
    d.length += n + kSeparatorChars;
    d.text[d.length] = 0;
    ++d.lines;
    d.last_code = code;
    return S_OK;
}

}  // namespace

void append_details_for_box(std::basic_string<WCHAR>& box, DWORD flags) {
    std::lock_guard<qz::base::SpinLock> guard(g_lock);
    const DetailsRecord& d = g_record;
    if (d.lines > 0 && !(flags & QZERRMB_NODETAILS)) {
        box += QZTEXT("\n\n");
        if (const LPCWSTR heading = QzGetString(nullptr, kDetailsHeading.record())) box += heading;
        box += QZTEXT("\n");
        // The last line's separator would only add an empty line.
        box.append(d.text, d.length - kSeparatorChars);
    }
    if (d.link_target[0] && !(flags & QZERRMB_NOHYPERLINK)) {
        box += QZTEXT("\n\n");
        if (d.link_text[0]) {
            box += d.link_text;
            box += QZTEXT(": ");
        }
        box += d.link_target;
    }
}

}  // namespace qz::errors

using qz::errors::g_lock;
using qz::errors::g_record;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzErrorHandler_GetLastError(void) {
    std::lock_guard<qz::base::SpinLock> guard(g_lock);
    return g_record.last_code;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzErrorHandler_DetailsInit(void) {
    std::lock_guard<qz::base::SpinLock> guard(g_lock);
    std::memset(&g_record, 0, sizeof g_record);
    return S_OK;
}

QZ_EXTERN_C QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_DetailsInfo(HRESULT* code, int* lines,
                                                                 DWORD* thread) {
    std::lock_guard<qz::base::SpinLock> guard(g_lock);
    if (code) *code = g_record.last_code;
    if (lines) *lines = g_record.lines;
    if (thread) *thread = g_record.owner;
    return g_record.lines > 0 ? g_record.text : nullptr;
}

QZ_EXTERN_C QZ_API HRESULT QZ_CDECL QzErrorHandler_DetailsAddString(HRESULT code, LPCWSTR format,
                                                                    ...) {
    va_list args;
    va_start(args, format);
    const HRESULT hr = qz::errors::add_line(code, format, args);
    va_end(args);
    return hr;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzErrorHandler_DetailsSetHyperlink(LPCWSTR target,
                                                                         LPCWSTR text) {
    if (!target || !text) return E_POINTER;
    std::lock_guard<qz::base::SpinLock> guard(g_lock);
    qz::errors::copy_cut(g_record.link_target, qz::errors::kLinkTargetChars, target);
    qz::errors::copy_cut(g_record.link_text, qz::errors::kLinkTextChars, text);
    return S_OK;
}
