/*
 * qzxml.h - CQzXML_Document, a small read-only XML reader, and the entity
 * helpers QzXML_*.
 *
 * A document opens a text held in a file (mapped read-only) or in the
 * caller's memory, parses all of it once into a tree, and answers queries on
 * that tree. Text beginning with the bytes FF FE is read as UTF-16
 * little-endian (the mark is skipped); any other text is read one byte per
 * character through the ANSI code page (a UTF-8 signature is not
 * recognised). All text handed out is UTF-16.
 *
 * The reader is forgiving rather than validating and its rules are part of
 * the contract, because documents written for it rely on them:
 *  - white space between tags never becomes content, and character data
 *    cannot begin with white space or with any of  ! " ' ( ) * + , / : ; = > ? [ ]
 *    (such characters are dropped where the data would begin);
 *  - attribute values take double quotes only; a single white-space
 *    character after a value is skipped, any further ones become the start
 *    of the next attribute's name;
 *  - only `<name/>` (no attributes) sets the element's empty flag;
 *    `<name a="1"/>` closes the element with the flag left at 0;
 *  - texts of CDATA sections, processing instructions and comments keep
 *    their markup (see XML_CONTENT_TYPE);
 *  - parsing runs on after a failure to the end of the text, and ParseFile
 *    returns the result of the last sub-parse that ran;
 *  - only &amp; &lt; and &gt; are known entities; numeric references and
 *    &quot; / &apos; are left as they are.
 *
 * Bytes 0x80-0xFF of 8-bit text are characters of the ANSI code page and
 * count as name characters: they may begin character data and appear in
 * names, as non-ASCII UTF-16 units do.
 */
#ifndef QZ_QZXML_H
#define QZ_QZXML_H

#include "qzdefs.h"
#include "qzlist.h"
#include "qzresult.h"

/*
 * Kinds of content. The texts of the non-element kinds are kept as they
 * stand in the source:
 *  - XML_CONTENT_CHARDATA: from its first character to the next '<'
 *    (trailing white space kept, entities still escaped);
 *  - XML_CONTENT_CDATA: from the '[' after "<!" to the first '>', e.g.
 *    "[CDATA[x]]" for <![CDATA[x]]>; a '>' inside the section ends it;
 *  - XML_CONTENT_PI: from the '?' to the next '<', e.g. "?t d?>tail" for
 *    <?t d?>tail< (only inside an element; at the top level a <?...?> is
 *    read as the XML declaration and makes nothing);
 *  - XML_CONTENT_COMMENT: from the first '-' to the closing "--", e.g.
 *    "-- a > b --" for <!-- a > b -->.
 * Value 2 is never produced.
 */
typedef enum tagXML_CONTENT_TYPE {
    XML_CONTENT_ELEMENT = 0,
    XML_CONTENT_CHARDATA = 1,
    XML_CONTENT_CDATA = 3,
    XML_CONTENT_PI = 4,
    XML_CONTENT_COMMENT = 5
} XML_CONTENT_TYPE;

struct tagQZXML_CONTENT;

/*
 * An element, embedded in the content record that holds it. Its lists are
 * heap-item lists: each item is a pointer to a record the list owns
 * (QZXML_ATTRIBUTE, QZXML_CONTENT), in document order. Read them with
 * QZLIST_COUNT and QZLIST_ITEMPTR.
 */
typedef struct tagQZXML_ELEMENT {
    struct tagQZXML_CONTENT* owner; /* the content record embedding this element */
    DWORD empty;                    /* 1 for <name/>, else 0 */
    LPWSTR name;
    tQZLIST* attributes; /* of QZXML_ATTRIBUTE */
    tQZLIST* contents;   /* of QZXML_CONTENT */
} QZXML_ELEMENT;

typedef struct tagQZXML_CONTENT {
    XML_CONTENT_TYPE type;
    QZXML_ELEMENT* parent; /* null for the root */
    union {
        QZXML_ELEMENT element; /* XML_CONTENT_ELEMENT */
        LPWSTR text;           /* every other type */
    } u;
} QZXML_CONTENT;

typedef struct tagQZXML_ATTRIBUTE {
    QZXML_ELEMENT* owner;
    LPWSTR name; /* everything before '=' (may hold white space, see above) */
    LPWSTR value;
} QZXML_ATTRIBUTE;

#if defined(_WIN32) && !defined(_WIN64)
#ifdef __cplusplus
static_assert(sizeof(QZXML_ELEMENT) == 20, "QZXML_ELEMENT keeps its 32-bit layout");
static_assert(sizeof(QZXML_CONTENT) == 28, "QZXML_CONTENT keeps its 32-bit layout");
static_assert(sizeof(QZXML_ATTRIBUTE) == 12, "QZXML_ATTRIBUTE keeps its 32-bit layout");
#endif
#endif

/* Behind the handle of FindContentFirst. */
typedef struct tagQZXML_FIND {
    QZXML_ELEMENT* element; /* null: the document level */
    LONG index;
} QZXML_FIND;

QZ_EXTERN_C_BEGIN

/*
 * Writes `source` to `destination` with '&', '<' and '>' replaced by
 * "&amp;", "&lt;" and "&gt;"; an '&' that already begins "&amp;" is copied
 * as it is. `capacity` (characters) bounds only the first entity written,
 * which is cut to what is left of it; later entities are not written at all
 * though the output still moves past their length, and plain characters are
 * never checked against it. Pass a destination of 5 * length + 1 characters
 * and at most one entity where the result matters. The destination is
 * always zero-terminated. S_OK; E_POINTER for a null argument.
 */
QZ_API HRESULT QZ_STDCALL QzXML_AddEscapes(LPWSTR destination, DWORD capacity, LPCWSTR source);

/* Replaces the three entities by their characters in place; S_OK (null: E_POINTER). */
QZ_API HRESULT QZ_STDCALL QzXML_RemoveEscapes(LPWSTR text);

/*
 * TRUE when `text` holds '<' or '>', or an '&' that does not begin "&amp;"
 * (so "&lt;" counts as needing escapes). Null: FALSE.
 */
QZ_API BOOL QZ_STDCALL QzXML_DoesStringNeedEscapes(LPCWSTR text);

/* TRUE when some '&' begins "&amp;", "&lt;" or "&gt;". Null: FALSE. */
QZ_API BOOL QZ_STDCALL QzXML_DoesStringHaveEscapes(LPCWSTR text);

QZ_EXTERN_C_END

#ifdef __cplusplus

/* The character reader behind a document (internal). */
class QzXMLEncoding;

/*
 * Calling order: construct, OpenFile or OpenMemory, ParseFile, queries,
 * CloseFile or CloseMemory, destroy. One object reads one source in its
 * life. The document owns the whole tree; every string in it is its own
 * zeroed, locked, moveable global-memory block. Pointers the queries hand
 * out stay valid until the document is closed. One thread at a time.
 */
class QZ_API CQzXML_Document {
public:
    /* Closed, both handles INVALID_HANDLE_VALUE. */
    CQzXML_Document();
    /* CloseMemory, then unmaps the view and closes the file's handles. */
    ~CQzXML_Document();

    /*
     * Maps the file read-only and selects the reader. S_OK; QZE_FILE_EXISTS
     * when the file does not exist (sic: that code, on purpose);
     * QZE_FILE_OPEN when it cannot be opened or mapped (also a null path);
     * QZE_CORRUPT_OR_UNKNOWN when it is empty; E_OUTOFMEMORY.
     * The path is kept, cut at MAX_PATH - 1 characters.
     */
    HRESULT QZ_STDCALL OpenFile(LPCWSTR path);

    /*
     * Reads `bytes` bytes at `data`, which are not copied: the caller keeps
     * them alive and unchanged until the document is closed. S_OK;
     * E_OUTOFMEMORY. A null or empty source parses to nothing.
     */
    HRESULT QZ_STDCALL OpenMemory(LPCVOID data, ULONGLONG bytes);

    /*
     * Parses the whole source into the tree. Runs to the end even after a
     * failure and returns the result of the last sub-parse (S_OK when none
     * ran): E_FAIL for a malformed start tag or attribute, or an end tag
     * that does not match the open element; E_OUTOFMEMORY. A partly
     * built tree stays until the document is closed. E_UNEXPECTED when the
     * document is not open.
     */
    HRESULT QZ_STDCALL ParseFile();

    /* Frees the find handles, the tree and the reader. Safe to repeat. */
    void QZ_STDCALL CloseMemory();
    /* As CloseMemory; the file's view and handles stay until destruction. */
    void QZ_STDCALL CloseFile();

    /*
     * Starts iterating the contents of `element` (null: the document level,
     * whose one content is the root) and sets *content to the first one.
     * Returns the find handle, or INVALID_HANDLE_VALUE (with *content null)
     * when there is no content or memory ran out. Close it with
     * FindContentClose.
     */
    HANDLE QZ_STDCALL FindContentFirst(QZXML_ELEMENT* element, QZXML_CONTENT** content);
    /* The next content: S_OK; QZE_NOT_FOUND past the last; E_HANDLE for an unknown handle. */
    HRESULT QZ_STDCALL FindContentNext(HANDLE find, QZXML_CONTENT** content);
    /* S_OK; E_HANDLE for an unknown handle. */
    HRESULT QZ_STDCALL FindContentClose(HANDLE find);

    /*
     * Finds the first child element of the element in `content` (null: the
     * document level) named `name` (case-sensitive). Only the leading run
     * of element contents is searched: when a non-element content is
     * reached first the result is S_OK with *child null. QZE_NOT_FOUND
     * when there are no contents or the first is not an element, or the
     * name is not in the run; E_POINTER for a null `name` or `child`.
     */
    HRESULT QZ_STDCALL FindChild(QZXML_CONTENT* content, LPCWSTR name, QZXML_CONTENT** child);

    /*
     * The first character-data content of `element` in *content (null when
     * none). QZE_NOT_FOUND when there is none or the element is an empty
     * tag; E_INVALIDARG for a null argument.
     */
    HRESULT QZ_STDCALL GetCharDataContent(QZXML_ELEMENT* element, QZXML_CONTENT** content);
    /* Length in characters, terminator included, of that character data (still escaped). */
    HRESULT QZ_STDCALL GetContentStringReqLen(QZXML_ELEMENT* element, DWORD* length);
    /*
     * Copies that character data, cut to `capacity` characters with the
     * terminator, into `buffer` and removes its escapes. The buffer is
     * emptied first when capacity > 0. E_INVALIDARG for a null argument;
     * QZE_NOT_FOUND.
     */
    HRESULT QZ_STDCALL GetContentString(QZXML_ELEMENT* element, LPWSTR buffer, int capacity);

    /* The first attribute named `name` (exact). QZE_NOT_FOUND; E_INVALIDARG for a null argument. */
    HRESULT QZ_STDCALL GetAttribute(QZXML_ELEMENT* element, LPCWSTR name, QZXML_ATTRIBUTE** attribute);
    /* Its value, copied and unescaped as GetContentString does. */
    HRESULT QZ_STDCALL GetAttributeString(QZXML_ELEMENT* element, LPCWSTR name, LPWSTR buffer,
                                          int capacity);
    /* FindChild, then GetContentString on the child; QZE_NOT_FOUND when there is no such child. */
    HRESULT QZ_STDCALL GetChildContentString(QZXML_CONTENT* content, LPCWSTR name, LPWSTR buffer,
                                             int capacity);

private:
    HRESULT QZ_STDCALL AllocAttribute(QZXML_ATTRIBUTE** attribute);
    HRESULT QZ_STDCALL AllocContent(XML_CONTENT_TYPE type, QZXML_CONTENT** content);
    void QZ_STDCALL FreeAttribute(QZXML_ATTRIBUTE* attribute);
    void QZ_STDCALL FreeContent(QZXML_CONTENT* content);
    void QZ_STDCALL FreeElement(QZXML_ELEMENT* element);
    void QZ_STDCALL FreeString(LPWSTR text);
    HRESULT QZ_STDCALL GetEncodingInterface();

    HRESULT QZ_STDCALL ParseLT();
    HRESULT QZ_STDCALL ParseStartTag();
    HRESULT QZ_STDCALL ParseAttributes();
    HRESULT QZ_STDCALL ParseEndTag();
    HRESULT QZ_STDCALL ParseMarkupDeclaration();
    HRESULT QZ_STDCALL ParseComment();
    HRESULT QZ_STDCALL ParseCDATA();
    HRESULT QZ_STDCALL ParsePI();
    HRESULT QZ_STDCALL ParseXMLDeclaration();
    HRESULT QZ_STDCALL ParseCharData();

    const BYTE* m_source;
    ULONGLONG m_source_bytes;
    WCHAR m_path[MAX_PATH];
    HANDLE m_file;
    HANDLE m_mapping;
    LPVOID m_view;
    QzXMLEncoding* m_reader;
    QZXML_ELEMENT* m_current;
    QZXML_CONTENT* m_root;
    tQZLIST* m_finds;
};

#endif /* __cplusplus */

#endif
