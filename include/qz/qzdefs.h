/*
 * qzdefs.h - platform types and export macros of the qzkernel interface.
 *
 * On Windows the scalar types, records and handles come from <windows.h>.
 * Everywhere else this header defines the same names with the widths they
 * have on 32-bit Windows, so that records read from files and handed across
 * the interface have one layout on every build:
 *
 *   BYTE u8, WORD u16, DWORD/UINT/ULONG u32, LONG/BOOL/HRESULT i32,
 *   LONGLONG i64, LONG_PTR/DWORD_PTR/UINT_PTR pointer-sized,
 *   HANDLE/HMODULE/HWND/HGLOBAL opaque pointers, WCHAR a UTF-16 unit.
 *
 * Never write `long` for a 32-bit quantity: on 64-bit Linux it is 64 bits.
 * 64-bit arguments are LONGLONG/ULONGLONG (the `long long` types), which the
 * export generator tells apart from the pointer-sized `long` types.
 */
#ifndef QZ_QZDEFS_H
#define QZ_QZDEFS_H

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <mmreg.h>
#else
#include <stddef.h>
#include <stdint.h>
#endif

/* ---- export and calling-convention macros -------------------------------- */

#if defined(_WIN32)
#if defined(QZ_STATIC_BUILD)
#define QZ_API
#elif defined(QZ_BUILDING_LIBRARY)
#define QZ_API __declspec(dllexport)
#else
#define QZ_API __declspec(dllimport)
#endif
#if defined(_M_IX86) || defined(__i386__)
#define QZ_STDCALL __stdcall
#define QZ_CDECL __cdecl
#else
#define QZ_STDCALL
#define QZ_CDECL
#endif
#else
#define QZ_API __attribute__((visibility("default")))
#define QZ_STDCALL
#define QZ_CDECL
#endif

#ifdef __cplusplus
#define QZ_EXTERN_C extern "C"
#define QZ_EXTERN_C_BEGIN extern "C" {
#define QZ_EXTERN_C_END }
#else
#define QZ_EXTERN_C extern
#define QZ_EXTERN_C_BEGIN
#define QZ_EXTERN_C_END
#endif

/* ---- wide text ------------------------------------------------------------ */

#if defined(_WIN32)
#define QZTEXT_(s) L##s
#else
#define QZTEXT_(s) u##s
#endif
/* A UTF-16 literal of the WCHAR type: QZTEXT("RIFF"). */
#define QZTEXT(s) QZTEXT_(s)

/* ---- Win32 scalar types on POSIX ----------------------------------------- */

#if !defined(_WIN32)

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef uint32_t UINT;
typedef uint32_t ULONG;
typedef int32_t LONG;
typedef int32_t INT;
typedef int32_t BOOL;
typedef int32_t HRESULT;
typedef int16_t SHORT;
typedef uint16_t USHORT;
typedef char CHAR;
typedef unsigned char UCHAR;
typedef long long LONGLONG;
typedef unsigned long long ULONGLONG;
typedef unsigned long long DWORD64;
typedef float FLOAT;
typedef double DOUBLE;

/* Pointer-sized words: 32 bits on 32-bit Windows, 64 bits on 64-bit POSIX. */
typedef long LONG_PTR;
typedef unsigned long ULONG_PTR;
typedef unsigned long DWORD_PTR;
typedef unsigned long UINT_PTR;
typedef long INT_PTR;
typedef unsigned long SIZE_T;
typedef long SSIZE_T;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;

#ifdef __cplusplus
typedef char16_t WCHAR;
#else
typedef uint16_t WCHAR;
#endif

typedef void VOID;
typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef BYTE* LPBYTE;
typedef BYTE* PBYTE;
typedef WORD* LPWORD;
typedef DWORD* LPDWORD;
typedef DWORD* PDWORD;
typedef LONG* PLONG;
typedef LONG* LPLONG;
typedef BOOL* LPBOOL;
typedef CHAR* LPSTR;
typedef const CHAR* LPCSTR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* PCWSTR;

/* Handles are opaque pointers; the platform layer tags what they point to. */
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef HANDLE* LPHANDLE;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef struct HWND__* HWND;
typedef HANDLE HGLOBAL;
typedef HANDLE HLOCAL;
typedef struct HKEY__* HKEY;
typedef struct HDC__* HDC;
typedef struct HICON__* HICON;
typedef HICON HCURSOR;

#define TRUE 1
#define FALSE 0
#define MAX_PATH 260

#define INVALID_HANDLE_VALUE ((HANDLE)(LONG_PTR)-1)

typedef union _LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union _ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    } u;
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

typedef struct _GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
} GUID;
typedef GUID IID;
typedef GUID CLSID;
#ifdef __cplusplus
#define REFGUID const GUID&
#define REFIID const IID&
/* GUIDs compare field by field, as the Windows headers let C++ compare them. */
inline bool operator==(REFGUID a, REFGUID b) {
    for (int i = 0; i < 8; ++i)
        if (a.Data4[i] != b.Data4[i]) return false;
    return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3;
}
inline bool operator!=(REFGUID a, REFGUID b) { return !(a == b); }
#else
#define REFGUID const GUID*
#define REFIID const IID*
#endif

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

/* Overlapped I/O is not offered; the pointer arguments must be null. */
typedef struct _OVERLAPPED OVERLAPPED, *LPOVERLAPPED;

/*
 * A recursive lock. The storage is opaque here; the platform layer keeps a
 * POSIX recursive mutex in it.
 */
typedef struct _RTL_CRITICAL_SECTION {
    union {
        unsigned char opaque[64];
        long long align_ll;
        void* align_ptr;
    } u;
} CRITICAL_SECTION, *LPCRITICAL_SECTION, *PCRITICAL_SECTION;

/* ---- wave format records (packed as in <mmreg.h>) ------------------------ */

#pragma pack(push, 1)
typedef struct tWAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
} WAVEFORMATEX, *PWAVEFORMATEX, *LPWAVEFORMATEX;
typedef const WAVEFORMATEX* LPCWAVEFORMATEX;

typedef struct {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
} WAVEFORMATEXTENSIBLE, *PWAVEFORMATEXTENSIBLE;
#pragma pack(pop)

#define WAVE_FORMAT_PCM 0x0001
#define WAVE_FORMAT_IEEE_FLOAT 0x0003
#define WAVE_FORMAT_EXTENSIBLE 0xFFFE

#endif /* !_WIN32 */

/* ---- result-code helpers (also from <winerror.h> on Windows) ------------- */

#ifndef SUCCEEDED
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#endif
#ifndef FAILED
#define FAILED(hr) (((HRESULT)(hr)) < 0)
#endif

#ifdef __cplusplus
static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(DWORD) == 4, "Win32 widths");
static_assert(sizeof(LONG) == 4 && sizeof(BOOL) == 4 && sizeof(HRESULT) == 4, "Win32 widths");
static_assert(sizeof(LONGLONG) == 8 && sizeof(WCHAR) == 2, "Win32 widths");
static_assert(sizeof(LONG_PTR) == sizeof(void*) && sizeof(DWORD_PTR) == sizeof(void*),
              "pointer-sized words");
static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX is 18 packed bytes");
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40, "WAVEFORMATEXTENSIBLE is 40 bytes");
static_assert(sizeof(GUID) == 16, "GUID is 16 bytes");
#endif

#endif /* QZ_QZDEFS_H */
