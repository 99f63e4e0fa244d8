/*
 * win32_internal.h - the Win32 subset that the library uses internally on
 * POSIX but does not offer to hosts: private heaps, critical sections,
 * interlocked operations, thread ids and ticks, code-page conversion, time
 * conversions and module file names. Hidden in the shared library.
 */
#ifndef QZ_PLATFORM_POSIX_WIN32_INTERNAL_H
#define QZ_PLATFORM_POSIX_WIN32_INTERNAL_H

#include "qz/win32compat.h"

#define QZ_INTERNAL __attribute__((visibility("hidden")))

/* ---- private heaps ---------------------------------------------------------- */

#define HEAP_NO_SERIALIZE 0x00000001u
#define HEAP_GENERATE_EXCEPTIONS 0x00000004u
#define HEAP_ZERO_MEMORY 0x00000008u
#define HEAP_REALLOC_IN_PLACE_ONLY 0x00000010u

/* ---- error mode --------------------------------------------------------------- */

#define SEM_FAILCRITICALERRORS 0x0001u
#define SEM_NOOPENFILEERRORBOX 0x8000u

/* ---- message waits ------------------------------------------------------------- */

#define QS_SENDMESSAGE 0x0040u
#define MWMO_WAITALL 0x0001u
#define MWMO_ALERTABLE 0x0002u
#define MWMO_INPUTAVAILABLE 0x0004u

/* ---- code pages ------------------------------------------------------------------ */

#define CP_ACP 0u
#define CP_OEMCP 1u
#define CP_UTF8 65001u
#define MB_PRECOMPOSED 0x00000001u
#define MB_ERR_INVALID_CHARS 0x00000008u
#define WC_NO_BEST_FIT_CHARS 0x00000400u
#define WC_ERR_INVALID_CHARS 0x00000080u

QZ_EXTERN_C_BEGIN

QZ_INTERNAL HANDLE HeapCreate(DWORD options, SIZE_T initial_size, SIZE_T maximum_size);
QZ_INTERNAL BOOL HeapDestroy(HANDLE heap);
QZ_INTERNAL LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
QZ_INTERNAL LPVOID HeapReAlloc(HANDLE heap, DWORD flags, LPVOID memory, SIZE_T bytes);
QZ_INTERNAL SIZE_T HeapSize(HANDLE heap, DWORD flags, LPCVOID memory);
QZ_INTERNAL BOOL HeapFree(HANDLE heap, DWORD flags, LPVOID memory);
QZ_INTERNAL HANDLE GetProcessHeap(void);

/* Recursive locks, owned by the entering thread. */
QZ_INTERNAL void InitializeCriticalSection(LPCRITICAL_SECTION section);
QZ_INTERNAL void DeleteCriticalSection(LPCRITICAL_SECTION section);
QZ_INTERNAL void EnterCriticalSection(LPCRITICAL_SECTION section);
QZ_INTERNAL BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section);
QZ_INTERNAL void LeaveCriticalSection(LPCRITICAL_SECTION section);

QZ_INTERNAL LONG InterlockedExchange(LONG volatile* target, LONG value);
QZ_INTERNAL LONG InterlockedIncrement(LONG volatile* target);
QZ_INTERNAL LONG InterlockedDecrement(LONG volatile* target);
QZ_INTERNAL LONG InterlockedCompareExchange(LONG volatile* target, LONG value, LONG comparand);
QZ_INTERNAL LONG_PTR InterlockedExchangeLongPtr(LONG_PTR volatile* target, LONG_PTR value);
QZ_INTERNAL PVOID InterlockedExchangePointer(PVOID volatile* target, PVOID value);

QZ_INTERNAL DWORD GetCurrentThreadId(void);
QZ_INTERNAL DWORD GetCurrentProcessId(void);
QZ_INTERNAL DWORD GetTickCount(void);
QZ_INTERNAL ULONGLONG GetTickCount64(void);
QZ_INTERNAL void Sleep(DWORD milliseconds);
/* An alertable sleep returns WAIT_IO_COMPLETION only when woken for a
   queued call; this layer queues none, so it sleeps the full time. */
QZ_INTERNAL DWORD SleepEx(DWORD milliseconds, BOOL alertable);
QZ_INTERNAL DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL alertable);
QZ_INTERNAL DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL wait_all,
                                           DWORD milliseconds, BOOL alertable);
/*
 * Waits for up to MAXIMUM_WAIT_OBJECTS - 1 events (more: WAIT_FAILED with
 * ERROR_INVALID_PARAMETER). Threads here have no message queue and nothing
 * queues calls to them, so the wake mask and MWMO_INPUTAVAILABLE never end
 * the wait, MWMO_ALERTABLE never gives WAIT_IO_COMPLETION, and
 * MWMO_WAITALL waits until every event is signalled at once (the input
 * Windows would require as well cannot arrive, so it is not required).
 * With no events the wait can only time out.
 */
QZ_INTERNAL DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles,
                                              DWORD milliseconds, DWORD wake_mask, DWORD flags);
QZ_INTERNAL UINT SetErrorMode(UINT mode);

/*
 * Code pages: CP_ACP (and 1252) is Windows-1252, with its 0x80-0x9F
 * characters; its five unassigned bytes stand for the C1 controls of the
 * same value, both ways. What it cannot represent becomes the default
 * character ('?' or the caller's first byte) and sets *used_default; there
 * is no best-fit mapping. CP_UTF8 is UTF-8: each malformed sequence becomes
 * one U+FFFD, and a lone surrogate encodes as U+FFFD, unless
 * MB_ERR_INVALID_CHARS / WC_ERR_INVALID_CHARS ask for failure with
 * ERROR_NO_UNICODE_TRANSLATION; a default character is refused
 * (ERROR_INVALID_PARAMETER). A source length of -1 includes the terminating
 * zero; an output size of 0 asks for the length needed; a smaller buffer
 * fails with ERROR_INSUFFICIENT_BUFFER. A null source, a zero or negative
 * length and unknown code pages fail with ERROR_INVALID_PARAMETER, flags
 * the code page does not take with ERROR_INVALID_FLAGS. All failures
 * return 0.
 */
QZ_INTERNAL int MultiByteToWideChar(UINT code_page, DWORD flags, LPCSTR source, int source_length,
                                    LPWSTR target, int target_size);
QZ_INTERNAL int WideCharToMultiByte(UINT code_page, DWORD flags, LPCWSTR source, int source_length,
                                    LPSTR target, int target_size, LPCSTR default_char,
                                    LPBOOL used_default);

/* Time: SYSTEMTIME in UTC or local time, FILETIME in 100 ns since 1601. */
QZ_INTERNAL void GetLocalTime(LPSYSTEMTIME time);
QZ_INTERNAL void GetSystemTime(LPSYSTEMTIME time);
QZ_INTERNAL void GetSystemTimeAsFileTime(LPFILETIME time);
QZ_INTERNAL BOOL SystemTimeToFileTime(const SYSTEMTIME* system_time, LPFILETIME file_time);
QZ_INTERNAL BOOL FileTimeToSystemTime(const FILETIME* file_time, LPSYSTEMTIME system_time);
QZ_INTERNAL BOOL FileTimeToLocalFileTime(const FILETIME* file_time, LPFILETIME local_time);
QZ_INTERNAL BOOL LocalFileTimeToFileTime(const FILETIME* local_time, LPFILETIME file_time);
QZ_INTERNAL BOOL FileTimeToDosDateTime(const FILETIME* file_time, LPWORD dos_date, LPWORD dos_time);
QZ_INTERNAL BOOL DosDateTimeToFileTime(WORD dos_date, WORD dos_time, LPFILETIME file_time);
QZ_INTERNAL LONG CompareFileTime(const FILETIME* a, const FILETIME* b);
/* Only the active time zone (a null zone) is known here; TIME_ZONE_INFORMATION stays opaque. */
typedef struct _TIME_ZONE_INFORMATION TIME_ZONE_INFORMATION;
QZ_INTERNAL BOOL TzSpecificLocalTimeToSystemTime(const TIME_ZONE_INFORMATION* zone,
                                                 const SYSTEMTIME* local_time,
                                                 LPSYSTEMTIME universal_time);

/*
 * Folder listings. FindFirstFileW takes "folder\\pattern" where the pattern
 * may hold * and ? ("*.*" matches every name, with or without a dot, as on
 * Windows); the listing includes "." and "..". No match is
 * ERROR_FILE_NOT_FOUND, a missing folder ERROR_PATH_NOT_FOUND; the end of
 * the listing is ERROR_NO_MORE_FILES. Names that do not fit cFileName are
 * left out. Close the handle with FindClose.
 */
typedef struct _WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14];
} WIN32_FIND_DATAW, *LPWIN32_FIND_DATAW;

QZ_INTERNAL HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
QZ_INTERNAL BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data);
QZ_INTERNAL BOOL FindClose(HANDLE find);

/* Creation (the status-change time here), last access and last write of an open file. */
QZ_INTERNAL BOOL GetFileTime(HANDLE file, LPFILETIME creation, LPFILETIME last_access,
                             LPFILETIME last_write);

/*
 * Space on the file system holding `folder` (null: the current folder):
 * bytes free for this user, total bytes, bytes free in all. Any output may
 * be null.
 */
QZ_INTERNAL BOOL GetDiskFreeSpaceExW(LPCWSTR folder, PULARGE_INTEGER free_to_caller,
                                     PULARGE_INTEGER total, PULARGE_INTEGER total_free);

/* What the library asks of the system description: page size and the
   granularity file views start at (64 KiB, as on Windows). */
typedef struct _SYSTEM_INFO {
    WORD wProcessorArchitecture;
    WORD wReserved;
    DWORD dwPageSize;
    LPVOID lpMinimumApplicationAddress;
    LPVOID lpMaximumApplicationAddress;
    DWORD_PTR dwActiveProcessorMask;
    DWORD dwNumberOfProcessors;
    DWORD dwProcessorType;
    DWORD dwAllocationGranularity;
    WORD wProcessorLevel;
    WORD wProcessorRevision;
} SYSTEM_INFO, *LPSYSTEM_INFO;
QZ_INTERNAL void GetSystemInfo(LPSYSTEM_INFO info);

/*
 * Resources of a module, found in the registry a host fills with
 * QzPosix_AddResource (win32compat.h). Names and types are strings, compared
 * without regard to ASCII case as Windows does. FindResourceW with a null
 * module looks in the host executable's resources; a missing resource is
 * ERROR_RESOURCE_TYPE_NOT_FOUND or ERROR_RESOURCE_NAME_NOT_FOUND.
 * LoadResource returns the block, LockResource its address, SizeofResource
 * its bytes.
 */
typedef struct HRSRC__* HRSRC;
#define ERROR_RESOURCE_DATA_NOT_FOUND 1812
#define ERROR_RESOURCE_TYPE_NOT_FOUND 1813
#define ERROR_RESOURCE_NAME_NOT_FOUND 1814
QZ_INTERNAL HRSRC FindResourceW(HMODULE module, LPCWSTR name, LPCWSTR type);
QZ_INTERNAL HGLOBAL LoadResource(HMODULE module, HRSRC resource);
QZ_INTERNAL LPVOID LockResource(HGLOBAL loaded);
QZ_INTERNAL DWORD SizeofResource(HMODULE module, HRSRC resource);

/*
 * Modules: a null module is the host executable; the library's own module
 * handle is the load address of the shared object (see qz::posix).
 */
QZ_INTERNAL DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
QZ_INTERNAL HMODULE GetModuleHandleW(LPCWSTR name);

QZ_EXTERN_C_END

namespace qz::posix {
/* The handle of the library's own module (the base it was loaded at). */
QZ_INTERNAL HMODULE library_module();
}  // namespace qz::posix

#endif
