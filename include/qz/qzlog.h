/*
 * qzlog.h - CLog, a diagnostic log file shared between threads.
 *
 * Each written line is filtered by level against the log's mask, may carry
 * a time stamp and a source position, and goes to the file at once. When the
 * file reaches its size limit it becomes the single "<name>.previous" copy
 * (replacing an older one) and a new file starts. Lines are 8-bit text in
 * the ANSI code page with the platform's text-file line ends.
 *
 * Several logs may write one file: copies of a log, or logs given the same
 * name with QZLOG_SH_DENYNO. The file is open for appending, so every line,
 * through whichever log, lands whole at the end of the file. Any of them
 * rotates the file when it finds it full; rotations within the process take
 * turns, and a log whose file another log has just rotated goes on in the
 * new file instead of rotating it again. A line that such a log writes
 * while the other rotates lands, whole, at the end of the previous file;
 * no line is lost until the previous file itself is replaced. Logs in other
 * processes are not coordinated: a rotation there can come on top of one
 * here, dropping the newest previous file early.
 *
 * A line with both decorations reads
 *   "ERR  2024-03-01 09:05:07        main.cpp(  42): the message"
 * that is: the level's tag, the local time " %04d-%02d-%02d %02d:%02d:%02d ",
 * the source file name right-aligned in 15 characters, the line number in 4
 * within parentheses, a colon, a blank, the message.
 */
#ifndef QZ_QZLOG_H
#define QZ_QZLOG_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

/* Levels a line is written at and a mask selects ("ERR ", "WARN", ...). */
typedef DWORD LOGFLAGS;
#define QZLOG_ERROR 0x00001u   /* tag "ERR " */
#define QZLOG_WARNING 0x00002u /* tag "WARN" */
#define QZLOG_INFO 0x00004u    /* tag "INFO" */
#define QZLOG_DEBUG 0x00008u   /* tag "DBG " */
#define QZLOG_PLAIN 0x00010u   /* no tag */
#define QZLOG_ALL_LEVELS 0x0001Fu
/* Decorations, in the mask: a time stamp, the source position. */
#define QZLOG_TIME 0x10000u
#define QZLOG_SOURCE 0x20000u

/* Share modes of Init (those of the C library's shared open). */
#define QZLOG_EXCLUSIVE 0x00 /* no other handle may open the file */
#define QZLOG_SH_DENYRW 0x10 /* as exclusive */
#define QZLOG_SH_DENYWR 0x20 /* others may read */
#define QZLOG_SH_DENYRD 0x30 /* others may write */
#define QZLOG_SH_DENYNO 0x40 /* others may read, write, rename and delete */

#ifdef __cplusplus

class QZ_API CLog {
public:
    /* An empty, disabled log with no size limit, opened exclusively. */
    CLog();
    /*
     * A copy takes the other log's settings and, when that log is enabled,
     * opens the file for itself; a file opened exclusively (or otherwise not
     * opened again) leaves the copy disabled.
     */
    CLog(const CLog& other);
    CLog& operator=(const CLog& other);
    /* Closes the file. */
    virtual ~CLog();

    /*
     * Opens (or creates) `file_name` for appending and enables the log.
     * `mask` selects the levels and decorations; the file rotates when a
     * line is about to be written at or past `size_limit` bytes (0 or less:
     * never); `share_mode` is QZLOG_EXCLUSIVE or a QZLOG_SH_ mode (any other
     * value opens exclusively). A log
     * already open closes its file first. S_OK; E_INVALIDARG for a null or
     * empty name, a zero mask, or a name longer than 250 characters (its
     * ".previous" name would not fit 260); QZE_FILE_OPEN when the file
     * cannot be opened (the log stays disabled).
     */
    HRESULT Init(LPCWSTR file_name, LOGFLAGS mask, int size_limit, int share_mode);

    /*
     * Writes one line at `level` (QZLOG_ERROR ...) when the mask selects
     * it; a level that is none of the five but shares a bit with the mask is
     * tagged "????". `source` (may be null) and `line` are shown with
     * QZLOG_SOURCE. The message is `format` expanded with the arguments by
     * the library's formatter (wide conventions), cut at 1023 characters.
     * S_OK (also when the mask drops the line); QZE_INIT_FAILED when the
     * log is not enabled; E_POINTER for a null format; the error of
     * reopening the file when a rotation fails (the log is then disabled);
     * QZE_FILE_WRITE when the line cannot be written.
     */
    HRESULT QZ_CDECL Write(LOGFLAGS level, LPCWSTR source, int line, LPCWSTR format, ...);

    /* The log file's path ("" before Init); owned by the log. */
    LPCWSTR GetLogFileName() const;

    /* Disables the log and closes the file. */
    void Shutdown();

private:
    HRESULT open_file();
    void close_file();
    HRESULT rotate();
    void set_names(LPCWSTR file_name);

    BOOL m_enabled;
    HANDLE m_file;
    LOGFLAGS m_mask;
    int m_size_limit;
    WCHAR m_file_name[MAX_PATH];
    WCHAR m_previous_name[MAX_PATH];
    mutable CRITICAL_SECTION m_lock;
    int m_share_mode;
};

#if defined(_WIN32) && !defined(_WIN64)
static_assert(sizeof(CLog) == 1088, "CLog keeps its 32-bit Windows layout");
#endif

#endif /* __cplusplus */

#endif
