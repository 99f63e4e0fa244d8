/*
 * qzlang.h - language instances and localised texts.
 *
 * Every text the library shows is a localised text record: a 16-bit 0xFEFF
 * marker, a 16-bit language count, then that many pointers to UTF-16
 * strings, English first. A language instance (HQZLANG) resolves records
 * into the user's language, falling back to English, and holds the string
 * table that resource-id lookups use. "$(AppName)" in a text stands for the
 * host application's name and is replaced when a text is copied out.
 */
#ifndef QZ_QZLANG_H
#define QZ_QZLANG_H

#include "qz/qzdefs.h"

#define QZLANG_TEXT_MARKER 0xFEFF

/*
 * Language slots of a text record, in record order. A record may stop
 * after any slot; a missing or empty text falls back to English.
 */
#define QZLANG_ENGLISH 0
#define QZLANG_GERMAN 1
#define QZLANG_FRENCH 2
#define QZLANG_SPANISH 3
#define QZLANG_ITALIAN 4
#define QZLANG_JAPANESE 5
#define QZLANG_COUNT 6

typedef struct QZLANG__* HQZLANG;

/* The fixed start of a localised text record; `text` has `count` entries. */
typedef struct _qzlocaltext {
    WORD marker; /* QZLANG_TEXT_MARKER */
    WORD count;  /* number of languages in `text` */
    LPCWSTR text[1];
} QZLOCALTEXT;

#ifdef __cplusplus
/* A statically defined record with N languages. */
template <int N>
struct QzLocalText {
    WORD marker;
    WORD count;
    LPCWSTR text[N];
    const QZLOCALTEXT* record() const { return reinterpret_cast<const QZLOCALTEXT*>(this); }
};
#endif

/* One entry of a language instance's string table (resource-id texts). */
typedef struct _qzlangstring {
    UINT id;
    const QZLOCALTEXT* text;
} QZLANGSTRING;

/* The user's international settings that the kernel caches. */
typedef struct _qzinternationals {
    DWORD language;    /* language slot used for texts (QZLANG_ENGLISH, ...) */
    WCHAR decimal[4];  /* decimal separator */
    WCHAR thousand[4]; /* digit-group separator */
    WCHAR date_sep[4]; /* date separator */
    WCHAR time_sep[4]; /* time separator */
    DWORD metric;      /* 1 for metric units */
} QZINTERNATIONALS;

QZ_EXTERN_C_BEGIN

/*
 * Opens a language instance on a module, in the user's language (from the
 * user's locale; English when it is none of the QZLANG_ slots). E_POINTER
 * for a null out pointer, E_OUTOFMEMORY. Close it with QzLang_Close.
 */
QZ_API HRESULT QZ_STDCALL QzLang_Open(HMODULE module, HQZLANG* lang);
/* Closes an instance; null is allowed and gives S_OK; E_HANDLE for a dead one. */
QZ_API HRESULT QZ_STDCALL QzLang_Close(HQZLANG lang);
/*
 * Chooses the language slot an instance resolves texts in (null: the
 * kernel's instance). E_INVALIDARG for a slot of QZLANG_COUNT or more,
 * E_HANDLE when there is no such instance.
 */
QZ_API HRESULT QZ_STDCALL QzLang_SetLanguage(HQZLANG lang, DWORD language);
/*
 * Sets the name that "$(AppName)" stands for (copied, at most MAX_PATH - 1
 * characters). Null or empty restores the default: the file name of the
 * host executable without its extension.
 */
QZ_API HRESULT QZ_STDCALL QzLang_SetAppName(LPCWSTR name);
/*
 * Copies the international settings of an instance (null: the kernel's
 * cached ones, which this call refreshes) into *out when out is not null.
 */
QZ_API HRESULT QZ_STDCALL QzLang_GetInternationals(HQZLANG lang, QZINTERNATIONALS* out);
/*
 * Registers `count` string-table entries with an instance (null: the
 * kernel's), kept by pointer: the table must outlive the instance. Later
 * registrations are searched first. E_INVALIDARG for a negative count or a
 * null table with a positive count, E_HANDLE without an instance.
 */
QZ_API HRESULT QZ_STDCALL QzLang_AddStrings(HQZLANG lang, const QZLANGSTRING* table, int count);

/*
 * The text of a record in the instance's language (English when it has
 * none, null instance: the kernel's), as stored: macros not expanded.
 * Null for a null record or one without the 0xFEFF marker.
 */
QZ_API LPCWSTR QZ_STDCALL QzGetString(HQZLANG lang, const QZLOCALTEXT* record);
/*
 * Copies the text of string-table entry `id` into buffer with "$(AppName)"
 * replaced, cut to capacity-1 characters and always terminated. Returns the
 * characters written; 0 (and an empty buffer) when the id is unknown, and 0
 * for a null buffer or a capacity below 1. Null instance: the kernel's.
 */
QZ_API int QZ_STDCALL QzLoadString(HQZLANG lang, UINT id, LPWSTR buffer, int capacity);
/*
 * Copies `text` into buffer with "$(AppName)" replaced by the host
 * application's name, cut to capacity-1 characters and terminated; returns
 * the characters written. With a null buffer or a capacity below 1 nothing
 * is written and the length of the whole expansion is returned. Null text
 * reads as empty.
 */
QZ_API int QZ_STDCALL QzLang_ExpandText(LPCWSTR text, LPWSTR buffer, int capacity);

QZ_EXTERN_C_END

#endif
