/*
 * xml_internal.h - helpers shared by the XML document's source files.
 */
#ifndef QZ_DOCUMENTS_XML_INTERNAL_H
#define QZ_DOCUMENTS_XML_INTERNAL_H

#include <string>

#include "base/caller_memory.h"
#include "qz/qzxml.h"
#include "platform/win32api.h"

namespace qz::xml {

using WString = std::basic_string<WCHAR>;

inline SIZE_T wide_length(LPCWSTR text) { return std::char_traits<WCHAR>::length(text); }

inline bool wide_equal(LPCWSTR a, LPCWSTR b) {
    for (; *a && *a == *b; ++a, ++b) {
    }
    return *a == *b;
}

/* A zeroed, locked string block of `chars` characters plus the terminator. */
inline LPWSTR alloc_string(SIZE_T chars) {
    if (chars >= (SIZE_T(-1) / sizeof(WCHAR)) - 1) return nullptr;
    return static_cast<LPWSTR>(qz::base::alloc_caller_block((chars + 1) * sizeof(WCHAR)));
}

/* The element that holds `element`, or null at the top. */
inline QZXML_ELEMENT* parent_of(const QZXML_ELEMENT* element) {
    return element->owner ? element->owner->parent : nullptr;
}

/* Item i of a content or attribute list. */
template <class Record>
Record* item(const tQZLIST* list, LONG i) {
    return static_cast<Record*>(QZLIST_ITEMPTR(list, i));
}

/* Options and sizes of the tree's lists: small, owning their records. */
constexpr int kListInitial = 4;
constexpr int kListStep = 4;

}  // namespace qz::xml

#endif
