// tQZLIST: creation, the entry rule, growth and shrinking, insertion,
// deletion, block moves, forced counts and in-place headers.
#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <vector>

#include "tests/support/faults.h"
#include "platform/win32api.h"
#include "tests/support/list_support.h"

namespace {

using qz::testing::fill;
using qz::testing::tail_is_zero;
using qz::testing::TestList;
using qz::testing::values;
#if QZ_TEST_FAULTS
using qz::testing::FaultOp;
using qz::testing::FaultPlan;
#endif
using V = std::vector<uint32_t>;

constexpr DWORD kPtrSize = sizeof(void*);

TEST(ListCreate, RoundsItemSizeAndClampsStepAndInitialSlots) {
    struct Case {
        UINT item_size;
        int initial, step;
        DWORD options;
        DWORD want_item_size;
        LONG want_step, want_allocated;
    };
    const Case cases[] = {
        {5, 0, 0, QZLIST_VALUES, 8, 16, 16},     {4, 0, 100000, QZLIST_VALUES, 4, 66560, 66560},
        {4, 1, 1, QZLIST_VALUES, 4, 4, 4},       {4, 17, 16, QZLIST_VALUES, 4, 16, 32},
        {12, -5, -1, QZLIST_VALUES, 12, 16, 16}, {1, 3, 5, QZLIST_VALUES, 4, 5, 5},
        {7, 0, 0, 0, kPtrSize, 16, 16},          {100, 40, 0, QZLIST_HEAPITEMS, kPtrSize, 16, 48}};
    for (const Case& c : cases) {
        TestList list(c.item_size, c.options, c.initial, c.step);
        ASSERT_NE(list.get(), nullptr);
        EXPECT_EQ(list->item_size, c.want_item_size) << c.item_size;
        EXPECT_EQ(list->grow_step, c.want_step) << c.step;
        EXPECT_EQ(list->allocated, c.want_allocated) << c.initial;
        EXPECT_EQ(list->create_options, c.options | QZLIST_ANYTHREAD);
        EXPECT_TRUE(tail_is_zero(list.get()));
    }
}

TEST(ListCreate, InPlaceUsesTheCallersStorageAndBadRequestsAreRefused) {
    tQZLIST storage;
    std::memset(&storage, 0xAB, sizeof(storage));
    tQZLIST* list = &storage;
    ASSERT_EQ(QzList_CreateExZ(&list, 4, 0, 0, QZLIST_VALUES | QZLIST_INPLACE, 0, 0, 0), S_OK);
    EXPECT_EQ(list, &storage);
    EXPECT_EQ(storage.pending_item, nullptr);
    fill(list, 1, 20);
    EXPECT_EQ(QzList_Destroy(list), S_OK);
    EXPECT_EQ(storage.signature, 0u);  // storage untouched otherwise and not freed
    EXPECT_FALSE(QzList_IsListFast(&storage));
    // Both kinds of items, in-place storage not given, or no out pointer.
    list = reinterpret_cast<tQZLIST*>(0x1);
    EXPECT_EQ(QzList_CreateExZ(&list, 4, 0, 0, QZLIST_VALUES | QZLIST_HEAPITEMS, 0, 0, 0), E_FAIL);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(QzList_CreateExZ(&list, 4, 0, 0, QZLIST_INPLACE, 0, 0, 0), E_FAIL);
    EXPECT_EQ(QzList_CreateExZ(nullptr, 4, 0, 0, 0, 0, 0, 0), E_POINTER);
}

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
TEST(ListCreate, AllocationFailuresLeaveNothingBehind) {
    struct Case {
        DWORD options;
        unsigned failing_allocation;  // 1: header, 2: slot block
    };
    const Case cases[] = {{QZLIST_VALUES, 1}, {QZLIST_VALUES, 2}, {QZLIST_HEAPITEMS, 2}};
    for (const Case& c : cases) {
        FaultPlan plan;
        plan.fail(FaultOp::Alloc, c.failing_allocation);
        tQZLIST* list = nullptr;
        EXPECT_EQ(QzList_CreateExZ(&list, 4, 0, 0, c.options, 0, 0, 0), E_OUTOFMEMORY);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(plan.failures(FaultOp::Alloc), 1u);
    }
}
#endif

TEST(ListInsert, NegativeCountCopiesAndNullSourceNeedsThePendingItem) {
    TestList list(4, QZLIST_VALUES);
    const uint32_t three[] = {4, 5, 6};
    EXPECT_EQ(QzList_InsertList(list.get(), 0, three, -3), S_OK);
    EXPECT_EQ(values(list.get()), (V{4, 5, 6}));
    EXPECT_EQ(QzList_InsertList(list.get(), 0, nullptr, 2), E_FAIL);
    EXPECT_EQ(QzList_InsertList(list.get(), 0, nullptr, -1), E_FAIL);  // nothing pending
    EXPECT_EQ(QzList_InsertList(list.get(), 0, three, 0), S_OK);
    EXPECT_EQ(list->count, 3);
    // Indexes outside the items append; inside, the items go in front.
    const uint32_t two[] = {7, 8};
    for (int index : {3, INT_MIN, INT_MAX})
        ASSERT_EQ(QzList_InsertList(list.get(), index, two, 1), S_OK);
    ASSERT_EQ(QzList_InsertList(list.get(), 1, two, 2), S_OK);
    EXPECT_EQ(values(list.get()), (V{4, 7, 8, 5, 6, 7, 7, 7}));

    TestList owner(0, QZLIST_HEAPITEMS | QZLIST_PRIVATEHEAP);
    void* block = HeapAlloc(owner->item_heap, HEAP_ZERO_MEMORY, 8);
    EXPECT_EQ(QzList_InsertList(owner.get(), 0, &block, 1), E_FAIL);  // a positive count
    EXPECT_EQ(QzList_InsertList(owner.get(), 0, nullptr, -2), E_FAIL);
    EXPECT_EQ(QzList_InsertList(owner.get(), 0, &block, -1), S_OK);  // adopted, freed on destroy
    EXPECT_EQ(QZLIST_ITEMPTR(owner.get(), 0), block);
}

TEST(ListDelete, RangeForms) {
    struct Case {
        int index, count;
        HRESULT result;
        V after;
    };
    const Case cases[] = {
        {2, -1, S_OK, {0, 1}},
        {0, -1, S_OK, {}},
        {3, 2, S_OK, {0, 1, 2, 5}},
        {4, 100, S_OK, {0, 1, 2, 3}},
        {6, 1, E_FAIL, {0, 1, 2, 3, 4, 5}},
        {-1, -1, E_FAIL, {0, 1, 2, 3, 4, 5}}  // nothing pending
    };
    for (const Case& c : cases) {
        TestList list(4, QZLIST_VALUES);
        fill(list.get(), 0, 6);
        EXPECT_EQ(QzList_DeleteList(list.get(), c.index, c.count, FALSE), c.result)
            << c.index << "," << c.count;
        EXPECT_EQ(values(list.get()), c.after) << c.index << "," << c.count;
        EXPECT_TRUE(tail_is_zero(list.get()));
    }
}

TEST(ListGrowShrink, WholeGrowStepsOnlyAlsoWhenDeletionShrinks) {
    struct Case {
        bool grow;
        int n;
        LONG allocated_after;
    };
    // A list with 20 items in 32 slots (step 16).
    const Case cases[] = {
        {true, 0, 48}, {true, 17, 64}, {false, -1, 32}, {false, 12, 32}, {false, 100, 32}};
    for (const Case& c : cases) {
        TestList list(4, QZLIST_VALUES, 32, 16);
        fill(list.get(), 0, 20);
        const HRESULT hr = c.grow ? QzList_GrowAllocated(list.get(), c.n)
                                  : QzList_ShrinkAllocated(list.get(), c.n);
        EXPECT_EQ(hr, S_OK);
        EXPECT_EQ(list->allocated, c.allocated_after) << c.grow << " " << c.n;
        EXPECT_TRUE(tail_is_zero(list.get()));
    }
    TestList list(4, QZLIST_VALUES, 64, 16);
    fill(list.get(), 0, 20);
    ASSERT_EQ(QzList_ShrinkAllocated(list.get(), -1), S_OK);  // 44 free: 32 released
    EXPECT_EQ(list->allocated, 32);
    ASSERT_EQ(QzList_DeleteList(list.get(), 0, -1, FALSE), S_OK);
    ASSERT_EQ(QzList_ShrinkAllocated(list.get(), -1), S_OK);
    EXPECT_EQ(list->allocated, 0);
    fill(list.get(), 7, 3);  // an empty allocation still grows
    EXPECT_EQ(values(list.get()), (V{7, 8, 9}));
    // Deleting with the shrink flag releases free slots beyond one grow step.
    TestList deleted(4, QZLIST_VALUES);
    fill(deleted.get(), 0, 100);
    ASSERT_EQ(deleted->allocated, 112);
    ASSERT_EQ(QzList_DeleteList(deleted.get(), 10, 90, TRUE), S_OK);
    EXPECT_EQ(deleted->allocated, 16);  // 102 free: 96 released in whole steps
    fill(deleted.get(), 10, 6);
    ASSERT_EQ(QzList_DeleteList(deleted.get(), 0, 1, TRUE), S_OK);
    EXPECT_EQ(deleted->allocated, 16);  // one free slot: kept
    ASSERT_EQ(QzList_DeleteList(deleted.get(), 0, 1, FALSE), S_OK);
    EXPECT_EQ(values(deleted.get()), (V{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
}

TEST(ListMoveRange, MovesTheBlockAndKeepsTheOthersInOrderWhateverItsSize) {
    struct Case {
        int from, to, count;
        HRESULT result;
        V after;
    };
    const Case cases[] = {
        {0, 3, 2, S_OK, {2, 3, 4, 0, 1, 5, 6, 7}},
        {5, 1, 3, S_OK, {0, 5, 6, 7, 1, 2, 3, 4}},
        {2, -4, 1, S_OK, {2, 0, 1, 3, 4, 5, 6, 7}},  // to < 0 is 0
        {1, 4, -1, S_OK, {0, 5, 6, 7, 1, 2, 3, 4}},  // count to the end of the later range
        {3, 3, 2, S_OK, {0, 1, 2, 3, 4, 5, 6, 7}},
        {6, 0, 3, E_FAIL, {0, 1, 2, 3, 4, 5, 6, 7}},
        {0, 6, 3, E_FAIL, {0, 1, 2, 3, 4, 5, 6, 7}},
        {-1, 0, 1, E_INVALIDARG, {0, 1, 2, 3, 4, 5, 6, 7}}};
    for (const Case& c : cases) {
        TestList list(4, QZLIST_VALUES);
        fill(list.get(), 0, 8);
        EXPECT_EQ(QzList_MoveRange(list.get(), c.from, c.to, c.count), c.result)
            << c.from << "->" << c.to << " x" << c.count;
        EXPECT_EQ(values(list.get()), c.after) << c.from << "->" << c.to << " x" << c.count;
    }
    TestList large(64, QZLIST_VALUES);  // 9 items of 64 bytes exceed the stack scratch
    for (uint32_t v = 0; v < 12; ++v) {
        uint32_t item[16] = {v, v, v};
        ASSERT_EQ(QzList_InsertList(large.get(), -1, item, 1), S_OK);
    }
    auto first_words = [&] {
        V out;
        for (LONG i = 0; i < large->count; ++i)
            out.push_back(*static_cast<uint32_t*>(QZLIST_ITEMADDR(large.get(), i)));
        return out;
    };
    ASSERT_EQ(QzList_MoveRange(large.get(), 0, 3, 9), S_OK);
    EXPECT_EQ(first_words(), (V{9, 10, 11, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(ListForceItemCount, ValueListsOnlyWithZeroedNewItems) {
    TestList pointers(0, 0);
    EXPECT_EQ(QzList_ArrayForceItemCount(pointers.get(), 3, FALSE), E_FAIL);

    TestList list(4, QZLIST_VALUES);
    fill(list.get(), 1, 10);
    EXPECT_EQ(QzList_ArrayForceItemCount(list.get(), -1, FALSE), E_INVALIDARG);
    ASSERT_EQ(QzList_ArrayForceItemCount(list.get(), 3, TRUE), S_OK);
    EXPECT_EQ(list->allocated, 16);  // the shrink flag releases nothing
    EXPECT_EQ(values(list.get()), (V{1, 2, 3}));
    ASSERT_EQ(QzList_ArrayForceItemCount(list.get(), 5, FALSE), S_OK);
    EXPECT_EQ(values(list.get()), (V{1, 2, 3, 0, 0}));
    ASSERT_EQ(QzList_ArrayForceItemCount(list.get(), 40, FALSE), S_OK);
    EXPECT_EQ(list->allocated, 48);  // grown by 24, rounded up to 32
    EXPECT_EQ(values(list.get())[39], 0u);
}

TEST(ListIsList, ChecksTheSizeBeforeReadingAnything) {
    const void* unreadable = reinterpret_cast<const void*>(uintptr_t(16));
    EXPECT_FALSE(QzList_IsList(unreadable, sizeof(tQZLIST)));
    EXPECT_FALSE(QzList_IsList(nullptr, sizeof(tQZLIST)));
    TestList list(4, QZLIST_VALUES);
    EXPECT_TRUE(QzList_IsList(list.get(), sizeof(tQZLIST)));
    EXPECT_FALSE(QzList_IsList(list.get(), sizeof(tQZLIST) + 4));
    tQZLIST zeroed{};
    EXPECT_FALSE(QzList_IsList(&zeroed, sizeof(tQZLIST)));
}

TEST(ListEntryRule, ForeignThreadsDeadAndNullListsAreRefused) {
    TestList list(4, QZLIST_VALUES);
    fill(list.get(), 5, 3);
    list->create_options &= ~QZLIST_ANYTHREAD;  // as a header set up by hand would be
    ASSERT_EQ(QzList_SetUserData(list.get(), 77), 0);
    EXPECT_EQ(QzList_SetUserData(list.get(), 77), 77);  // exchanges

    struct Seen {
        HRESULT insert, del, set_owner;
        int find;
        LONG_PTR size, user;
        bool operator==(const Seen&) const = default;
    } seen{};
    auto from_other_thread = [&] {
        std::thread([&] {
            const uint32_t v = 1;
            seen.insert = QzList_InsertList(list.get(), 0, &v, 1);
            seen.del = QzList_DeleteList(list.get(), 0, 1, FALSE);
            seen.set_owner = QzList_SetThreadOwner(list.get(), 0);
            seen.find = QzList_FindSpecificItemRange(list.get(), 0, -1, &v);
            seen.size = QzList_AllocSize(list.get(), -1);
            seen.user = QzList_GetUserData(list.get());
        }).join();
    };
    from_other_thread();
    EXPECT_EQ(seen, (Seen{E_FAIL, E_FAIL, E_FAIL, -1, -1, -1}));
    EXPECT_EQ(values(list.get()), (V{5, 6, 7}));

    // Handing the list to another thread locks its creator out.
    ASSERT_EQ(QzList_SetThreadOwner(list.get(), GetCurrentThreadId() + 1), S_OK);
    EXPECT_EQ(QzList_GetUserData(list.get()), -1);
    list->thread_owner = GetCurrentThreadId();
    list->create_options |= QZLIST_ANYTHREAD;
    from_other_thread();
    EXPECT_EQ(seen.insert, S_OK);
    EXPECT_EQ(seen.user, 77);
    tQZLIST dead{};
    const uint32_t v = 1;
    EXPECT_EQ(QzList_InsertList(nullptr, 0, &v, 1), E_INVALIDARG);
    EXPECT_EQ(QzList_InsertList(&dead, 0, &v, 1), E_INVALIDARG);
    EXPECT_EQ(QzList_Destroy(nullptr), S_OK);
    EXPECT_EQ(QzList_Destroy(&dead), E_INVALIDARG);
    WCHAR name[4] = {QZTEXT('x')};
    EXPECT_EQ(QzList_GetFileAndLine(&dead, name, 4), -1);
    EXPECT_EQ(name[0], 0);
}

TEST(ListConvertToInPlace, MovesTheHeaderIntoCallerStorage) {
    for (DWORD options : {QZLIST_VALUES, QZLIST_VALUES | QZLIST_THREADSAFE}) {
        tQZLIST* list = nullptr;
        ASSERT_EQ(QzList_CreateExZ(&list, 4, 0, 0, options, 0, 0, 0), S_OK);
        fill(list, 1, 20);
        tQZLIST storage;
        EXPECT_EQ(QzList_ConvertToInPlace(&list, nullptr), E_INVALIDARG);
        ASSERT_EQ(QzList_ConvertToInPlace(&list, &storage), S_OK);
        EXPECT_EQ(list, nullptr);
        EXPECT_TRUE(storage.create_options & QZLIST_INPLACE);
        fill(&storage, 21, 20);  // the moved list (and its lock) works
        EXPECT_EQ(values(&storage).back(), 40u);
        tQZLIST* again = &storage;
        tQZLIST other;
        EXPECT_EQ(QzList_ConvertToInPlace(&again, &other), E_FAIL);  // already in place
        EXPECT_EQ(QzList_Destroy(&storage), S_OK);
    }
}

}  // namespace
