// CQzXML_Document: the parser. One pass over the source, driven by the
// class of the character at the reader's position; the open element is
// m_current, so nesting depth costs no stack.
#include <new>

#include "documents/xml_encoding.h"
#include "documents/xml_internal.h"

using namespace qz::xml;

namespace {

const WCHAR kStopsName[] = {' ', '/', '>', 0};
const WCHAR kStopsEquals[] = {'=', 0};
const WCHAR kStopsQuote[] = {'"', 0};
const WCHAR kStopsLT[] = {'<', 0};
const WCHAR kStopsGT[] = {'>', 0};
const WCHAR kDeclarationEnd[] = {'?', '>', 0};

// Passes over the run up to `stops` without keeping it.
void skip_run(QzXMLEncoding* reader, LPCWSTR stops) {
    for (SIZE_T n = reader->ReadUntil(stops, nullptr); n; --n) reader->Advance();
}

// Reads the run up to `stops` into a new string block. Without memory the
// run is passed over all the same: the parse must move on, or a lasting
// shortage would bring it back to the same place for ever.
HRESULT read_string(QzXMLEncoding* reader, LPCWSTR stops, LPWSTR* text) {
    const SIZE_T n = reader->ReadUntil(stops, nullptr);
    *text = alloc_string(n);
    if (!*text) {
        skip_run(reader, stops);
        return E_OUTOFMEMORY;
    }
    reader->ReadUntil(stops, *text);
    return S_OK;
}

}  // namespace

HRESULT QZ_STDCALL CQzXML_Document::ParseFile() {
    if (!m_reader) return E_UNEXPECTED;
    HRESULT hr = S_OK;
    for (;;) {
        switch (m_reader->CharClass()) {
        case kClassHash:
        case kClassPunct:
        case kClassPercent:
        case kClassAmp:
        case kClassDash:
        case kClassDigit:
        case kClassName:
            hr = ParseCharData();
            break;
        case kClassLT:
            hr = ParseLT();
            break;
        case kClassEnd:
            return hr;
        default:
            // White space and the signs that cannot begin character data.
            m_reader->Advance();
            break;
        }
    }
}

HRESULT QZ_STDCALL CQzXML_Document::ParseLT() {
    m_reader->Advance();
    switch (m_reader->CharClass()) {
    case kClassBang:
        return ParseMarkupDeclaration();
    case kClassSlash:
        return ParseEndTag();
    case kClassQuestion:
        return m_current ? ParsePI() : ParseXMLDeclaration();
    case kClassName:
        return ParseStartTag();
    default:
        return S_OK;
    }
}

HRESULT QZ_STDCALL CQzXML_Document::ParseStartTag() {
    QZXML_CONTENT* content = nullptr;
    HRESULT hr = AllocContent(XML_CONTENT_ELEMENT, &content);
    if (FAILED(hr)) return hr;
    QZXML_ELEMENT* element = &content->u.element;
    QZXML_ELEMENT* parent = content->parent;
    // Only a blank, '/' or '>' ends a name; tabs and line breaks do not.
    hr = read_string(m_reader, kStopsName, &element->name);
    if (SUCCEEDED(hr)) {
        m_current = element;
        while (m_reader->CharClass() == kClassSpace) m_reader->Advance();
        switch (m_reader->CharClass()) {
        case kClassSlash:
            element->empty = 1;
            m_current = parent;
            m_reader->Advance();
            m_reader->Advance();
            return S_OK;
        case kClassGT:
            m_reader->Advance();
            return S_OK;
        case kClassName:
            return ParseAttributes();
        default:
            hr = E_FAIL;
            break;
        }
    }
    // The malformed element goes again, with everything it holds.
    m_current = parent;
    FreeElement(element);
    if (parent) {
        QzList_DeleteList(parent->contents, parent->contents->count - 1, 1, FALSE);
    } else {
        delete m_root;
        m_root = nullptr;
    }
    return hr;
}

HRESULT QZ_STDCALL CQzXML_Document::ParseAttributes() {
    QZXML_ELEMENT* element = m_current;
    HRESULT hr = S_OK;
    while (m_reader->CharClass() != kClassGT) {
        if (m_reader->CharClass() == kClassSlash) break;
        QZXML_ATTRIBUTE* attribute = nullptr;
        hr = AllocAttribute(&attribute);
        if (FAILED(hr)) break;
        // Everything before '=' is the name, white space included.
        hr = read_string(m_reader, kStopsEquals, &attribute->name);
        if (FAILED(hr)) break;
        if (m_reader->CharClass() != kClassEquals) {
            hr = E_FAIL;
            break;
        }
        m_reader->Advance();
        if (m_reader->CharClass() != kClassQuote) {
            hr = E_FAIL;
            break;
        }
        m_reader->Advance();
        hr = read_string(m_reader, kStopsQuote, &attribute->value);
        if (FAILED(hr)) break;
        if (m_reader->CharClass() != kClassQuote) {
            hr = E_FAIL;
            break;
        }
        m_reader->Advance();
        // One separator is passed over; any more begin the next name.
        if (m_reader->CharClass() == kClassSpace) m_reader->Advance();
    }
    if (FAILED(hr)) return hr;
    if (m_reader->CharClass() == kClassSlash) {
        // "/>" after attributes closes the element without the empty flag;
        // the '>' is left for the main loop.
        m_reader->Advance();
        m_current = parent_of(element);
    }
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::ParseEndTag() {
    m_reader->Advance();
    const SIZE_T n = m_reader->ReadUntil(kStopsGT, nullptr);
    WCHAR small[128];
    WCHAR* name = small;
    if (n >= sizeof small / sizeof small[0]) {
        name = new (std::nothrow) WCHAR[n + 1];
        if (!name) return E_OUTOFMEMORY;
    }
    m_reader->ReadUntil(kStopsGT, name);
    const bool match = m_current && wide_equal(m_current->name, name);
    if (name != small) delete[] name;
    if (!match) return E_FAIL;
    m_current = parent_of(m_current);
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::ParseMarkupDeclaration() {
    m_reader->Advance();
    HRESULT hr = S_OK;
    while (SUCCEEDED(hr)) {
        const int c = m_reader->CharClass();
        if (c == kClassDash) {
            hr = ParseComment();
        } else if (c == kClassLBracket) {
            hr = ParseCDATA();
        } else if (c == kClassGT) {
            m_reader->Advance();
            break;
        } else if (c == kClassEnd) {
            break;
        } else {
            // Keywords and the body of a document type declaration.
            m_reader->Advance();
        }
    }
    return hr;
}

// A comment is read in runs up to each '>' until the text ends with "--",
// so a '>' inside it stays in the text. The closing '>' is left to the
// declaration loop. The text is gathered first and stored once, so a
// comment full of '>' costs linear time.
HRESULT QZ_STDCALL CQzXML_Document::ParseComment() {
    QZXML_CONTENT* content = nullptr;
    HRESULT hr = AllocContent(XML_CONTENT_COMMENT, &content);
    if (FAILED(hr)) return hr;
    try {
        WString text;
        for (;;) {
            const SIZE_T n = m_reader->ReadUntil(kStopsGT, nullptr);
            const SIZE_T at = text.size();
            text.resize(at + n + 1);
            m_reader->ReadUntil(kStopsGT, &text[at]);
            text.resize(at + n);
            const SIZE_T size = text.size();
            if (size >= 2 && text[size - 1] == '-' && text[size - 2] == '-') break;
            // An unterminated comment ends with the text.
            if (m_reader->AtEnd()) break;
            m_reader->Advance();
            text.push_back('>');
        }
        if (!content) return S_OK;
        content->u.text = alloc_string(text.size());
        if (!content->u.text) return E_OUTOFMEMORY;
        text.copy(content->u.text, text.size());
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::ParseCDATA() {
    QZXML_CONTENT* content = nullptr;
    const HRESULT hr = AllocContent(XML_CONTENT_CDATA, &content);
    if (FAILED(hr)) {
        skip_run(m_reader, kStopsGT);
        return hr;
    }
    if (!content) {
        skip_run(m_reader, kStopsGT);
        return S_OK;
    }
    return read_string(m_reader, kStopsGT, &content->u.text);
}

HRESULT QZ_STDCALL CQzXML_Document::ParsePI() {
    QZXML_CONTENT* content = nullptr;
    const HRESULT hr = AllocContent(XML_CONTENT_PI, &content);
    if (FAILED(hr)) {
        skip_run(m_reader, kStopsLT);
        return hr;
    }
    return read_string(m_reader, kStopsLT, &content->u.text);
}

// The declaration is passed over: the reader was already chosen from the
// byte-order mark, and the version and encoding it names change nothing
// here. The position ends after "?>" (or at the end of an unterminated
// declaration).
HRESULT QZ_STDCALL CQzXML_Document::ParseXMLDeclaration() {
    m_reader->Advance();
    while (!m_reader->Match(kDeclarationEnd, FALSE)) {
        if (m_reader->AtEnd()) break;
        m_reader->Advance();
    }
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::ParseCharData() {
    QZXML_CONTENT* content = nullptr;
    const HRESULT hr = AllocContent(XML_CONTENT_CHARDATA, &content);
    if (FAILED(hr)) {
        skip_run(m_reader, kStopsLT);
        return hr;
    }
    if (!content) {
        skip_run(m_reader, kStopsLT);
        return S_OK;
    }
    return read_string(m_reader, kStopsLT, &content->u.text);
}
