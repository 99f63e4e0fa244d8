// tQZLIST: identity, linear and sorted searches and their ranges.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/list_support.h"

namespace {

using qz::testing::append;
using qz::testing::compare_u32;
using qz::testing::TestList;
using V = std::vector<uint32_t>;

TEST(ListFindSpecificItem, ComparesBytesPointersOrByTheCallbackOverTheRange) {
    TestList list(4, QZLIST_VALUES);
    append(list.get(), {7, 8, 9, 7, 8});
    struct Case {
        uint32_t item;
        int start, count, expected;
    };
    const Case cases[] = {{8, 2, -1, 4},  {8, 2, 2, -1},  {7, -5, 1, 0},
                          {7, 1, 100, 3}, {9, 5, -1, -1}, {5, 0, -1, -1}};
    for (const Case& c : cases)
        EXPECT_EQ(QzList_FindSpecificItemRange(list.get(), c.start, c.count, &c.item), c.expected)
            << c.item << " from " << c.start;

    TestList pointers(0, 0);
    int a = 0, b = 0;
    void* slots[] = {&a, &b, &a};
    ASSERT_EQ(QzList_InsertList(pointers.get(), 0, slots, 3), S_OK);
    EXPECT_EQ(QzList_FindSpecificItemRange(pointers.get(), 1, -1, &a), 2);
    int same_value = 0;  // equal contents, another address
    EXPECT_EQ(QzList_FindSpecificItemRange(pointers.get(), 0, -1, &same_value), -1);
    // QzList_FindItemRange compares with the callback instead.
    TestList compared(4, QZLIST_VALUES);
    append(compared.get(), {3, 1, 2, 1});
    const uint32_t key = 1;
    EXPECT_EQ(QzList_FindItemRange(compared.get(), &key, 2, -1, compare_u32), 3);
    EXPECT_EQ(QzList_FindItemRange(compared.get(), &key, 2, 1, compare_u32), -1);
    EXPECT_EQ(QzList_FindItemRange(compared.get(), &key, 0, -1, nullptr), -1);
}

// Ranges that start inside [10, 20, 30, 40, 50]; whole lists are checked
// against lower_bound below.
TEST(ListFindSortedInsertIndex, BisectsTheRangeOnlyWithTheCriteriaOfTheLastSort) {
    TestList list(4, QZLIST_VALUES);
    append(list.get(), {10, 20, 30, 40, 50});
    struct Case {
        uint32_t key;
        int start, count, expected;
    };
    // An empty range answers 0, not its start; a start past the items -1.
    const Case cases[] = {{5, 2, 2, 2},  {100, 2, 2, 4}, {99, 4, -1, 5}, {11, -3, 1, 1},
                          {7, 5, -1, 0}, {7, 2, 0, 0},   {7, 6, -1, -1}};
    for (const Case& c : cases)
        EXPECT_EQ(
            QzList_FindSortedInsertIndexRange(list.get(), &c.key, c.start, c.count, compare_u32),
            c.expected)
            << c.key << " in [" << c.start << ", +" << c.count << ")";
    // Both sorted searches use the criteria of the last sort.
    TestList sorted(4, QZLIST_VALUES);
    append(sorted.get(), {3, 9, 1, 7, 5});
    ASSERT_EQ(QzList_HeapSort(sorted.get(), 1, compare_u32), S_OK);  // descending
    EXPECT_EQ(qz::testing::values(sorted.get()), (V{9, 7, 5, 3, 1}));
    const uint32_t present = 3, absent = 4;
    EXPECT_EQ(QzList_FindSortedItemRange(sorted.get(), &present, 0, -1, compare_u32), 3);
    EXPECT_EQ(QzList_FindSortedItemRange(sorted.get(), &absent, 0, -1, compare_u32), -1);
    EXPECT_EQ(QzList_FindSortedInsertIndexRange(sorted.get(), &absent, 0, -1, compare_u32), 3);
}

// Against the standard library on random sorted lists: distinct keys go
// exactly where lower_bound puts them; with duplicates the answer keeps the
// order, and an equal item found is one of the run.
TEST(ListFindSortedInsertIndex, KeepsTheOrderOnRandomLists) {
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        const bool duplicates = round % 2 == 1;
        V items(random() % 40);
        for (auto& v : items) v = uint32_t(random() % (duplicates ? 20 : 1000)) * 2;
        std::sort(items.begin(), items.end());
        if (!duplicates) items.erase(std::unique(items.begin(), items.end()), items.end());
        TestList list(4, QZLIST_VALUES);
        append(list.get(), items);
        for (uint32_t key = 0; key < 42; ++key) {
            const auto lower = std::lower_bound(items.begin(), items.end(), key) - items.begin();
            const auto upper = std::upper_bound(items.begin(), items.end(), key) - items.begin();
            const int at = QzList_FindSortedInsertIndexRange(list.get(), &key, 0, -1, compare_u32);
            const int found = QzList_FindSortedItemRange(list.get(), &key, 0, -1, compare_u32);
            if (!duplicates) {
                EXPECT_EQ(at, lower) << "key " << key;
            }
            EXPECT_GE(at, lower);
            EXPECT_LE(at, upper);
            if (lower == upper) {
                EXPECT_EQ(found, -1);
            } else {
                EXPECT_GE(found, lower);
                EXPECT_LT(found, upper);
            }
        }
    }
}

}  // namespace
