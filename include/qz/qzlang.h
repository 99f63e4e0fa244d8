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

#include "qzdefs.h"

#define QZLANG_TEXT_MARKER 0xFEFF

/* Language slots of a text record, in record order. */
#define QZLANG_ENGLISH 0

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
    DWORD language;      /* language slot used for texts (QZLANG_ENGLISH, ...) */
    WCHAR decimal[4];    /* decimal separator */
    WCHAR thousand[4];   /* digit-group separator */
    WCHAR date_sep[4];   /* date separator */
    WCHAR time_sep[4];   /* time separator */
    DWORD metric;        /* 1 for metric units */
} QZINTERNATIONALS;

QZ_EXTERN_C_BEGIN

/* Opens a language instance on a module. E_POINTER for a null out pointer. */
QZ_API HRESULT QZ_STDCALL QzLang_Open(HMODULE module, HQZLANG* lang);
/* Closes an instance; null is allowed and gives S_OK. */
QZ_API HRESULT QZ_STDCALL QzLang_Close(HQZLANG lang);
/*
 * Copies the international settings of an instance (null: the kernel's
 * cached ones, which this call refreshes) into *out when out is not null.
 */
QZ_API HRESULT QZ_STDCALL QzLang_GetInternationals(HQZLANG lang, QZINTERNATIONALS* out);
/* Registers `count` string-table entries with an instance (kept by pointer). */
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
 * characters written; 0 (and an empty buffer) when the id is unknown.
 */
QZ_API int QZ_STDCALL QzLoadString(HQZLANG lang, UINT id, LPWSTR buffer, int capacity);
/*
 * Copies `text` into buffer with "$(AppName)" replaced by the host
 * application's name, cut to capacity-1 characters; returns the length.
 */
QZ_API int QZ_STDCALL QzLang_ExpandText(LPCWSTR text, LPWSTR buffer, int capacity);

QZ_EXTERN_C_END

#endif
