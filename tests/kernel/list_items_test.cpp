// tQZLIST: owned blocks on the standard allocator and on private heaps,
// sizes, and transfers between heap-item lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/support/faults.h"
#include "platform/win32api.h"
#include "tests/support/list_support.h"

namespace {

using qz::testing::TestList;
#if QZ_TEST_FAULTS
using qz::testing::FaultOp;
using qz::testing::FaultPlan;
#endif

constexpr DWORD kStandard = QZLIST_HEAPITEMS;
constexpr DWORD kPrivate = QZLIST_HEAPITEMS | QZLIST_PRIVATEHEAP;

// Appends an owned block holding `tag` in its first word.
void add_tagged(tQZLIST* list, uint32_t tag, UINT size = 16) {
    int at = -2;
    ASSERT_EQ(QzList_AllocAndInsertItem(list, &tag, 4, -1, &at), S_OK);
    ASSERT_EQ(at, list->count - 1);
    if (size != 16) {
        ASSERT_EQ(QzList_ReAllocItem(list, at, size), S_OK);
    }
}

std::vector<uint32_t> tags(const tQZLIST* list) {
    std::vector<uint32_t> out;
    for (LONG i = 0; i < list->count; ++i)
        out.push_back(*static_cast<const uint32_t*>(QZLIST_ITEMPTR(list, i)));
    return out;
}

// New blocks: one pending item at a time, or allocated and inserted at
// once, and a failure of either allocation leaves nothing behind.
TEST(ListAllocItem, PendingItemsAndInsertedCopiesOnHeapItemListsOnly) {
    TestList values(4, QZLIST_VALUES);
    void* block = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(QzList_AllocItem(values.get(), 8, &block), E_FAIL);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(QzList_AllocItem(values.get(), 8, nullptr), E_POINTER);
    int at = 0;
    EXPECT_EQ(QzList_AllocAndInsertItem(values.get(), nullptr, 4, 0, &at), E_FAIL);
    EXPECT_EQ(at, -1);

    for (DWORD options : {kStandard, kPrivate}) {
        TestList list(0, options, 4, 4);
        void* first = nullptr;
        void* second = nullptr;
        ASSERT_EQ(QzList_AllocItem(list.get(), 24, &first), S_OK);
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(std::memcmp(first, std::vector<char>(24, 0).data(), 24), 0);
        EXPECT_EQ(QzList_AllocItem(list.get(), 24, &second), E_FAIL);
        EXPECT_EQ(second, nullptr);
        ASSERT_EQ(QzList_InsertList(list.get(), 5, nullptr, -1), S_OK);
        EXPECT_EQ(list->pending_item, nullptr);
        EXPECT_EQ(QZLIST_ITEMPTR(list.get(), 0), first);
        *static_cast<uint32_t*>(first) = 1;

        for (uint32_t tag : {2u, 3u}) add_tagged(list.get(), tag);
        const uint32_t front = 9;
        at = -2;
        ASSERT_EQ(QzList_AllocAndInsertItem(list.get(), &front, 4, 0, &at), S_OK);
        EXPECT_EQ(at, 0);
        EXPECT_EQ(tags(list.get()), (std::vector<uint32_t>{9, 1, 2, 3}));

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
        // The block allocation fails, then the growth of the full slot block.
        for (unsigned failing : {1u, 2u}) {
            FaultPlan plan;
            plan.fail(FaultOp::Alloc, failing);
            at = 5;
            EXPECT_EQ(QzList_AllocAndInsertItem(list.get(), &front, 4, -1, &at), E_OUTOFMEMORY);
            EXPECT_EQ(at, -1);
            EXPECT_EQ(list->pending_item, nullptr);
            EXPECT_EQ(list->count, 4);
            EXPECT_EQ(plan.failures(FaultOp::Alloc), 1u);
        }
#endif
    }
}

TEST(ListReAllocItem, KeepsTheBytesZeroesTheRestAndSizesAreThoseAskedFor) {
    for (DWORD options : {kStandard, kPrivate}) {
        TestList list(0, options);
        add_tagged(list.get(), 0xCAFE);
        ASSERT_EQ(QzList_ReAllocItem(list.get(), 0, 4000), S_OK);
        const auto* bytes = static_cast<const BYTE*>(QZLIST_ITEMPTR(list.get(), 0));
        EXPECT_EQ(*reinterpret_cast<const uint32_t*>(bytes), 0xCAFEu);
        EXPECT_EQ(std::count(bytes + 4, bytes + 4000, 0), 3996);
        EXPECT_EQ(QzList_AllocSize(list.get(), 0), 4000);
        EXPECT_EQ(QzList_ReAllocItem(list.get(), 1, 8), E_FAIL);
#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
        {
            // A failed resize keeps the old block, on either allocator.
            FaultPlan plan;
            plan.fail(FaultOp::Alloc, 1);
            EXPECT_EQ(QzList_ReAllocItem(list.get(), 0, 9000), E_OUTOFMEMORY);
            EXPECT_EQ(plan.failures(FaultOp::Alloc), 1u);
        }
#endif
        EXPECT_EQ(QZLIST_ITEMPTR(list.get(), 0), bytes);
        EXPECT_EQ(QzList_AllocSize(list.get(), 0), 4000);
        EXPECT_EQ(*reinterpret_cast<const uint32_t*>(bytes), 0xCAFEu);

        for (UINT size : {5u, 100u, 0u, 4097u}) {
            int at = -1;
            ASSERT_EQ(QzList_AllocAndInsertItem(list.get(), nullptr, size, -1, &at), S_OK);
            EXPECT_EQ(QzList_AllocSize(list.get(), at), LONG_PTR(size));
        }
        EXPECT_EQ(QzList_AllocSize(list.get(), 5), -1);
        const LONG_PTR whole = 4000 + 5 + 100 + 0 + 4097 + LONG_PTR(GlobalSize(list->items)) +
                               LONG_PTR(sizeof(tQZLIST));
        EXPECT_EQ(QzList_AllocSize(list.get(), -1), whole);
    }
    TestList values(12, QZLIST_VALUES);
    const uint32_t item[3] = {};
    ASSERT_EQ(QzList_InsertList(values.get(), 0, item, 1), S_OK);
    EXPECT_EQ(QzList_AllocSize(values.get(), 0), 12);
    EXPECT_EQ(QzList_ReAllocItem(values.get(), 0, 8), E_FAIL);
}

TEST(ListMoveItemsBetweenHeapLists, HandsBlocksOverInOrder) {
    struct Case {
        int destination_index, source_start, count;
        HRESULT result;
        std::vector<uint32_t> destination, source;
    };
    const Case cases[] = {
        {1, 1, 2, S_OK, {100, 2, 3, 101}, {1, 4}},
        {-1, 2, 2, S_OK, {100, 101, 3, 4}, {1, 2}},
        {0, 0, -1, S_OK, {1, 2, 3, 4, 100, 101}, {}},
        {0, 1, -1, E_FAIL, {100, 101}, {1, 2, 3, 4}},  // the whole count from 1 passes the end
        {0, 3, 2, E_FAIL, {100, 101}, {1, 2, 3, 4}}};
    for (const Case& c : cases) {
        TestList destination(0, kStandard);
        TestList source(0, kStandard);
        for (uint32_t tag : {100u, 101u}) add_tagged(destination.get(), tag);
        for (uint32_t tag : {1u, 2u, 3u, 4u}) add_tagged(source.get(), tag);
        EXPECT_EQ(QzList_MoveItemsBetweenHeapLists(destination.get(), c.destination_index,
                                                   source.get(), c.source_start, c.count),
                  c.result);
        EXPECT_EQ(tags(destination.get()), c.destination);
        EXPECT_EQ(tags(source.get()), c.source);
    }
}

TEST(ListMoveItemsBetweenHeapLists, RefusesWrongListsAndStopsAtTheFirstFailure) {
    TestList standard(0, kStandard, 4, 4);
    TestList standard2(0, kStandard);
    TestList private1(0, kPrivate);
    TestList private2(0, kPrivate);
    TestList values(4, QZLIST_VALUES);
    for (uint32_t tag : {1u, 2u, 3u, 4u}) add_tagged(standard.get(), tag);
    for (uint32_t tag : {5u, 6u, 7u, 8u, 9u, 10u}) add_tagged(standard2.get(), tag);
    add_tagged(private1.get(), 11);
    // Value lists, two private heaps, or mixed allocators cannot hand blocks over.
    const std::pair<tQZLIST*, tQZLIST*> refused[] = {{values.get(), standard.get()},
                                                     {standard.get(), values.get()},
                                                     {private2.get(), private1.get()},
                                                     {standard.get(), private1.get()}};
    for (const auto& [to, from] : refused)
        EXPECT_EQ(QzList_MoveItemsBetweenHeapLists(to, 0, from, 0, 1), E_FAIL);
    EXPECT_EQ(QzList_MoveItemsBetweenHeapLists(standard.get(), 0, standard.get(), 0, 1),
              E_INVALIDARG);
    void* pending = nullptr;
    ASSERT_EQ(QzList_AllocItem(standard.get(), 4, &pending), S_OK);
    EXPECT_EQ(QzList_MoveItemsBetweenHeapLists(standard.get(), 0, standard2.get(), 0, 1), E_FAIL);
    ASSERT_EQ(QzList_DeleteList(standard.get(), -1, -1, FALSE), S_OK);

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
    // The destination is full (4 of 4 slots): its growth fails after two
    // blocks moved, and each block is in exactly one list afterwards.
    ASSERT_EQ(QzList_DeleteList(standard.get(), 2, 2, FALSE), S_OK);
    FaultPlan plan;
    plan.fail(FaultOp::Alloc, 1);
    EXPECT_EQ(QzList_MoveItemsBetweenHeapLists(standard.get(), 1, standard2.get(), 0, 6),
              E_OUTOFMEMORY);
    EXPECT_EQ(tags(standard.get()), (std::vector<uint32_t>{1, 9, 10, 2}));
    EXPECT_EQ(tags(standard2.get()), (std::vector<uint32_t>{5, 6, 7, 8}));
    EXPECT_EQ(standard->pending_item, nullptr);
#endif
}

}  // namespace
