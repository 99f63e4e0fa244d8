// The kernel version word.
#include "qz/qzkernel.h"

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL QzKernel_GetVersion(void) { return QZKERNEL_VERSION; }
