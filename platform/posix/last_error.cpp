// The calling thread's last Win32 error.
#include "platform/posix/win32_internal.h"

namespace {
thread_local DWORD t_last_error = 0;
}

QZ_EXTERN_C DWORD GetLastError(void) {
    return t_last_error;
}
QZ_EXTERN_C void SetLastError(DWORD error) {
    t_last_error = error;
}
