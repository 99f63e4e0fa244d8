// CQzXML_Document: opening and closing, the tree's storage, and the queries.
#include <cstring>
#include <new>

#include "documents/xml_encoding.h"
#include "documents/xml_internal.h"

using namespace qz::xml;

CQzXML_Document::CQzXML_Document()
    : m_source(nullptr),
      m_source_bytes(0),
      m_path{},
      m_file(INVALID_HANDLE_VALUE),
      m_mapping(INVALID_HANDLE_VALUE),
      m_view(nullptr),
      m_reader(nullptr),
      m_current(nullptr),
      m_root(nullptr),
      m_finds(nullptr) {}

CQzXML_Document::~CQzXML_Document() {
    CloseMemory();
    if (m_view) UnmapViewOfFile(m_view);
    if (m_mapping != INVALID_HANDLE_VALUE && m_mapping) CloseHandle(m_mapping);
    if (m_file != INVALID_HANDLE_VALUE) CloseHandle(m_file);
}

HRESULT QZ_STDCALL CQzXML_Document::OpenFile(LPCWSTR path) {
    if (m_reader || m_view) return E_UNEXPECTED;
    if (!path) return QZE_FILE_OPEN;
    if (GetFileAttributesW(path) == INVALID_FILE_ATTRIBUTES) return QZE_FILE_EXISTS;
    SIZE_T n = wide_length(path);
    if (n > MAX_PATH - 1) n = MAX_PATH - 1;
    std::memcpy(m_path, path, n * sizeof(WCHAR));
    m_path[n] = 0;

    m_file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (m_file == INVALID_HANDLE_VALUE) return QZE_FILE_OPEN;
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(m_file, &size)) return QZE_FILE_OPEN;
    if (size.QuadPart == 0) return QZE_CORRUPT_OR_UNKNOWN;
    const HANDLE mapping = CreateFileMappingW(m_file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (!mapping) return QZE_FILE_OPEN;
    m_mapping = mapping;
    m_view = MapViewOfFile(m_mapping, FILE_MAP_READ, 0, 0, 0);
    if (!m_view) return QZE_FILE_OPEN;

    m_source = static_cast<const BYTE*>(m_view);
    m_source_bytes = ULONGLONG(size.QuadPart);
    HRESULT hr = GetEncodingInterface();
    if (FAILED(hr)) return hr;
    return QzList_CreateExZ(&m_finds, sizeof(void*), 0, 0, QZLIST_HEAPITEMS, 0, 0, 0);
}

HRESULT QZ_STDCALL CQzXML_Document::OpenMemory(LPCVOID data, ULONGLONG bytes) {
    if (m_reader || m_view) return E_UNEXPECTED;
    m_source = static_cast<const BYTE*>(data);
    m_source_bytes = data ? bytes : 0;
    HRESULT hr = GetEncodingInterface();
    if (FAILED(hr)) return hr;
    return QzList_CreateExZ(&m_finds, sizeof(void*), 0, 0, QZLIST_HEAPITEMS, 0, 0, 0);
}

HRESULT QZ_STDCALL CQzXML_Document::GetEncodingInterface() {
    if (m_reader) {
        m_reader->Release();
        m_reader = nullptr;
    }
    return create_reader(m_source, m_source_bytes, &m_reader);
}

void QZ_STDCALL CQzXML_Document::CloseMemory() {
    QzList_Destroy(m_finds);
    m_finds = nullptr;
    if (m_root) {
        FreeElement(&m_root->u.element);
        delete m_root;
        m_root = nullptr;
    }
    m_current = nullptr;
    if (m_reader) {
        m_reader->Release();
        m_reader = nullptr;
    }
}

void QZ_STDCALL CQzXML_Document::CloseFile() { CloseMemory(); }

// ---- the tree's storage --------------------------------------------------------

HRESULT QZ_STDCALL CQzXML_Document::AllocContent(XML_CONTENT_TYPE type, QZXML_CONTENT** content) {
    *content = nullptr;
    tQZLIST* attributes = nullptr;
    tQZLIST* contents = nullptr;
    if (type == XML_CONTENT_ELEMENT) {
        if (FAILED(QzList_CreateExZ(&attributes, sizeof(void*), kListInitial, kListStep,
                                    QZLIST_HEAPITEMS, 0, 0, 0)) ||
            FAILED(QzList_CreateExZ(&contents, sizeof(void*), kListInitial, kListStep,
                                    QZLIST_HEAPITEMS, 0, 0, 0))) {
            QzList_Destroy(attributes);
            return E_OUTOFMEMORY;
        }
    }
    QZXML_CONTENT* made = nullptr;
    if (m_current) {
        tQZLIST* list = m_current->contents;
        if (FAILED(QzList_AllocAndInsertItem(list, nullptr, sizeof(QZXML_CONTENT), -1, nullptr))) {
            QzList_Destroy(attributes);
            QzList_Destroy(contents);
            return E_OUTOFMEMORY;
        }
        made = item<QZXML_CONTENT>(list, list->count - 1);
    } else if (type == XML_CONTENT_ELEMENT) {
        made = new (std::nothrow) QZXML_CONTENT{};
        if (!made) {
            QzList_Destroy(attributes);
            QzList_Destroy(contents);
            return E_OUTOFMEMORY;
        }
        // A further top-level element takes the root's place; the old tree
        // is no longer reachable, so it goes now rather than at close.
        if (m_root) {
            FreeElement(&m_root->u.element);
            delete m_root;
        }
        m_root = made;
    } else {
        // Text outside every element has no parent to hold it.
        return S_FALSE;
    }
    made->type = type;
    made->parent = m_current;
    if (type == XML_CONTENT_ELEMENT) {
        made->u.element.owner = made;
        made->u.element.attributes = attributes;
        made->u.element.contents = contents;
    }
    *content = made;
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::AllocAttribute(QZXML_ATTRIBUTE** attribute) {
    *attribute = nullptr;
    tQZLIST* list = m_current->attributes;
    if (FAILED(QzList_AllocAndInsertItem(list, nullptr, sizeof(QZXML_ATTRIBUTE), -1, nullptr))) {
        return E_OUTOFMEMORY;
    }
    QZXML_ATTRIBUTE* made = item<QZXML_ATTRIBUTE>(list, list->count - 1);
    made->owner = m_current;
    *attribute = made;
    return S_OK;
}

void QZ_STDCALL CQzXML_Document::FreeString(LPWSTR text) { qz::base::free_caller_block(text); }

void QZ_STDCALL CQzXML_Document::FreeAttribute(QZXML_ATTRIBUTE* attribute) {
    FreeString(attribute->name);
    FreeString(attribute->value);
    attribute->name = attribute->value = nullptr;
}

void QZ_STDCALL CQzXML_Document::FreeContent(QZXML_CONTENT* content) {
    if (content->type == XML_CONTENT_ELEMENT) {
        FreeElement(&content->u.element);
    } else {
        FreeString(content->u.text);
        content->u.text = nullptr;
    }
}

// Frees everything `top` holds, depth first without recursion: it always
// works on the last content of the deepest element reached, and an element
// that has nothing left is released and removed from its parent, which is
// found through the owner's parent pointer. A million nested elements need
// no stack.
void QZ_STDCALL CQzXML_Document::FreeElement(QZXML_ELEMENT* top) {
    QZXML_ELEMENT* element = top;
    for (;;) {
        tQZLIST* contents = element->contents;
        if (contents && contents->count > 0) {
            QZXML_CONTENT* last = item<QZXML_CONTENT>(contents, contents->count - 1);
            if (last->type == XML_CONTENT_ELEMENT) {
                element = &last->u.element;
                continue;
            }
            FreeContent(last);
            QzList_DeleteList(contents, contents->count - 1, 1, FALSE);
            continue;
        }
        if (tQZLIST* attributes = element->attributes) {
            for (LONG i = 0; i < attributes->count; ++i)
                FreeAttribute(item<QZXML_ATTRIBUTE>(attributes, i));
        }
        QzList_Destroy(element->attributes);
        QzList_Destroy(element->contents);
        FreeString(element->name);
        element->attributes = element->contents = nullptr;
        element->name = nullptr;
        if (element == top) return;
        QZXML_ELEMENT* parent = parent_of(element);
        QzList_DeleteList(parent->contents, parent->contents->count - 1, 1, FALSE);
        element = parent;
    }
}

// ---- queries -------------------------------------------------------------------------

namespace {

QZXML_FIND* find_record(tQZLIST* finds, HANDLE handle) {
    if (!finds || !handle || handle == INVALID_HANDLE_VALUE) return nullptr;
    return QzList_FindSpecificItemRange(finds, 0, -1, handle) < 0
               ? nullptr
               : static_cast<QZXML_FIND*>(handle);
}

// Copies `text` cut to `capacity` characters with the terminator, then
// removes its escapes.
void copy_out(LPCWSTR text, LPWSTR buffer, int capacity) {
    if (capacity <= 0) return;
    SIZE_T n = text ? wide_length(text) : 0;
    if (n > SIZE_T(capacity - 1)) n = SIZE_T(capacity - 1);
    if (n) std::memcpy(buffer, text, n * sizeof(WCHAR));
    buffer[n] = 0;
    if (QzXML_DoesStringHaveEscapes(buffer)) QzXML_RemoveEscapes(buffer);
}

}  // namespace

HANDLE QZ_STDCALL CQzXML_Document::FindContentFirst(QZXML_ELEMENT* element,
                                                    QZXML_CONTENT** content) {
    if (content) *content = nullptr;
    if (!m_finds && FAILED(QzList_CreateExZ(&m_finds, sizeof(void*), 0, 0, QZLIST_HEAPITEMS, 0,
                                            0, 0))) {
        return INVALID_HANDLE_VALUE;
    }
    QZXML_CONTENT* first = nullptr;
    if (!element) {
        first = m_root;
    } else if (element->contents && element->contents->count > 0) {
        first = item<QZXML_CONTENT>(element->contents, 0);
    }
    if (!first) return INVALID_HANDLE_VALUE;
    const QZXML_FIND record{element, 0};
    int at = -1;
    if (FAILED(QzList_AllocAndInsertItem(m_finds, &record, sizeof record, -1, &at))) {
        return INVALID_HANDLE_VALUE;
    }
    if (content) *content = first;
    return static_cast<HANDLE>(QZLIST_ITEMPTR(m_finds, at));
}

HRESULT QZ_STDCALL CQzXML_Document::FindContentNext(HANDLE find, QZXML_CONTENT** content) {
    if (content) *content = nullptr;
    QZXML_FIND* record = find_record(m_finds, find);
    if (!record) return E_HANDLE;
    const LONG count = record->element
                           ? (record->element->contents ? record->element->contents->count : 0)
                           : (m_root ? 1 : 0);
    ++record->index;
    if (record->index == count) return QZE_NOT_FOUND;
    // Stepping on past the end finds no item at all.
    if (record->index > count) return E_OUTOFMEMORY;
    QZXML_CONTENT* next = record->element
                              ? item<QZXML_CONTENT>(record->element->contents, record->index)
                              : m_root;
    if (content) *content = next;
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::FindContentClose(HANDLE find) {
    if (!find_record(m_finds, find)) return E_HANDLE;
    const int at = QzList_FindSpecificItemRange(m_finds, 0, -1, find);
    return QzList_DeleteList(m_finds, at, 1, FALSE);
}

HRESULT QZ_STDCALL CQzXML_Document::FindChild(QZXML_CONTENT* content, LPCWSTR name,
                                              QZXML_CONTENT** child) {
    if (!child) return E_POINTER;
    *child = nullptr;
    if (!name) return E_POINTER;
    if (content && content->type != XML_CONTENT_ELEMENT) return QZE_NOT_FOUND;
    QZXML_CONTENT* at = nullptr;
    const HANDLE find = FindContentFirst(content ? &content->u.element : nullptr, &at);
    if (find == INVALID_HANDLE_VALUE) return QZE_NOT_FOUND;
    HRESULT hr = at->type == XML_CONTENT_ELEMENT ? S_OK : QZE_NOT_FOUND;
    while (hr == S_OK && at && at->type == XML_CONTENT_ELEMENT) {
        if (at->u.element.name && wide_equal(at->u.element.name, name)) {
            *child = at;
            break;
        }
        hr = FindContentNext(find, &at);
    }
    FindContentClose(find);
    return hr;
}

HRESULT QZ_STDCALL CQzXML_Document::GetCharDataContent(QZXML_ELEMENT* element,
                                                       QZXML_CONTENT** content) {
    if (!element || !content) return E_INVALIDARG;
    *content = nullptr;
    if (element->empty || !element->contents) return QZE_NOT_FOUND;
    for (LONG i = 0; i < element->contents->count; ++i) {
        QZXML_CONTENT* c = item<QZXML_CONTENT>(element->contents, i);
        if (c->type == XML_CONTENT_CHARDATA) {
            *content = c;
            return S_OK;
        }
    }
    return QZE_NOT_FOUND;
}

HRESULT QZ_STDCALL CQzXML_Document::GetContentStringReqLen(QZXML_ELEMENT* element,
                                                           DWORD* length) {
    if (!element || !length) return E_INVALIDARG;
    QZXML_CONTENT* data = nullptr;
    const HRESULT hr = GetCharDataContent(element, &data);
    if (FAILED(hr)) return hr;
    *length = DWORD(wide_length(data->u.text) + 1);
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::GetContentString(QZXML_ELEMENT* element, LPWSTR buffer,
                                                     int capacity) {
    if (!element || !buffer) return E_INVALIDARG;
    if (capacity > 0) buffer[0] = 0;
    QZXML_CONTENT* data = nullptr;
    const HRESULT hr = GetCharDataContent(element, &data);
    if (FAILED(hr)) return hr;
    copy_out(data->u.text, buffer, capacity);
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::GetAttribute(QZXML_ELEMENT* element, LPCWSTR name,
                                                 QZXML_ATTRIBUTE** attribute) {
    if (!element || !name || !attribute) return E_INVALIDARG;
    *attribute = nullptr;
    const tQZLIST* list = element->attributes;
    for (LONG i = 0; list && i < list->count; ++i) {
        QZXML_ATTRIBUTE* a = item<QZXML_ATTRIBUTE>(list, i);
        // A name left unread by a malformed tag matches nothing.
        if (a->name && wide_equal(a->name, name)) {
            *attribute = a;
            return S_OK;
        }
    }
    return QZE_NOT_FOUND;
}

HRESULT QZ_STDCALL CQzXML_Document::GetAttributeString(QZXML_ELEMENT* element, LPCWSTR name,
                                                       LPWSTR buffer, int capacity) {
    if (!element || !name || !buffer) return E_INVALIDARG;
    if (capacity > 0) buffer[0] = 0;
    QZXML_ATTRIBUTE* attribute = nullptr;
    const HRESULT hr = GetAttribute(element, name, &attribute);
    if (FAILED(hr)) return hr;
    copy_out(attribute->value, buffer, capacity);
    return S_OK;
}

HRESULT QZ_STDCALL CQzXML_Document::GetChildContentString(QZXML_CONTENT* content, LPCWSTR name,
                                                          LPWSTR buffer, int capacity) {
    if (!name || !buffer) return E_INVALIDARG;
    if (capacity > 0) buffer[0] = 0;
    QZXML_CONTENT* child = nullptr;
    const HRESULT hr = FindChild(content, name, &child);
    if (FAILED(hr)) return hr;
    if (!child) return QZE_NOT_FOUND;
    return GetContentString(&child->u.element, buffer, capacity);
}
