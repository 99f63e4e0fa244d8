/*
 * qzkernel.h - the library frame: version agreement, early initialisation
 * and late termination, the per-process state hosts can query, the
 * processor-feature word and the kernel's message box.
 */
#ifndef QZ_QZKERNEL_H
#define QZ_QZKERNEL_H

#include "qzdefs.h"
#include "qzresult.h"

/* The kernel version word, returned by QzKernel_GetVersion. */
#define QZKERNEL_VERSION 0x0A000086u
/* The agreement number a client passes to QzKernel_CheckVersion. */
#define QZKERNEL_AGREEMENT 3

/* Message-box style bits and answers (also from <windows.h> on Windows). */
#ifndef MB_OK
#define MB_OK 0x00000000u
#define MB_OKCANCEL 0x00000001u
#define MB_ABORTRETRYIGNORE 0x00000002u
#define MB_YESNOCANCEL 0x00000003u
#define MB_YESNO 0x00000004u
#define MB_RETRYCANCEL 0x00000005u
#define MB_ICONHAND 0x00000010u
#define MB_ICONERROR MB_ICONHAND
#define MB_ICONQUESTION 0x00000020u
#define MB_ICONEXCLAMATION 0x00000030u
#define MB_ICONWARNING MB_ICONEXCLAMATION
#define MB_ICONASTERISK 0x00000040u
#define MB_ICONINFORMATION MB_ICONASTERISK
#endif
#ifndef IDOK
#define IDOK 1
#define IDCANCEL 2
#define IDABORT 3
#define IDRETRY 4
#define IDIGNORE 5
#define IDYES 6
#define IDNO 7
#endif

QZ_EXTERN_C_BEGIN

/* The kernel version word, QZKERNEL_VERSION. */
QZ_API DWORD QZ_STDCALL QzKernel_GetVersion(void);

/*
 * Agrees the kernel version with a client: S_OK when the agreement number
 * is 3 and the client's required version is at most the kernel's; E_FAIL
 * otherwise, after showing the reason in the kernel's message box (caption
 * "Kavo Kernel", information icon) unless `quiet` is set. The client name
 * is ANSI text (at most 128 characters are used); a null or empty name
 * reads as an empty name. `reserved` is ignored.
 */
QZ_API HRESULT QZ_STDCALL QzKernel_CheckVersion(HWND owner, LPCSTR client_name,
                                                DWORD required_version, DWORD agreement,
                                                DWORD reserved, BOOL quiet);

/*
 * The kernel's message box: shows `text` with `caption` and the Win32 box
 * style bits and returns the button pressed (IDOK = 1, ...). "$(AppName)" in
 * text or caption is replaced by the host application's name first. On
 * POSIX the box goes to the handler set with QzKernel_SetMessageBoxHandler;
 * without one, caption and text are written to standard error and IDOK is
 * returned. Null text or caption reads as empty.
 */
QZ_API int QZ_STDCALL QzMessageBox(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style);

typedef int(QZ_STDCALL* QZMESSAGEBOXHANDLER)(void* context, HWND owner, LPCWSTR text,
                                             LPCWSTR caption, UINT style);
/*
 * Installs the handler that shows the kernel's message boxes (null restores
 * the default: MessageBoxW on Windows, standard error on POSIX). The
 * handler receives the expanded text and caption, never null.
 */
QZ_API void QZ_STDCALL QzKernel_SetMessageBoxHandler(QZMESSAGEBOXHANDLER handler, void* context);

QZ_EXTERN_C_END

#endif
