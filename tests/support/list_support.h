// Helpers for the list suites: a list that destroys itself, reading items
// back and the comparisons the suites sort and search with.
#ifndef QZ_TESTS_SUPPORT_LIST_SUPPORT_H
#define QZ_TESTS_SUPPORT_LIST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "qz/qzlist.h"

namespace qz::testing {

// Creates a list on construction (failing the test when it cannot) and
// destroys it afterwards.
class TestList {
public:
    TestList(UINT item_size, DWORD options, int initial = 0, int grow_step = 0) {
        EXPECT_EQ(QzList_CreateExZ(&list_, item_size, initial, grow_step, options, 0, 0, 0), S_OK);
    }
    ~TestList() {
        if (list_) {
            EXPECT_EQ(QzList_Destroy(list_), S_OK);
        }
    }
    TestList(const TestList&) = delete;
    TestList& operator=(const TestList&) = delete;

    tQZLIST* get() const { return list_; }
    tQZLIST* operator->() const { return list_; }

private:
    tQZLIST* list_ = nullptr;
};

// The items of a list of 32-bit values.
inline std::vector<uint32_t> values(const tQZLIST* list) {
    std::vector<uint32_t> out(size_t(list->count));
    if (!out.empty()) std::memcpy(out.data(), list->items, out.size() * 4);
    return out;
}

// Appends 32-bit values one at a time.
inline void append(tQZLIST* list, const std::vector<uint32_t>& items) {
    for (uint32_t v : items) ASSERT_EQ(QzList_InsertList(list, -1, &v, 1), S_OK);
}

// A value list of 32-bit items holding `items`.
inline void fill(tQZLIST* list, uint32_t first, uint32_t count) {
    for (uint32_t v = first; v < first + count; ++v)
        ASSERT_EQ(QzList_InsertList(list, -1, &v, 1), S_OK);
}

// True when every slot from the count to the allocation is zero.
inline bool tail_is_zero(const tQZLIST* list) {
    const BYTE* p = static_cast<const BYTE*>(list->items);
    for (size_t i = size_t(list->count) * list->item_size;
         i < size_t(list->allocated) * list->item_size; ++i)
        if (p[i] != 0) return false;
    return true;
}

// Compares 32-bit values; criteria 1 sorts in descending order.
inline int QZ_STDCALL compare_u32(LONG_PTR criteria, const void* a, const void* b) {
    uint32_t x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    const int order = x < y ? -1 : (x > y ? 1 : 0);
    return criteria == 1 ? -order : order;
}

}  // namespace qz::testing

#endif
