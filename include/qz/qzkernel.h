/*
 * qzkernel.h - the library frame: version agreement, early initialisation
 * and late termination, the per-process state hosts can query, and the
 * kernel's message box.
 */
#ifndef QZ_QZKERNEL_H
#define QZ_QZKERNEL_H

#include "qzdefs.h"
#include "qzresult.h"

/* The kernel version word, returned by QzKernel_GetVersion. */
#define QZKERNEL_VERSION 0x0A000086u
/* The agreement number a client passes to QzKernel_CheckVersion. */
#define QZKERNEL_AGREEMENT 3

QZ_EXTERN_C_BEGIN

QZ_API DWORD QZ_STDCALL QzKernel_GetVersion(void);

/*
 * Agrees the kernel version with a client: S_OK when the agreement number
 * is 3 and the client's required version is at most the kernel's; E_FAIL
 * otherwise, after showing the reason in the kernel's message box unless
 * `quiet` is set. A null or empty client name reads as an empty name.
 */
QZ_API HRESULT QZ_STDCALL QzKernel_CheckVersion(HWND owner, LPCSTR client_name,
                                                DWORD required_version, DWORD agreement,
                                                DWORD reserved, BOOL quiet);

/*
 * The kernel's message box: shows `text` with `caption` and the Win32 box
 * style bits and returns the button pressed (IDOK = 1, ...). On POSIX the
 * box goes to the handler set with QzKernel_SetMessageBoxHandler; without
 * one, caption and text are written to standard error and IDOK is returned.
 */
QZ_API int QZ_STDCALL QzMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style);

typedef int(QZ_STDCALL* QZMESSAGEBOXHANDLER)(void* context, HWND owner, LPCWSTR text,
                                             LPCWSTR caption, UINT style);
/*
 * Installs the handler that shows the kernel's message boxes (null restores
 * the default: MessageBoxW on Windows, standard error on POSIX).
 */
QZ_API void QZ_STDCALL QzKernel_SetMessageBoxHandler(QZMESSAGEBOXHANDLER handler, void* context);

QZ_EXTERN_C_END

#endif
