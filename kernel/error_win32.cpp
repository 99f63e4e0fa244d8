// Translation of Win32 and common-dialog error numbers into result codes.
#include "kernel/error_internal.h"

namespace qz::errors {

namespace {

struct Win32Pair {
    DWORD error;
    HRESULT result;
};

// Searched from the first pair. Besides the errors that have a code of
// their own, the table names the Win32 errors of the classic range that
// have none; they give E_FAIL as an unlisted error does.
constexpr Win32Pair kWin32Errors[] = {
    {0, S_OK},                     // ERROR_SUCCESS
    {1, E_INVALIDARG},             // ERROR_INVALID_FUNCTION
    {2, QZE_NOT_FOUND},            // ERROR_FILE_NOT_FOUND
    {3, QZE_NOT_FOUND},            // ERROR_PATH_NOT_FOUND
    {4, QZE_TOO_MANY_OPEN_FILES},  // ERROR_TOO_MANY_OPEN_FILES
    {5, E_ACCESSDENIED},           // ERROR_ACCESS_DENIED
    {6, E_HANDLE},                 // ERROR_INVALID_HANDLE
    {7, E_FAIL},
    {8, E_FAIL},
    {9, E_FAIL},
    {10, E_FAIL},
    {11, E_FAIL},
    {12, E_FAIL},
    {13, E_FAIL},
    {14, E_OUTOFMEMORY},        // ERROR_OUTOFMEMORY
    {15, QZ_HR_INVALID_DRIVE},  // ERROR_INVALID_DRIVE
    {16, E_FAIL},
    {17, E_FAIL},
    {18, E_FAIL},
    {19, E_FAIL},
    {20, E_FAIL},
    {21, E_FAIL},
    {22, E_FAIL},
    {23, E_FAIL},
    {24, E_FAIL},
    {25, E_FAIL},
    {26, E_FAIL},
    {27, E_FAIL},
    {28, E_FAIL},
    {29, E_FAIL},
    {30, E_FAIL},
    {31, E_FAIL},
    {32, QZE_SHARING_VIOLATION},  // ERROR_SHARING_VIOLATION
    {33, E_FAIL},
    {34, E_FAIL},
    {36, E_FAIL},
    {38, E_FAIL},
    {39, QZE_DISK_FULL},  // ERROR_HANDLE_DISK_FULL
    {50, E_FAIL},
    {51, E_FAIL},
    {52, E_FAIL},
    {53, E_FAIL},
    {54, E_FAIL},
    {55, E_FAIL},
    {56, E_FAIL},
    {57, E_FAIL},
    {58, E_FAIL},
    {59, E_FAIL},
    {60, E_FAIL},
    {61, E_FAIL},
    {62, E_FAIL},
    {63, E_FAIL},
    {64, E_FAIL},
    {65, E_FAIL},
    {66, E_FAIL},
    {67, E_FAIL},
    {68, E_FAIL},
    {69, E_FAIL},
    {70, E_FAIL},
    {71, E_FAIL},
    {72, E_FAIL},
    {80, QZE_FILE_EXISTS},  // ERROR_FILE_EXISTS
    {82, E_FAIL},
    {83, E_FAIL},
    {84, E_OUTOFMEMORY},  // ERROR_OUT_OF_STRUCTURES
    {85, E_FAIL},
    {86, E_FAIL},
    {87, E_FAIL},
    {88, E_FAIL},
    {89, E_FAIL},
    {100, E_FAIL},
    {101, E_FAIL},
    {102, E_FAIL},
    {103, E_FAIL},
    {104, E_FAIL},
    {105, E_FAIL},
    {106, E_FAIL},
    {107, E_FAIL},
    {108, E_FAIL},
    {109, E_FAIL},
    {110, QZE_FILE_OPEN},  // ERROR_OPEN_FAILED
    {111, E_FAIL},
    {112, QZE_DISK_FULL},  // ERROR_DISK_FULL
    {113, E_FAIL},
    {114, E_FAIL},
    {117, E_FAIL},
    {118, E_FAIL},
    {119, E_FAIL},
    {120, E_NOTIMPL},  // ERROR_CALL_NOT_IMPLEMENTED
    {121, E_FAIL},
    {122, E_FAIL},
    {123, QZE_BAD_FILE_NAME},  // ERROR_INVALID_NAME
    {124, E_FAIL},
    {125, E_FAIL},
    {126, QZE_NOT_FOUND},  // ERROR_MOD_NOT_FOUND
    {127, QZE_NOT_FOUND},  // ERROR_PROC_NOT_FOUND
    {128, E_FAIL},
    {129, E_FAIL},
    {130, E_FAIL},
    {131, E_FAIL},
    {132, E_FAIL},
    {133, E_FAIL},
    {134, E_FAIL},
    {135, E_FAIL},
    {136, E_FAIL},
    {137, E_FAIL},
    {138, E_FAIL},
    {139, E_FAIL},
    {140, E_FAIL},
    {141, E_FAIL},
    {142, E_FAIL},
    {143, E_FAIL},
    {144, E_FAIL},
    {145, E_FAIL},
    {146, E_FAIL},
    {147, E_FAIL},
    {148, E_FAIL},
    {149, E_FAIL},
    {150, E_FAIL},
    {151, E_FAIL},
    {152, E_FAIL},
    {153, E_FAIL},
    {154, E_FAIL},
    {155, E_FAIL},
    {156, E_FAIL},
    {157, E_FAIL},
    {158, E_FAIL},
    {159, E_FAIL},
    {160, E_FAIL},
    {161, E_FAIL},
    {162, E_FAIL},
    {164, E_FAIL},
    {167, E_FAIL},
    {170, QZE_SYSTEM_BUSY},  // ERROR_BUSY
    {173, E_FAIL},
    {174, E_FAIL},
    {180, E_FAIL},
    {182, E_FAIL},
    {183, QZE_ALREADY_EXISTS},  // ERROR_ALREADY_EXISTS
    {186, E_FAIL},
    {187, E_FAIL},
    {188, E_FAIL},
    {189, E_FAIL},
    {190, E_FAIL},
    {191, E_FAIL},
    {192, E_FAIL},
    {193, E_FAIL},
    {194, E_FAIL},
    {195, E_FAIL},
    {196, E_FAIL},
    {197, E_FAIL},
    {198, E_FAIL},
    {199, E_FAIL},
    {200, E_FAIL},
    {201, E_FAIL},
    {202, E_FAIL},
    {203, E_FAIL},
    {205, E_FAIL},
    {206, E_FAIL},
    {207, E_FAIL},
    {208, E_FAIL},
    {209, E_FAIL},
    {210, E_FAIL},
    {212, E_FAIL},
    {214, E_FAIL},
    {215, E_FAIL},
    {216, E_FAIL},
    {217, E_FAIL},
    {218, E_FAIL},
    {220, E_FAIL},
    {230, E_FAIL},
    {231, E_FAIL},
    {232, E_FAIL},
    {233, E_FAIL},
    {234, E_FAIL},
    {240, E_FAIL},
    {254, E_FAIL},
    {255, E_FAIL},
    {259, E_FAIL},
    {266, E_FAIL},
    {267, E_FAIL},
    {275, E_FAIL},
    {276, E_FAIL},
    {277, E_FAIL},
    {278, E_FAIL},
    {282, E_FAIL},
    {288, E_FAIL},
    {298, E_FAIL},
    {299, E_FAIL},
    {317, E_FAIL},
    {487, E_FAIL},
    {534, E_FAIL},
    {535, E_FAIL},
    {536, E_FAIL},
};
static_assert(sizeof kWin32Errors / sizeof kWin32Errors[0] == 194);

// Common-dialog extended errors (CommDlgExtendedError).
constexpr DWORD kCdErrGeneralCodes = 0x0000;
constexpr DWORD kCdErrStructSize = 0x0001;
constexpr DWORD kCdErrInitialization = 0x0002;
constexpr DWORD kCdErrNoTemplate = 0x0003;
constexpr DWORD kCdErrNoHInstance = 0x0004;
constexpr DWORD kCdErrLoadStrFailure = 0x0005;
constexpr DWORD kCdErrFindResFailure = 0x0006;
constexpr DWORD kCdErrLoadResFailure = 0x0007;
constexpr DWORD kCdErrLockResFailure = 0x0008;
constexpr DWORD kCdErrMemAllocFailure = 0x0009;
constexpr DWORD kCdErrMemLockFailure = 0x000A;
constexpr DWORD kCdErrNoHook = 0x000B;
constexpr DWORD kFnErrSubclassFailure = 0x3001;
constexpr DWORD kFnErrInvalidFileName = 0x3002;
constexpr DWORD kFnErrBufferTooSmall = 0x3003;
constexpr DWORD kFrErrBufferLengthZero = 0x4001;
constexpr DWORD kCdErrDialogFailure = 0xFFFF;

}  // namespace

}  // namespace qz::errors

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzErrorHandler_TranslateWin32Error(DWORD error) {
    for (const auto& pair : qz::errors::kWin32Errors)
        if (pair.error == error) return pair.result;
    return E_FAIL;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzErrorHandler_TranslateCommDlgError(DWORD error) {
    using namespace qz::errors;
    switch (error) {
        case kCdErrGeneralCodes:
            return S_OK;
        case kCdErrStructSize:
        case kCdErrNoTemplate:
        case kCdErrNoHInstance:
        case kCdErrNoHook:
        case kFnErrBufferTooSmall:
        case kFrErrBufferLengthZero:
        case kCdErrDialogFailure:
            return E_INVALIDARG;
        case kCdErrInitialization:
        case kCdErrLoadStrFailure:
        case kCdErrLoadResFailure:
        case kCdErrLockResFailure:
        case kCdErrMemAllocFailure:
        case kCdErrMemLockFailure:
        case kFnErrSubclassFailure:
            return E_OUTOFMEMORY;
        // The dialog's own resources are missing from the installation.
        case kCdErrFindResFailure:
            return QZE_RESOURCE_MISSING;
        case kFnErrInvalidFileName:
            return QZE_BAD_FILE_NAME;
        default:
            return E_FAIL;
    }
}
