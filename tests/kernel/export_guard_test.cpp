// No C++ exception leaves an exported function: each export that allocates
// through the standard library is called with its 1st, 2nd, ... allocation
// failing until a call allocates nothing more, and must answer with a
// result every time instead of throwing.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>

#include "qzkernel.h"

namespace {

// Counts down the allocations of this test program; the one that reaches
// zero throws. Negative: nothing fails.
int g_fail_countdown = -1;

}  // namespace

void* operator new(std::size_t bytes) {
    if (g_fail_countdown >= 0 && g_fail_countdown-- == 0) throw std::bad_alloc();
    if (void* p = std::malloc(bytes ? bytes : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

struct Export {
    const char* name;
    std::function<long()> call;  // the result, widened
    long out_of_memory;          // what a failed allocation must give
};

int silent_box(void*, HWND, LPCWSTR, LPCWSTR, UINT) { return IDOK; }

TEST(ExportGuard, FailedAllocationsBecomeResultsNotExceptions) {
    static const WCHAR kText[] = QZTEXT("A long message from $(AppName) that will not fit a short string");
    static QZLOCALTEXT text_record = {QZLANG_TEXT_MARKER, 1, {kText}};
    static QZLANGSTRING strings[] = {{7, &text_record}};
    HQZLANG lang = nullptr;
    ASSERT_EQ(QzLang_Open(nullptr, &lang), S_OK);
    QzKernel_SetMessageBoxHandler(silent_box, nullptr);
    const Export exports[] = {
        {"QzLang_Open", [] {
             HQZLANG opened = nullptr;
             const HRESULT hr = QzLang_Open(nullptr, &opened);
             QzLang_Close(opened);
             return long(hr);
         }, long(E_OUTOFMEMORY)},
        {"QzLang_GetInternationals", [] {
             QZINTERNATIONALS intl;
             return long(QzLang_GetInternationals(nullptr, &intl));
         }, long(E_OUTOFMEMORY)},
        {"QzLang_AddStrings", [&] { return long(QzLang_AddStrings(lang, strings, 1)); },
         long(E_OUTOFMEMORY)},
        {"QzErrorHandler_MsgBoxText", [] {
             return long(QzErrorHandler_MsgBoxText(nullptr, 0, kText, 0));
         }, long(IDOK)},
        {"QzMessageBox", [] { return long(QzMessageBox(nullptr, kText, kText, 0)); }, long(IDOK)},
        {"QzKernel_CheckVersion", [] {
             return long(QzKernel_CheckVersion(nullptr, "a client with a long name", QZKERNEL_VERSION + 1,
                                               QZKERNEL_AGREEMENT, 0, FALSE));
         }, long(E_FAIL)},
    };
    for (const Export& e : exports) {
        for (int n = 0;; ++n) {
            g_fail_countdown = n;
            long result = 0;
            try {
                result = e.call();
            } catch (...) {
                g_fail_countdown = -1;
                ADD_FAILURE() << e.name << " let an exception out at allocation " << n + 1;
                break;
            }
            const bool failed_one = g_fail_countdown < 0;
            g_fail_countdown = -1;
            if (!failed_one) break;  // the call made fewer than n + 1 allocations
            EXPECT_TRUE(result == e.out_of_memory || result == S_OK)
                << e.name << " at allocation " << n + 1 << " gave " << result;
        }
    }
    QzKernel_SetMessageBoxHandler(nullptr, nullptr);
    QzLang_Close(lang);
}

}  // namespace
