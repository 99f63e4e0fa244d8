/*
 * win32api.h - the one header through which the library's families reach
 * the operating system. Families are written against Win32 names; on
 * Windows they come from <windows.h>, elsewhere from the POSIX layer.
 */
#ifndef QZ_PLATFORM_WIN32API_H
#define QZ_PLATFORM_WIN32API_H

#include "qz/qzdefs.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include "qz/win32compat.h"
#include "platform/posix/win32_internal.h"
#endif

#endif
