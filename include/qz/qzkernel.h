/*
 * qzkernel.h - the library frame: version agreement, early initialisation
 * and late termination, the per-process state hosts can query, the
 * processor-feature word and the kernel's message box.
 *
 * The library initialises itself when it is loaded (DllMain on Windows, the
 * load constructor elsewhere): early initialisation with flags 1, then,
 * unless the host is RunDLL32.exe, the kernel settings store and the window
 * steps. A host then agrees the version with QzKernel_CheckVersion and may
 * run QzKernel_EarlyInitialize again with its own flags; that is safe to
 * repeat. QzKernel_LateTerminate (also run on unload) releases everything and
 * clears every handle, so a later early initialisation starts afresh.
 */
#ifndef QZ_QZKERNEL_H
#define QZ_QZKERNEL_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

/* The kernel version word, returned by QzKernel_GetVersion. */
#define QZKERNEL_VERSION 0x0A000086u
/* The agreement number a client passes to QzKernel_CheckVersion. */
#define QZKERNEL_AGREEMENT 3

/* Flags of QzKernel_EarlyInitialize (kept as given; these two choose the start-up mode). */
#define QZKERNEL_INIT_ATTACH 0x00000001u /* start-up mode 1: the load-time initialisation */
#define QZKERNEL_INIT_HOSTED 0x00000020u /* start-up mode 2, unless bit 0 is set as well */

/*
 * Bits of the processor-feature word (QzKernel_GetProcessorFeatures). A
 * vector extension is reported only when the processor has it and the
 * operating system saves its registers (XGETBV for the AVX families).
 * Non-x86 builds report 0.
 */
#define QZCPU_MMX 0x00000001u
#define QZCPU_SSE 0x00000002u
#define QZCPU_SSE2 0x00000004u
#define QZCPU_SSE3 0x00000008u
#define QZCPU_SSSE3 0x00000010u
#define QZCPU_SSE41 0x00000020u
#define QZCPU_SSE42 0x00000040u
#define QZCPU_AVX 0x00000080u
#define QZCPU_AVX2 0x00000100u
#define QZCPU_FMA3 0x00000200u
#define QZCPU_F16C 0x00000400u
#define QZCPU_AVX512F 0x00000800u
#define QZCPU_AVX512BW 0x00001000u
#define QZCPU_POPCNT 0x00002000u
#define QZCPU_CMOV 0x00004000u
#define QZCPU_3DNOW 0x00008000u
#define QZCPU_ALL 0xFFFFFFFFu

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

/* The window messages QzKernel_UserPrefChanges acts on. */
#ifndef WM_DISPLAYCHANGE
#define WM_DISPLAYCHANGE 0x007Eu
#endif
#ifndef WM_SYSCOLORCHANGE
#define WM_SYSCOLORCHANGE 0x0015u
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
 * Early initialisation: error mode, timer service, processor probe (the
 * first call only; every call re-applies the feature masks), the registered
 * -object list and the kernel language instance when absent. Safe to
 * repeat. TRUE when the list and the language instance are in place.
 */
QZ_API BOOL QZ_STDCALL QzKernel_EarlyInitialize(HMODULE kernel_module, DWORD flags);
/*
 * Late termination: closes the kernel language instance, destroys the
 * registered-object list and the cached drawing objects and cursors and
 * clears the kernel module handle. Both words are ignored; returns TRUE.
 */
QZ_API BOOL QZ_STDCALL QzKernel_LateTerminate(DWORD reserved1, DWORD reserved2);

/* The module handle given to early initialisation; null after termination. */
QZ_API HMODULE QZ_STDCALL QzKernel_GetAppKernel(void);
/*
 * Writes the full path of the kernel module into buffer (capacity in
 * characters, cut and terminated as GetModuleFileNameW does). S_OK, or the
 * operating system's last error as a result code.
 */
QZ_API HRESULT QZ_STDCALL QzKernel_GetAppKernelPathName(LPWSTR buffer, DWORD capacity);
/* Remembers the host's splash window (null clears it); returns `splash`. */
QZ_API HWND QZ_STDCALL QzKernel_SetSplash(HWND splash);
/*
 * The host forwards WM_DISPLAYCHANGE and WM_SYSCOLORCHANGE here: both
 * recompute the high-colour flag and the monitor state; the colour change
 * also re-creates the cached system-colour objects. Other messages are
 * ignored.
 */
QZ_API void QZ_STDCALL QzKernel_UserPrefChanges(HWND window, UINT message, WPARAM wparam,
                                                LPARAM lparam);
/* Keep operations of the library's families referenced; no effect for clients. */
QZ_API void QZ_STDCALL QzKernel_ForceRefs(void);
QZ_API void QZ_STDCALL QzKernel_ForceTransMixerRefs(void);

/*
 * The processor-feature word (QZCPU_... bits): the probe's result ANDed
 * with the permitted mask and ORed with the forced mask, as formed by the
 * last early initialisation.
 */
QZ_API DWORD QZ_STDCALL QzKernel_GetProcessorFeatures(void);
/*
 * Sets the permitted mask (QZCPU_ALL by default) and the forced mask (0 by
 * default); they take effect at the next QzKernel_EarlyInitialize.
 */
QZ_API void QZ_STDCALL QzKernel_SetProcessorFeatureMasks(DWORD permitted, DWORD forced);

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
