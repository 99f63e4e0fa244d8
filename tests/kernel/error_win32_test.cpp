// Win32 and common-dialog errors as result codes.
#include <gtest/gtest.h>

#include <vector>

#include "qzkernel.h"

namespace {

struct Case {
    HRESULT expected;
    std::vector<DWORD> errors;
};

TEST(TranslateErrors, Win32OwnCodesAndEFailForEverythingElseAndCommonDialogErrors) {
    const Case cases[] = {{S_OK, {0}},
                          {E_INVALIDARG, {1}},
                          {QZE_NOT_FOUND, {2, 3, 126, 127}},
                          {QZE_TOO_MANY_OPEN_FILES, {4}},
                          {E_ACCESSDENIED, {5}},
                          {E_HANDLE, {6}},
                          {E_OUTOFMEMORY, {14, 84}},
                          {QZ_HR_INVALID_DRIVE, {15}},
                          {QZE_SHARING_VIOLATION, {32}},
                          {QZE_DISK_FULL, {39, 112}},
                          {QZE_FILE_EXISTS, {80}},
                          {QZE_FILE_OPEN, {110}},
                          {E_NOTIMPL, {120}},
                          {QZE_BAD_FILE_NAME, {123}},
                          {QZE_SYSTEM_BUSY, {170}},
                          {QZE_ALREADY_EXISTS, {183}},
                          // Listed errors of the classic range, unlisted ones and far-off values.
                          {E_FAIL, {7, 87, 122, 537, 9999, 0xFFFFFFFFu}}};
    for (const Case& c : cases)
        for (DWORD error : c.errors)
            EXPECT_EQ(QzErrorHandler_TranslateWin32Error(error), c.expected) << error;
    // The common-dialog errors, every documented value.
    const Case dialog_cases[] = {{S_OK, {0}},
                                 {E_INVALIDARG, {1, 3, 4, 11, 0x3003, 0x4001, 0xFFFF}},
                                 {E_OUTOFMEMORY, {2, 5, 7, 8, 9, 10, 0x3001}},
                                 {QZE_RESOURCE_MISSING, {6}},
                                 {QZE_BAD_FILE_NAME, {0x3002}},
                                 {E_FAIL, {12, 0x1001, 0x2001, 0x3004, 0x10000}}};
    for (const Case& c : dialog_cases)
        for (DWORD error : c.errors)
            EXPECT_EQ(QzErrorHandler_TranslateCommDlgError(error), c.expected) << std::hex << error;
}

}  // namespace
