/*
 * xml_encoding.h - the character readers behind CQzXML_Document.
 *
 * A reader walks the source one character at a time and answers the class
 * of the character at its position; the parser decides everything from
 * those classes and reads runs of text with read_until. Readers are
 * reference-counted objects in zeroed, locked, moveable global memory, made
 * by qz::xml::create_reader and released with Release.
 *
 * The virtual slots keep this order: QueryInterface, AddRef, Release,
 * Advance, CharClass, Match, ReadUntil, AtEnd.
 */
#ifndef QZ_DOCUMENTS_XML_ENCODING_H
#define QZ_DOCUMENTS_XML_ENCODING_H

#include <cstddef>

#include "qz/qzxml.h"
#include "platform/win32api.h"

namespace qz::xml {

/* Character classes. */
enum CharClass : int {
    kClassControl = 0,
    kClassSpace = 1,
    kClassBang = 4,
    kClassQuote = 5,
    kClassHash = 6,
    kClassPunct = 7,
    kClassPercent = 8,
    kClassAmp = 9,
    kClassApos = 10,
    kClassLParen = 11,
    kClassRParen = 12,
    kClassStar = 13,
    kClassPlus = 14,
    kClassComma = 15,
    kClassDash = 16,
    kClassSlash = 17,
    kClassDigit = 18,
    kClassColon = 19,
    kClassSemicolon = 20,
    kClassLT = 21,
    kClassEquals = 22,
    kClassGT = 23,
    kClassQuestion = 24,
    kClassName = 26,
    kClassLBracket = 27,
    kClassRBracket = 28,
    kClassEnd = 29,
};

/* The class of each code unit 0-127. */
extern const unsigned char kAsciiClass[128];

}  // namespace qz::xml

class QzXMLEncoding {
public:
    /* Always E_NOTIMPL: readers hand out no other interfaces. */
    virtual HRESULT QZ_STDCALL QueryInterface(const GUID& iid, void** object);
    virtual ULONG QZ_STDCALL AddRef();
    /* Decrements atomically; at zero the reader frees itself. */
    virtual ULONG QZ_STDCALL Release();
    /* One character on (1 byte or 2), unless at the end. */
    virtual void QZ_STDCALL Advance() = 0;
    /* The class of the character at the position; kClassEnd at the end. */
    virtual int QZ_STDCALL CharClass() = 0;
    /* When the text at the position equals `text`, moves past it and answers TRUE. */
    virtual BOOL QZ_STDCALL Match(LPCWSTR text, BOOL ignore_case) = 0;
    /*
     * Counts the characters from the position up to the first one found in
     * the zero-terminated set `stops`, or to the end. With `out`, copies
     * them widened and zero-terminated (out holds count + 1 characters)
     * and moves past them.
     */
    virtual SIZE_T QZ_STDCALL ReadUntil(LPCWSTR stops, LPWSTR out) = 0;
    virtual BOOL QZ_STDCALL AtEnd();

    /* The position as a byte offset from the start (for tests and tools). */
    SIZE_T offset() const { return SIZE_T(m_position - m_start); }

protected:
    QzXMLEncoding(const BYTE* start, SIZE_T length);
    virtual ~QzXMLEncoding() = default;

    volatile LONG m_refs;
    const BYTE* m_start;
    ULONGLONG m_length;
    const BYTE* m_position;
    const BYTE* m_end; /* where reading stops: start + length, whole characters only */
};

/* The family of readers that differ only in code-unit width. */
class QzXMLEncodingUtf : public QzXMLEncoding {
protected:
    using QzXMLEncoding::QzXMLEncoding;
};

/* One byte per character, text of the ANSI code page. */
class QzXMLEncodingUtf8 final : public QzXMLEncodingUtf {
public:
    QzXMLEncodingUtf8(const BYTE* start, SIZE_T length) : QzXMLEncodingUtf(start, length) {}
    void QZ_STDCALL Advance() override;
    int QZ_STDCALL CharClass() override;
    BOOL QZ_STDCALL Match(LPCWSTR text, BOOL ignore_case) override;
    SIZE_T QZ_STDCALL ReadUntil(LPCWSTR stops, LPWSTR out) override;
};

/* UTF-16 little-endian code units; every unit above 127 is a name character. */
class QzXMLEncodingUtf16 final : public QzXMLEncodingUtf {
public:
    QzXMLEncodingUtf16(const BYTE* start, SIZE_T length);
    void QZ_STDCALL Advance() override;
    int QZ_STDCALL CharClass() override;
    BOOL QZ_STDCALL Match(LPCWSTR text, BOOL ignore_case) override;
    SIZE_T QZ_STDCALL ReadUntil(LPCWSTR stops, LPWSTR out) override;
};

namespace qz::xml {

/*
 * Makes the reader for `length` bytes at `start`: the UTF-16 one past the
 * mark when the text begins FF FE, else the 8-bit one. The reference is the
 * caller's (count 1). E_OUTOFMEMORY.
 */
HRESULT create_reader(const BYTE* start, ULONGLONG length, QzXMLEncoding** reader);

}  // namespace qz::xml

#endif
