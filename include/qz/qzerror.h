/*
 * qzerror.h - the error handler: message texts for result codes, error
 * tables that applications add, the details record of the last error,
 * Win32 and common-dialog error translation, and plain-text dumps of memory
 * and of an exception for crash reports.
 *
 * Message texts are localised text records (qzlang.h) resolved through a
 * language instance. The kernel's own texts begin with two line breaks so
 * that they read as a paragraph after a context sentence ("An error occurred
 * while opening the file ...").
 *
 * The dumps write 8-bit text with "\r\n" line ends. Addresses print as
 * 2 * sizeof(void*) upper-case hexadecimal digits, and every line needs as
 * much more room as the addresses have digits beyond eight, so a dump never
 * writes past its buffer: it stops when the buffer is nearly full.
 */
#ifndef QZ_QZERROR_H
#define QZ_QZERROR_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"
#include "qz/qzlang.h"

/* ---- exception records (from <windows.h> on Windows) ---------------------- */

#if !defined(_WIN32)

#define EXCEPTION_MAXIMUM_PARAMETERS 15

typedef struct _EXCEPTION_RECORD {
    DWORD ExceptionCode;
    DWORD ExceptionFlags;
    struct _EXCEPTION_RECORD* ExceptionRecord;
    PVOID ExceptionAddress;
    DWORD NumberParameters;
    ULONG_PTR ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];
} EXCEPTION_RECORD, *PEXCEPTION_RECORD;

/*
 * The thread context with the x86 register names. Each field holds the
 * platform's register of the same role at its full width (RAX in Eax on
 * x86-64); registers a platform does not have read as zero.
 */
typedef struct _CONTEXT {
    DWORD ContextFlags;
    DWORD SegGs;
    DWORD SegFs;
    DWORD SegEs;
    DWORD SegDs;
    DWORD_PTR Edi;
    DWORD_PTR Esi;
    DWORD_PTR Ebx;
    DWORD_PTR Edx;
    DWORD_PTR Ecx;
    DWORD_PTR Eax;
    DWORD_PTR Ebp;
    DWORD_PTR Eip;
    DWORD SegCs;
    DWORD EFlags;
    DWORD_PTR Esp;
    DWORD SegSs;
} CONTEXT, *PCONTEXT;

typedef struct _EXCEPTION_POINTERS {
    PEXCEPTION_RECORD ExceptionRecord;
    PCONTEXT ContextRecord;
} EXCEPTION_POINTERS, *PEXCEPTION_POINTERS;

#define EXCEPTION_EXECUTE_HANDLER 1
#define EXCEPTION_CONTINUE_SEARCH 0
#define EXCEPTION_CONTINUE_EXECUTION (-1)

#define EXCEPTION_ACCESS_VIOLATION ((DWORD)0xC0000005)
#define EXCEPTION_DATATYPE_MISALIGNMENT ((DWORD)0x80000002)
#define EXCEPTION_BREAKPOINT ((DWORD)0x80000003)
#define EXCEPTION_SINGLE_STEP ((DWORD)0x80000004)
#define EXCEPTION_IN_PAGE_ERROR ((DWORD)0xC0000006)
#define EXCEPTION_ILLEGAL_INSTRUCTION ((DWORD)0xC000001D)
#define EXCEPTION_ARRAY_BOUNDS_EXCEEDED ((DWORD)0xC000008C)
#define EXCEPTION_FLT_DIVIDE_BY_ZERO ((DWORD)0xC000008E)
#define EXCEPTION_FLT_INEXACT_RESULT ((DWORD)0xC000008F)
#define EXCEPTION_FLT_INVALID_OPERATION ((DWORD)0xC0000090)
#define EXCEPTION_FLT_OVERFLOW ((DWORD)0xC0000091)
#define EXCEPTION_FLT_STACK_CHECK ((DWORD)0xC0000092)
#define EXCEPTION_FLT_UNDERFLOW ((DWORD)0xC0000093)
#define EXCEPTION_INT_DIVIDE_BY_ZERO ((DWORD)0xC0000094)
#define EXCEPTION_INT_OVERFLOW ((DWORD)0xC0000095)
#define EXCEPTION_PRIV_INSTRUCTION ((DWORD)0xC0000096)
#define EXCEPTION_STACK_OVERFLOW ((DWORD)0xC00000FD)
#define STATUS_CONTROL_C_EXIT ((DWORD)0xC000013A)

#endif /* !_WIN32 */

/* ---- error tables ------------------------------------------------------------ */

/* One pair of an application's error table: a code and its text record. */
typedef struct _qzerror_table {
    HRESULT code;
    const QZLOCALTEXT* text;
} QZERROR_TABLE;

/* One pair of a resource-id error table: a code and a string-table id. */
typedef struct _qzerror_table_rcid {
    HRESULT code;
    UINT id;
} QZERROR_TABLE_RCID;

/* Most tables an application may register. */
#define QZERROR_MAX_TABLES 32

/* Characters of a composed message, terminating zero included. */
#define QZERROR_MESSAGE_CHARS 2048

/* Bytes of the details text, terminating zero included. */
#define QZERROR_DETAILS_BYTES 16384

/* ---- context identifiers -------------------------------------------------------
 * A context sentence says what was being done when the error happened; most
 * take the caller's extra text (a file or device name) in their "%s".
 * Any identifier above 65535 is taken to be the caller's own sentence. */

#define QZERRCTX_DEFAULT 0
#define QZERRCTX_FILE_OPEN 1
#define QZERRCTX_FILE_CREATE 2
#define QZERRCTX_FILE_READ 3
#define QZERRCTX_FILE_WRITE 4
#define QZERRCTX_FILE_SAVE 5
#define QZERRCTX_FILE_CLOSE 6
#define QZERRCTX_FILE_DELETE 7
#define QZERRCTX_FILE_RENAME 8
#define QZERRCTX_FILE_COPY 9
#define QZERRCTX_FILE_MOVE 10
#define QZERRCTX_FOLDER_CREATE 11
#define QZERRCTX_FOLDER_OPEN 12
#define QZERRCTX_FOLDER_DELETE 13
#define QZERRCTX_IMPORT 14
#define QZERRCTX_EXPORT 15
#define QZERRCTX_CONVERT 16
#define QZERRCTX_RENDER 17
#define QZERRCTX_PLAY 18
#define QZERRCTX_RECORD 19
#define QZERRCTX_DEVICE_OPEN 20
#define QZERRCTX_DEVICE_START 21
#define QZERRCTX_DEVICE_STOP 22
#define QZERRCTX_DRIVER_LOAD 23
#define QZERRCTX_CODEC_OPEN 24
#define QZERRCTX_PLUGIN_LOAD 25
#define QZERRCTX_PLUGIN_RUN 26
#define QZERRCTX_EFFECT_APPLY 27
#define QZERRCTX_PROJECT_OPEN 28
#define QZERRCTX_PROJECT_SAVE 29
#define QZERRCTX_ARCHIVE_CREATE 30
#define QZERRCTX_ARCHIVE_EXTRACT 31
#define QZERRCTX_ARCHIVE_OPEN 32
#define QZERRCTX_DOCUMENT_READ 33
#define QZERRCTX_METADATA_READ 34
#define QZERRCTX_METADATA_WRITE 35
#define QZERRCTX_CLIPBOARD_COPY 36
#define QZERRCTX_CLIPBOARD_PASTE 37
#define QZERRCTX_PRINT 38
#define QZERRCTX_SETTINGS_LOAD 39
#define QZERRCTX_SETTINGS_SAVE 40
#define QZERRCTX_MEMORY 41
#define QZERRCTX_WINDOW_CREATE 42
#define QZERRCTX_STARTUP 43
#define QZERRCTX_SHUTDOWN 44
#define QZERRCTX_UNDO 45
#define QZERRCTX_REDO 46
#define QZERRCTX_EDIT 47
#define QZERRCTX_CD_READ 48
#define QZERRCTX_CD_WRITE 49
#define QZERRCTX_DOWNLOAD 50
#define QZERRCTX_UPLOAD 51
#define QZERRCTX_MAIL 52
#define QZERRCTX_HELP 53
#define QZERRCTX_WEB_PAGE 54
#define QZERRCTX_EXCEPTION 55
#define QZERRCTX_RECORDER 56

/* ---- message-box flags (QzErrorHandler_MsgBoxText, QzErrorHandler_MsgBox) ---- */

/* Leave the lines of the details record out of the box. */
#define QZERRMB_NODETAILS 0x1u
/* Leave the hyperlink of the details record out of the box. */
#define QZERRMB_NOHYPERLINK 0x2u

/* ---- sections of the exception dump ------------------------------------------ */

#define QZDUMP_EXCEPTION 0x01u /* code, name, faulting address, instruction address */
#define QZDUMP_MODULE 0x02u    /* module holding the instruction */
#define QZDUMP_REGISTERS 0x04u /* the four register lines */
#define QZDUMP_CODE 0x08u      /* 16 bytes at the instruction */
#define QZDUMP_STACK 0x10u     /* stack words from the stack pointer */
#define QZDUMP_THREAD 0x20u    /* caption, thread id and stack region */
#define QZDUMP_ALL 0xFFu       /* a mask of 0 means the same */

#ifdef __cplusplus
/*
 * Registers an application's error table, resolved with the kernel's
 * language instance. Tables are searched in the order of registration,
 * before the kernel's own, so an application can override a kernel text.
 * The table is kept by pointer and must live as long as the process.
 * 0 when registered; 1 (not a failure) when 32 tables are registered
 * already; E_POINTER for a null table; E_INVALIDARG for a count below 1.
 */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_AddErrorTable(const QZERROR_TABLE* table, int count);
/*
 * Registers a resource-id error table with the language instance whose
 * string table (QzLang_AddStrings) holds its texts. Results as above.
 */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_AddErrorTable(HQZLANG lang,
                                                       const QZERROR_TABLE_RCID* table, int count);
#endif

QZ_EXTERN_C_BEGIN

/*
 * The message text of a code in the user's language: the first registered
 * table that holds the code, else the kernel's table. Null when no table
 * holds it (or its text cannot be resolved). "$(AppName)" is not replaced.
 * The text is read-only; a text from a resource-id table lives in a buffer
 * of the calling thread that the next such lookup overwrites.
 */
QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_GetHresultString(HRESULT code);

/*
 * The context sentence of an identifier (QZERRCTX_...); an unknown one
 * gives the default sentence. A value above 65535 is the caller's own
 * text and is returned as it is.
 */
QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_GetContextString(DWORD_PTR context);

/*
 * Composes a full message: the context sentence with `extra` in its "%s"
 * ("(unnamed)" when extra is null), then, while fewer than 1948 characters
 * are used, the message text of `code` (a generic text naming the code when
 * it has none); "$(AppName)" is replaced. A caller's own sentence is
 * formatted only when its sole conversion is one "%s"; otherwise it is used
 * as it stands. Returns a buffer of the calling thread, overwritten by the
 * next call, of at most QZERROR_MESSAGE_CHARS characters with the zero.
 */
QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_GetErrorMessage(DWORD_PTR context, HRESULT code,
                                                         LPCWSTR extra);

/*
 * Composes a message by the rule of QzErrorHandler_GetErrorMessage for the
 * code of the details record (QzErrorHandler_GetLastError): record the error
 * with QzErrorHandler_DetailsAddString first. `buffer` must hold
 * QZERROR_MESSAGE_CHARS characters. S_OK, or E_POINTER for a null buffer.
 */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_ComposeErrorText(DWORD_PTR context, LPCWSTR extra,
                                                          LPWSTR buffer);

/*
 * Shows `text` in the kernel's message box (QzMessageBox) with the
 * application's name as caption and the Win32 box `style`. Unless `flags`
 * says otherwise (QZERRMB_...), the lines of the details record follow
 * under "Details:" and then the hyperlink as "text: target". Returns the
 * box's result; 0 without showing anything for a null text.
 */
QZ_API int QZ_STDCALL QzErrorHandler_MsgBoxText(HWND owner, UINT style, LPCWSTR text, DWORD flags);

/*
 * Returns 1 at once, showing nothing, when `code` is QZE_CANCELLED (the
 * user cancelled: nothing to report). Otherwise composes the message with
 * QzErrorHandler_ComposeErrorText from the context and the extra text (the
 * code whose text is appended is the details record's) and shows it with
 * QzErrorHandler_MsgBoxText.
 */
QZ_API int QZ_STDCALL QzErrorHandler_MsgBox(HWND owner, UINT style, DWORD_PTR context, HRESULT code,
                                            LPCWSTR extra, DWORD flags);

/*
 * The result code of a Win32 error number: 0 for 0, the kernel's or the
 * common Windows code for the errors that have one, E_FAIL for the rest.
 */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_TranslateWin32Error(DWORD error);

/* The result code of a common-dialog extended error (CommDlgExtendedError). */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_TranslateCommDlgError(DWORD error);

/* ---- the details record ------------------------------------------------------
 * One record per process holds the last error's code, its lines (each
 * followed by "\r\n") and an optional hyperlink. The first thread that adds
 * a line after the record was cleared owns it; other threads may add lines
 * only under the code last added. */

/* The code last added to the details record (0 when cleared). */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_GetLastError(void);

/* Clears the whole details record, hyperlink and owner included. Returns 0. */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_DetailsInit(void);

/*
 * The details text, or null when it holds no line. Each out pointer may be
 * null; otherwise it receives the last code, the number of lines and the
 * owner thread's id. The text stays in the record: read-only, valid until
 * the record changes.
 */
QZ_API LPCWSTR QZ_STDCALL QzErrorHandler_DetailsInfo(HRESULT* code, int* lines, DWORD* thread);

/*
 * Appends one line under `code`. A format holding "%" or "$" is expanded
 * with the arguments through the library's formatter (wide conventions: %s
 * wide, %S 8-bit) and then "$(AppName)" is replaced; any other format is
 * used as it stands. S_OK; E_POINTER for a null format; E_FAIL when the
 * calling thread does not own the record and `code` differs from the last
 * code, or when the text, the line and its "\r\n" would reach
 * QZERROR_DETAILS_BYTES (nothing is added then).
 */
QZ_API HRESULT QZ_CDECL QzErrorHandler_DetailsAddString(HRESULT code, LPCWSTR format, ...);

/*
 * Sets the hyperlink of the details record: its target (cut to 2082
 * characters) and its text (cut to 2047). S_OK, or E_POINTER when either
 * is null.
 */
QZ_API HRESULT QZ_STDCALL QzErrorHandler_DetailsSetHyperlink(LPCWSTR target, LPCWSTR text);

/* ---- dumps ---------------------------------------------------------------------
 * Each dump starts `buffer` as an empty string, writes whole lines while
 * enough room remains (50 characters, plus twice the address digits beyond
 * eight for the stack lines, plus the extra digits otherwise) and returns
 * the characters written without the terminating zero. A null buffer or a
 * size below 1 writes nothing and returns 0. Memory that cannot be read is
 * marked (".." or "........") without being touched. */

/*
 * Hex dump of `count` bytes at `address`, eight a line:
 * " %p: " + "%02X " per byte (".. " unreadable, three blanks past the data)
 * + the bytes as characters (32..126 as they are, "." otherwise) + "\r\n".
 */
QZ_API int QZ_STDCALL QzErrorHandler_DumpHex(LPSTR buffer, int size, LPCVOID address, int count);

/*
 * Dump of `count` 32-bit words at `address`, four a line:
 * " %p: " + "%08X " per word ("........ " unreadable) + "\r\n".
 */
QZ_API int QZ_STDCALL QzErrorHandler_DumpHexDWords(LPSTR buffer, int size, LPCVOID address,
                                                   int count);

/*
 * Dump of an exception for a crash report: the sections of `mask`
 * (QZDUMP_..., 0 for all) in the order exception, module, thread,
 * registers, code bytes, stack; each begins only while 50 characters (plus
 * the extra address digits) of room remain. Sections that need the record
 * or the context are left out when `pointers` does not carry it. A null
 * caption reads as empty.
 */
QZ_API int QZ_STDCALL QzErrorHandler_DumpExceptionRecord(LPSTR buffer, int size, LPCWSTR caption,
                                                         EXCEPTION_POINTERS* pointers, DWORD mask);

/*
 * An exception filter for a host's handler: passes datatype misalignments
 * and exceptions under a debugger on (EXCEPTION_CONTINUE_SEARCH); otherwise
 * clears the details record, adds the caption and the whole dump under
 * QZE_EXCEPTION, shows the message box and returns
 * EXCEPTION_EXECUTE_HANDLER.
 */
QZ_API LONG QZ_STDCALL QzErrorHandler_ExceptionFilter(EXCEPTION_POINTERS* pointers,
                                                      LPCWSTR caption);

QZ_EXTERN_C_END

#endif
