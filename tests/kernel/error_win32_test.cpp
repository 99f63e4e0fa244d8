// Win32 and common-dialog errors as result codes.
#include <gtest/gtest.h>

#include "qzkernel.h"

namespace {

TEST(TranslateWin32Error, ErrorsWithACodeOfTheirOwn) {
    const struct {
        DWORD error;
        HRESULT expected;
    } cases[] = {
        {0, S_OK},
        {1, E_INVALIDARG},
        {2, QZE_NOT_FOUND},
        {3, QZE_NOT_FOUND},
        {4, QZE_TOO_MANY_OPEN_FILES},
        {5, E_ACCESSDENIED},
        {6, E_HANDLE},
        {14, E_OUTOFMEMORY},
        {84, E_OUTOFMEMORY},
        {15, QZ_HR_INVALID_DRIVE},
        {32, QZE_SHARING_VIOLATION},
        {39, QZE_DISK_FULL},
        {112, QZE_DISK_FULL},
        {80, QZE_FILE_EXISTS},
        {110, QZE_FILE_OPEN},
        {120, E_NOTIMPL},
        {123, QZE_BAD_FILE_NAME},
        {126, QZE_NOT_FOUND},
        {127, QZE_NOT_FOUND},
        {170, QZE_SYSTEM_BUSY},
        {183, QZE_ALREADY_EXISTS},
    };
    for (const auto& c : cases)
        EXPECT_EQ(QzErrorHandler_TranslateWin32Error(c.error), c.expected) << c.error;
}

TEST(TranslateWin32Error, EverythingElseIsEFail) {
    // Listed errors of the classic range, unlisted ones, and far-off values.
    for (DWORD error :
         {7u, 8u, 13u, 87u, 122u, 206u, 536u, 35u, 537u, 998u, 9999u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(QzErrorHandler_TranslateWin32Error(error), E_FAIL) << error;
}

TEST(TranslateCommDlgError, EveryDocumentedValue) {
    const struct {
        DWORD error;
        HRESULT expected;
    } cases[] = {
        {0, S_OK},
        {1, E_INVALIDARG},
        {3, E_INVALIDARG},
        {4, E_INVALIDARG},
        {11, E_INVALIDARG},
        {2, E_OUTOFMEMORY},
        {5, E_OUTOFMEMORY},
        {7, E_OUTOFMEMORY},
        {8, E_OUTOFMEMORY},
        {9, E_OUTOFMEMORY},
        {10, E_OUTOFMEMORY},
        {6, QZE_RESOURCE_MISSING},
        {0x3001, E_OUTOFMEMORY},
        {0x3002, QZE_BAD_FILE_NAME},
        {0x3003, E_INVALIDARG},
        {0x4001, E_INVALIDARG},
        {0xFFFF, E_INVALIDARG},
        {12, E_FAIL},
        {0x1001, E_FAIL},
        {0x2001, E_FAIL},
        {0x3004, E_FAIL},
        {0x10000, E_FAIL},
    };
    for (const auto& c : cases)
        EXPECT_EQ(QzErrorHandler_TranslateCommDlgError(c.error), c.expected) << std::hex << c.error;
}

}  // namespace
