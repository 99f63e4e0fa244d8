// tQZLIST: selection sort, heap sort and sorted insertion.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "tests/support/list_support.h"

namespace {

using qz::testing::append;
using qz::testing::compare_u32;
using qz::testing::TestList;
using qz::testing::values;
using V = std::vector<uint32_t>;

// Records whose first word is the key; the rest tells equal keys apart.
struct Record {
    uint32_t key;
    uint32_t tag;
};

int QZ_STDCALL compare_records(LONG_PTR, const void* a, const void* b) {
    const auto* x = static_cast<const Record*>(a);
    const auto* y = static_cast<const Record*>(b);
    return x->key < y->key ? -1 : (x->key > y->key ? 1 : 0);
}

std::vector<uint32_t> record_tags(const tQZLIST* list) {
    std::vector<uint32_t> out;
    for (LONG i = 0; i < list->count; ++i) {
        const void* item = (list->create_options & QZLIST_VALUES) ? QZLIST_ITEMADDR(list, i)
                                                                  : QZLIST_ITEMPTR(list, i);
        out.push_back(static_cast<const Record*>(item)->tag);
    }
    return out;
}

TEST(ListSort, SelectionSortKeepsTheEarliestOfEqualMaximaAndStoresNoCriteria) {
    // Traced by hand: each pass swaps the earliest maximum into the last
    // unsorted place, unless the maximum already sits there.
    struct Case {
        std::vector<Record> items;
        std::vector<uint32_t> tags_after;
    };
    const Case cases[] = {{{{1, 0}, {1, 1}, {2, 2}}, {1, 0, 2}},
                          {{{1, 0}, {1, 1}, {1, 2}}, {1, 2, 0}},
                          {{{3, 0}, {2, 1}, {1, 2}, {3, 3}}, {2, 1, 3, 0}}};
    for (const Case& c : cases) {
        for (DWORD options : {QZLIST_VALUES, 0u}) {
            TestList list(sizeof(Record), options);
            for (const Record& r : c.items) {
                const void* pointer = &r;
                ASSERT_EQ(QzList_InsertList(list.get(), -1, options ? pointer : &pointer, 1), S_OK);
            }
            ASSERT_EQ(QzList_Sort(list.get(), 0, compare_records), S_OK);
            EXPECT_EQ(record_tags(list.get()), c.tags_after) << (options ? "values" : "pointers");
        }
    }
    // The criteria reach the comparison but are not stored.
    TestList list(4, QZLIST_VALUES);
    append(list.get(), {4, 1, 3, 5, 2});
    ASSERT_EQ(QzList_Sort(list.get(), 1, compare_u32), S_OK);
    EXPECT_EQ(values(list.get()), (V{5, 4, 3, 2, 1}));
    EXPECT_EQ(QzList_GetSortCriteria(list.get()), 0);
    ASSERT_EQ(QzList_Sort(list.get(), 0, nullptr), S_OK);
    EXPECT_EQ(values(list.get()), (V{5, 4, 3, 2, 1}));
}

// Heap sort of every slot shape against std::sort: the result is ordered
// and a permutation of the input.
TEST(ListHeapSort, SortsEveryItemSize) {
    std::mt19937 random(11);
    for (UINT words : {1u, 2u, 3u, 9u}) {
        for (int n : {0, 1, 2, 17, 1000}) {
            TestList list(words * 4, QZLIST_VALUES);
            std::vector<std::vector<uint32_t>> expected;
            for (int i = 0; i < n; ++i) {
                std::vector<uint32_t> item(words);
                item[0] = uint32_t(random() % 50);  // many equal keys
                for (UINT w = 1; w < words; ++w) item[w] = uint32_t(random());
                expected.push_back(item);
                ASSERT_EQ(QzList_InsertList(list.get(), -1, item.data(), 1), S_OK);
            }
            ASSERT_EQ(QzList_HeapSort(list.get(), 0, compare_u32), S_OK);
            std::vector<std::vector<uint32_t>> got;
            for (int i = 0; i < n; ++i) {
                const auto* p = static_cast<const uint32_t*>(QZLIST_ITEMADDR(list.get(), i));
                got.emplace_back(p, p + words);
            }
            EXPECT_TRUE(std::is_sorted(got.begin(), got.end(),
                                       [](const auto& a, const auto& b) { return a[0] < b[0]; }))
                << words << " words, " << n << " items";
            std::sort(got.begin(), got.end());
            std::sort(expected.begin(), expected.end());
            EXPECT_EQ(got, expected) << words << " words, " << n << " items";
        }
    }
}

TEST(ListHeapSort, SortsPointerListsAndStoresTheCriteria) {
    std::vector<Record> records;
    for (uint32_t i = 0; i < 200; ++i) records.push_back({(i * 7919u) % 101u, i});
    TestList list(0, 0);
    for (Record& r : records) {
        void* p = &r;
        ASSERT_EQ(QzList_InsertList(list.get(), -1, &p, 1), S_OK);
    }
    ASSERT_EQ(QzList_HeapSort(list.get(), 42, compare_records), S_OK);
    EXPECT_EQ(QzList_GetSortCriteria(list.get()), 42);
    // Sorted by key, and a permutation: every tag once.
    std::vector<Record> got;
    for (LONG i = 0; i < list->count; ++i)
        got.push_back(*static_cast<const Record*>(QZLIST_ITEMPTR(list.get(), i)));
    auto by_key = [](const Record& a, const Record& b) { return a.key < b.key; };
    EXPECT_TRUE(std::is_sorted(got.begin(), got.end(), by_key));
    EXPECT_TRUE(
        std::is_permutation(got.begin(), got.end(), records.begin(), records.end(),
                            [](const Record& a, const Record& b) { return a.tag == b.tag; }));

    ASSERT_EQ(QzList_HeapSort(list.get(), 7, nullptr), S_OK);  // stores, sorts nothing
    EXPECT_EQ(QzList_GetSortCriteria(list.get()), 7);
}

TEST(ListSortTo, RefusesListsOfAnotherShape) {
    TestList source(4, QZLIST_VALUES);
    append(source.get(), {1});
    TestList wider(8, QZLIST_VALUES);
    TestList pointers(0, 0);
    TestList owner(0, QZLIST_HEAPITEMS);
    EXPECT_EQ(QzList_SortTo(wider.get(), source.get(), 0, compare_u32), E_FAIL);
    EXPECT_EQ(QzList_SortTo(pointers.get(), source.get(), 0, compare_u32), E_FAIL);
    EXPECT_EQ(QzList_SortTo(owner.get(), pointers.get(), 0, compare_u32), E_FAIL);
    EXPECT_EQ(QzList_SortTo(source.get(), source.get(), 0, compare_u32), E_INVALIDARG);
}

}  // namespace
