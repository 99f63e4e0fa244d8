/*
 * win32compat.h - the Win32 functions a host needs to call the library on
 * POSIX systems.
 *
 * The library's families take Win32 file handles and hand out Win32 global
 * memory. On Windows those come from <windows.h>; on POSIX the library
 * implements the same functions with the documented Win32 semantics for the
 * cases it uses, and this header declares the part a host needs: opening and
 * closing the handles it passes in, freeing the memory it is handed, events
 * and waits, and the thread's last-error value (Win32 error numbers).
 *
 * Paths are UTF-16 and are converted to UTF-8 for the operating system;
 * backslashes separate folders as slashes do, and a path holding a lone
 * surrogate fails with ERROR_INVALID_NAME. A missing file is
 * ERROR_FILE_NOT_FOUND, a missing folder on the way ERROR_PATH_NOT_FOUND.
 * On Windows this header only includes qzdefs.h.
 */
#ifndef QZ_WIN32COMPAT_H
#define QZ_WIN32COMPAT_H

#include "qz/qzdefs.h"

#if !defined(_WIN32)

/* ---- Win32 error numbers (GetLastError) ---------------------------------- */

#define ERROR_SUCCESS 0
#define NO_ERROR 0
#define ERROR_INVALID_FUNCTION 1
#define ERROR_FILE_NOT_FOUND 2
#define ERROR_PATH_NOT_FOUND 3
#define ERROR_TOO_MANY_OPEN_FILES 4
#define ERROR_ACCESS_DENIED 5
#define ERROR_INVALID_HANDLE 6
#define ERROR_NOT_ENOUGH_MEMORY 8
#define ERROR_INVALID_ACCESS 12
#define ERROR_INVALID_DATA 13
#define ERROR_OUTOFMEMORY 14
#define ERROR_NOT_SAME_DEVICE 17
#define ERROR_NO_MORE_FILES 18
#define ERROR_WRITE_PROTECT 19
#define ERROR_SEEK 25
#define ERROR_WRITE_FAULT 29
#define ERROR_READ_FAULT 30
#define ERROR_GEN_FAILURE 31
#define ERROR_SHARING_VIOLATION 32
#define ERROR_LOCK_VIOLATION 33
#define ERROR_HANDLE_EOF 38
#define ERROR_HANDLE_DISK_FULL 39
#define ERROR_NOT_SUPPORTED 50
#define ERROR_FILE_EXISTS 80
#define ERROR_INVALID_PARAMETER 87
#define ERROR_BROKEN_PIPE 109
#define ERROR_OPEN_FAILED 110
#define ERROR_DISK_FULL 112
#define ERROR_CALL_NOT_IMPLEMENTED 120
#define ERROR_INSUFFICIENT_BUFFER 122
#define ERROR_INVALID_NAME 123
#define ERROR_MOD_NOT_FOUND 126
#define ERROR_PROC_NOT_FOUND 127
#define ERROR_NEGATIVE_SEEK 131
#define ERROR_DIR_NOT_EMPTY 145
#define ERROR_DIRECTORY 267
#define ERROR_BUSY 170
#define ERROR_ALREADY_EXISTS 183
#define ERROR_FILENAME_EXCED_RANGE 206
#define ERROR_NOACCESS 998
#define ERROR_FILE_INVALID 1006
#define ERROR_NO_UNICODE_TRANSLATION 1113
#define ERROR_MAPPED_ALIGNMENT 1132
#define ERROR_USER_MAPPED_FILE 1224
#define ERROR_NOT_LOCKED 158
#define ERROR_INVALID_FLAGS 1004
#define ERROR_TIMEOUT 1460

/* ---- files ---------------------------------------------------------------- */

#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define GENERIC_EXECUTE 0x20000000u
#define GENERIC_ALL 0x10000000u
/* Specific rights: FILE_APPEND_DATA without FILE_WRITE_DATA (or a generic
   write right) makes every write land at the end of the file. */
#define FILE_READ_DATA 0x00000001u
#define FILE_WRITE_DATA 0x00000002u
#define FILE_APPEND_DATA 0x00000004u

#define FILE_SHARE_READ 0x00000001u
#define FILE_SHARE_WRITE 0x00000002u
#define FILE_SHARE_DELETE 0x00000004u

#define CREATE_NEW 1
#define CREATE_ALWAYS 2
#define OPEN_EXISTING 3
#define OPEN_ALWAYS 4
#define TRUNCATE_EXISTING 5

#define FILE_ATTRIBUTE_READONLY 0x00000001u
#define FILE_ATTRIBUTE_HIDDEN 0x00000002u
#define FILE_ATTRIBUTE_SYSTEM 0x00000004u
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010u
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020u
#define FILE_ATTRIBUTE_NORMAL 0x00000080u
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100u
#define INVALID_FILE_ATTRIBUTES ((DWORD)-1)

#define FILE_FLAG_WRITE_THROUGH 0x80000000u
#define FILE_FLAG_RANDOM_ACCESS 0x10000000u
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000u
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000u

#define FILE_BEGIN 0
#define FILE_CURRENT 1
#define FILE_END 2
#define INVALID_SET_FILE_POINTER ((DWORD)-1)
#define INVALID_FILE_SIZE ((DWORD)0xFFFFFFFF)

/* ---- file mapping ---------------------------------------------------------- */

#define PAGE_READONLY 0x02u
#define PAGE_READWRITE 0x04u
#define PAGE_WRITECOPY 0x08u
#define FILE_MAP_COPY 0x0001u
#define FILE_MAP_WRITE 0x0002u
#define FILE_MAP_READ 0x0004u
#define FILE_MAP_ALL_ACCESS 0x000F001Fu

/* ---- global memory ---------------------------------------------------------- */

#define GMEM_FIXED 0x0000u
#define GMEM_MOVEABLE 0x0002u
#define GMEM_ZEROINIT 0x0040u
#define GMEM_MODIFY 0x0080u
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)

/* ---- waits ------------------------------------------------------------------- */

#define INFINITE 0xFFFFFFFFu
#define WAIT_OBJECT_0 0x00000000u
#define WAIT_ABANDONED 0x00000080u
#define WAIT_IO_COMPLETION 0x000000C0u
#define WAIT_TIMEOUT 0x00000102u
#define WAIT_FAILED 0xFFFFFFFFu
#define MAXIMUM_WAIT_OBJECTS 64

QZ_EXTERN_C_BEGIN

/* The calling thread's last Win32 error number. */
QZ_API DWORD GetLastError(void);
QZ_API void SetLastError(DWORD error);

/*
 * Opens or creates a file. Access is GENERIC_READ and/or GENERIC_WRITE,
 * or the specific FILE_READ_DATA, FILE_WRITE_DATA and FILE_APPEND_DATA; a
 * handle with FILE_APPEND_DATA but no other write right writes only at the
 * end of the file, each WriteFile whole and at once even against other
 * handles and processes, and cannot cut the file (SetEndOfFile is
 * ERROR_ACCESS_DENIED); share modes are honoured between handles of this process (a conflicting
 * open fails with ERROR_SHARING_VIOLATION); dispositions CREATE_NEW,
 * CREATE_ALWAYS, OPEN_EXISTING, OPEN_ALWAYS and TRUNCATE_EXISTING behave as
 * on Windows, including ERROR_ALREADY_EXISTS as the last error after
 * CREATE_ALWAYS/OPEN_ALWAYS found an existing file (ERROR_SUCCESS
 * otherwise), ERROR_FILE_EXISTS for CREATE_NEW and ERROR_ACCESS_DENIED for
 * a folder. Attribute flags and the scan hints are accepted
 * (FILE_ATTRIBUTE_READONLY makes a new file read-only). Not offered:
 * FILE_FLAG_DELETE_ON_CLOSE (ERROR_INVALID_PARAMETER), overlapped handles,
 * opening folders. Security attributes and the template are ignored.
 * Returns INVALID_HANDLE_VALUE on failure.
 */
QZ_API HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES sa,
                          DWORD disposition, DWORD flags, HANDLE template_file);

/*
 * Reading at or past the end succeeds with a smaller (or zero) count.
 * A handle without the access fails with ERROR_ACCESS_DENIED; overlapped
 * I/O is not offered (ERROR_INVALID_PARAMETER). WriteFile writes all or
 * fails: a full disk is ERROR_DISK_FULL with *written the part on disk.
 */
QZ_API BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD to_read, LPDWORD read,
                     LPOVERLAPPED overlapped);
QZ_API BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD to_write, LPDWORD written,
                      LPOVERLAPPED overlapped);

/*
 * Moves the file pointer. Without the high-word pointer the distance is a
 * signed 32-bit value and the new position must fit 32 bits. With it, the
 * distance is the signed 64-bit pair and the high word of the new position
 * is written back. Returns the low word, or INVALID_SET_FILE_POINTER with
 * the last error set (ERROR_NEGATIVE_SEEK for a position before the start);
 * a successful result that equals INVALID_SET_FILE_POINTER sets NO_ERROR.
 * Positions past the end are allowed.
 */
QZ_API DWORD SetFilePointer(HANDLE file, LONG distance, PLONG distance_high, DWORD method);
QZ_API BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER new_position,
                             DWORD method);
/*
 * Cuts or extends the file at the current position, leaving the position.
 * Fails with ERROR_USER_MAPPED_FILE while a mapping or view of the file
 * exists. GetFileSize returns INVALID_FILE_SIZE on failure and sets NO_ERROR
 * when the low word of a real size is all ones.
 */
QZ_API BOOL SetEndOfFile(HANDLE file);
QZ_API DWORD GetFileSize(HANDLE file, LPDWORD size_high);
QZ_API BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);
QZ_API BOOL FlushFileBuffers(HANDLE file);

/* Closes any handle of the layer: file, mapping, event. A closed or
   unknown handle fails with ERROR_INVALID_HANDLE, here and everywhere. */
QZ_API BOOL CloseHandle(HANDLE handle);

/* FILE_ATTRIBUTE_DIRECTORY, _READONLY (no owner write permission) or _NORMAL;
   INVALID_FILE_ATTRIBUTES on failure. */
QZ_API DWORD GetFileAttributesW(LPCWSTR path);
/* Files only (a folder is ERROR_ACCESS_DENIED). DeleteFileW and MoveFileW
   fail with ERROR_SHARING_VIOLATION while a handle of this process has the
   file open without FILE_SHARE_DELETE. */
QZ_API BOOL DeleteFileW(LPCWSTR path);
/* Renames a file or folder within one file system (another file system is
   ERROR_NOT_SAME_DEVICE: nothing is copied). Fails with
   ERROR_ALREADY_EXISTS when the destination exists. */
QZ_API BOOL MoveFileW(LPCWSTR from, LPCWSTR to);
/* ERROR_ALREADY_EXISTS when the folder exists, ERROR_PATH_NOT_FOUND when
   its parent does not. */
QZ_API BOOL CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES sa);
/* ERROR_DIR_NOT_EMPTY for a folder with entries, ERROR_DIRECTORY for a file. */
QZ_API BOOL RemoveDirectoryW(LPCWSTR path);

/*
 * File mapping. CreateFileMappingW takes a file handle with read access
 * (and write access for PAGE_READWRITE), PAGE_READONLY, PAGE_READWRITE or
 * PAGE_WRITECOPY, and no name (named sections are not offered); it returns
 * null on failure. A size of zero maps the whole file (an empty file fails
 * with ERROR_FILE_INVALID); a read-write mapping larger than the file
 * extends it, a read-only one fails with ERROR_NOT_ENOUGH_MEMORY. The file
 * handle may be closed once the mapping exists.
 *
 * MapViewOfFile takes FILE_MAP_READ, FILE_MAP_WRITE (read-write sections
 * only), FILE_MAP_ALL_ACCESS or FILE_MAP_COPY (a private copy-on-write
 * view). View offsets must be multiples of the 64 KiB allocation
 * granularity (else ERROR_MAPPED_ALIGNMENT); 0 bytes maps to the end of the
 * section, and a view reaching past it fails with ERROR_ACCESS_DENIED.
 * Views stay valid after the mapping handle is closed, until
 * UnmapViewOfFile, which takes the address MapViewOfFile returned (any
 * other fails with ERROR_INVALID_PARAMETER).
 */
QZ_API HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES sa, DWORD protect,
                                 DWORD size_high, DWORD size_low, LPCWSTR name);
QZ_API LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offset_high, DWORD offset_low,
                            SIZE_T bytes);
QZ_API BOOL UnmapViewOfFile(LPCVOID view);

/*
 * Global memory, as the library hands it to callers: GlobalAlloc with
 * GMEM_MOVEABLE returns a handle that GlobalLock turns into the address and
 * GlobalHandle turns back; GMEM_FIXED returns the address itself. Free with
 * GlobalUnlock and GlobalFree(GlobalHandle(address)).
 */
QZ_API HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes);
QZ_API HGLOBAL GlobalReAlloc(HGLOBAL memory, SIZE_T bytes, UINT flags);
QZ_API SIZE_T GlobalSize(HGLOBAL memory);
QZ_API LPVOID GlobalLock(HGLOBAL memory);
QZ_API BOOL GlobalUnlock(HGLOBAL memory);
QZ_API HGLOBAL GlobalHandle(LPCVOID address);
/*
 * GlobalUnlock returns FALSE with NO_ERROR when the lock count reaches zero
 * and FALSE with ERROR_NOT_LOCKED when the block was not locked. GlobalSize
 * is the size asked for. Unknown or freed handles are refused with
 * ERROR_INVALID_HANDLE. GlobalFree returns null on success, the handle
 * itself on failure.
 */
QZ_API HGLOBAL GlobalFree(HGLOBAL memory);

/*
 * Events (manual- or auto-reset) and the waits on them. Events are unnamed:
 * a name gives null with ERROR_NOT_SUPPORTED. A wait for any returns
 * WAIT_OBJECT_0 plus the index of the first signalled event, consuming it
 * if it is auto-reset; a wait for all returns when every event is
 * signalled at once and consumes the auto-reset ones together. Time-outs
 * give WAIT_TIMEOUT; a bad handle, a count of 0 or above
 * MAXIMUM_WAIT_OBJECTS, or one event named twice in a wait for all give
 * WAIT_FAILED with the last error set.
 */
QZ_API HANDLE CreateEventW(LPSECURITY_ATTRIBUTES sa, BOOL manual_reset, BOOL initial_state,
                           LPCWSTR name);
QZ_API BOOL SetEvent(HANDLE event);
QZ_API BOOL ResetEvent(HANDLE event);
QZ_API DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
QZ_API DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                    DWORD milliseconds);

/*
 * Module resources. On Windows a module carries its resources in its
 * image; here a host registers them: `data` (size bytes, kept by the host
 * and left unchanged until it is removed) becomes the resource `name` of
 * `type` (such as "ZIP") in `module` (null: the host executable), which
 * FindResource and the library's resource readers then find. A second
 * registration of the same module, type and name replaces the first.
 * QzPosix_RemoveResource forgets it (FALSE with
 * ERROR_RESOURCE_NAME_NOT_FOUND when there is none). Null or empty names
 * and types, or null data with a size, fail with ERROR_INVALID_PARAMETER.
 */
QZ_API BOOL QzPosix_AddResource(HMODULE module, LPCWSTR type, LPCWSTR name, LPCVOID data,
                                DWORD size);
QZ_API BOOL QzPosix_RemoveResource(HMODULE module, LPCWSTR type, LPCWSTR name);

QZ_EXTERN_C_END

#endif /* !_WIN32 */

#endif /* QZ_WIN32COMPAT_H */
