/*
 * qzerror.h - the error handler: message texts for result codes, error
 * tables that applications add, the details record of the last error,
 * and Win32 and common-dialog error translation.
 *
 * Message texts are localised text records (qzlang.h) resolved through a
 * language instance. The kernel's own texts begin with two line breaks so
 * that they read as a paragraph after a context sentence ("An error occurred
 * while opening the file ...").
 */
#ifndef QZ_QZERROR_H
#define QZ_QZERROR_H

#include "qzdefs.h"
#include "qzresult.h"
#include "qzlang.h"

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

QZ_EXTERN_C_END

#endif
