// xml_fuzz - opens arbitrary bytes as an XML text held in memory, parses
// them, walks the whole tree with every query, and closes. The bytes sit in
// a heap block of exactly their size, so the sanitizer sees any read past
// the end of the source.
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "qzkernel.h"

namespace {

// The names the queries look for: those of the element and its first
// attribute, and one that is never there.
const WCHAR kMissing[] = {'z', 'q', 0};

void query(CQzXML_Document& doc, QZXML_CONTENT* content) {
    QZXML_ELEMENT* element = &content->u.element;
    WCHAR buffer[16];
    DWORD length = 0;
    QZXML_CONTENT* found = nullptr;
    QZXML_ATTRIBUTE* attribute = nullptr;
    doc.GetContentStringReqLen(element, &length);
    doc.GetContentString(element, buffer, 16);
    doc.GetContentString(element, buffer, 1);
    doc.GetCharDataContent(element, &found);
    if (element->attributes->count > 0) {
        auto* first = static_cast<QZXML_ATTRIBUTE*>(QZLIST_ITEMPTR(element->attributes, 0));
        if (first->name) doc.GetAttributeString(element, first->name, buffer, 16);
    }
    doc.GetAttribute(element, kMissing, &attribute);
    doc.GetChildContentString(content, kMissing, buffer, 16);
    if (element->name) doc.FindChild(content->parent ? content->parent->owner : nullptr,
                                     element->name, &found);
}

void check_text(LPCWSTR text) {
    if (!text) return;
    const size_t n = std::char_traits<WCHAR>::length(text);
    std::vector<WCHAR> escaped(5 * n + 1);
    QzXML_AddEscapes(escaped.data(), DWORD(escaped.size()), text);
    QzXML_DoesStringNeedEscapes(text);
    if (QzXML_DoesStringHaveEscapes(text)) {
        std::vector<WCHAR> copy(text, text + n + 1);
        QzXML_RemoveEscapes(copy.data());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::unique_ptr<uint8_t[]> source(new uint8_t[size ? size : 1]);
    if (size) std::memcpy(source.get(), data, size);

    CQzXML_Document doc;
    if (FAILED(doc.OpenMemory(source.get(), size))) return 0;
    doc.ParseFile();

    // Depth first with find handles, one open handle per level, so the
    // handle list is exercised as deep as the tree goes.
    struct Level {
        HANDLE find;
    };
    std::vector<Level> stack;
    QZXML_CONTENT* content = nullptr;
    HANDLE find = doc.FindContentFirst(nullptr, &content);
    if (find != INVALID_HANDLE_VALUE) stack.push_back({find});
    while (!stack.empty()) {
        if (content) {
            if (content->type == XML_CONTENT_ELEMENT) {
                query(doc, content);
                check_text(content->u.element.name);
                for (LONG i = 0; i < content->u.element.attributes->count; ++i) {
                    auto* a = static_cast<QZXML_ATTRIBUTE*>(
                        QZLIST_ITEMPTR(content->u.element.attributes, i));
                    check_text(a->name);
                    check_text(a->value);
                }
                QZXML_CONTENT* child = nullptr;
                HANDLE inner = doc.FindContentFirst(&content->u.element, &child);
                if (inner != INVALID_HANDLE_VALUE) {
                    stack.push_back({inner});
                    content = child;
                    continue;
                }
            } else {
                check_text(content->u.text);
            }
        }
        if (doc.FindContentNext(stack.back().find, &content) != S_OK) {
            doc.FindContentClose(stack.back().find);
            stack.pop_back();
            content = nullptr;
        }
    }
    doc.CloseMemory();
    return 0;
}
