// Private heaps: sizes, in-place growth, foreign pointers, destruction.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/posix/fault_plan.h"
#include "platform/win32api.h"

namespace {

constexpr SIZE_T kHeapSizeFailed = static_cast<SIZE_T>(-1);

bool all_bytes(const void* data, SIZE_T from, SIZE_T to, unsigned char value) {
    const auto* p = static_cast<const unsigned char*>(data);
    return std::all_of(p + from, p + to, [&](unsigned char b) { return b == value; });
}

TEST(Heap, AllocSizeAndZeroMemoryOnPrivateAndProcessHeaps) {
    HANDLE heap = HeapCreate(0, 0, 0);
    ASSERT_NE(heap, nullptr);
    for (SIZE_T bytes : {0ul, 33ul, 65536ul}) {
        void* p = HeapAlloc(heap, HEAP_ZERO_MEMORY, bytes);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(HeapSize(heap, 0, p), bytes);
        EXPECT_TRUE(all_bytes(p, 0, bytes, 0));
        EXPECT_TRUE(HeapFree(heap, 0, p));
    }
    EXPECT_TRUE(HeapFree(heap, 0, nullptr));
    EXPECT_TRUE(HeapDestroy(heap));
    // The process heap is shared and cannot be destroyed.
    HANDLE process = GetProcessHeap();
    ASSERT_NE(process, nullptr);
    EXPECT_EQ(GetProcessHeap(), process);
    void* shared = HeapAlloc(process, HEAP_ZERO_MEMORY, 12);
    ASSERT_NE(shared, nullptr);
    EXPECT_FALSE(HeapDestroy(process));
    EXPECT_FALSE(CloseHandle(process));
    EXPECT_TRUE(HeapFree(process, 0, shared));
}

TEST(Heap, ReAllocZeroesGrowthAndInPlaceOnlyNeverMoves) {
    HANDLE heap = HeapCreate(0, 0, 0);
    auto* p = static_cast<unsigned char*>(HeapAlloc(heap, 0, 64));
    std::memset(p, 0x11, 64);
    ASSERT_EQ(HeapReAlloc(heap, HEAP_REALLOC_IN_PLACE_ONLY, p, 8), p);
    EXPECT_EQ(HeapSize(heap, 0, p), 8u);
    ASSERT_EQ(HeapReAlloc(heap, HEAP_ZERO_MEMORY | HEAP_REALLOC_IN_PLACE_ONLY, p, 64), p);
    EXPECT_TRUE(all_bytes(p, 0, 8, 0x11));
    EXPECT_TRUE(all_bytes(p, 8, 64, 0));

    SetLastError(0);
    EXPECT_EQ(HeapReAlloc(heap, HEAP_REALLOC_IN_PLACE_ONLY, p, 1 << 20), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(HeapSize(heap, 0, p), 64u);

    auto* q = static_cast<unsigned char*>(HeapReAlloc(heap, HEAP_ZERO_MEMORY, p, 1 << 20));
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(HeapSize(heap, 0, q), static_cast<SIZE_T>(1 << 20));
    EXPECT_TRUE(all_bytes(q, 0, 8, 0x11));
    EXPECT_TRUE(all_bytes(q, 8, 1 << 20, 0));
    EXPECT_TRUE(HeapFree(heap, 0, q));
    HeapDestroy(heap);
}

// Blocks of up to 256 bytes share slabs by size class; growth walks them
// across the class edges and out of the slabs, keeping and zeroing bytes,
// and a block's neighbours or insides are never taken for it.
TEST(Heap, SmallBlocksGrowAcrossTheirClassesAndStayApart) {
    HANDLE heap = HeapCreate(0, 0, 0);
    std::vector<unsigned char*> blocks;
    for (SIZE_T bytes : {1ul, 16ul, 17ul, 255ul, 256ul, 257ul}) {
        auto* p = static_cast<unsigned char*>(HeapAlloc(heap, 0, bytes));
        ASSERT_NE(p, nullptr);
        std::memset(p, int(bytes), bytes);
        blocks.push_back(p);
    }
    for (unsigned char*& p : blocks) {
        const SIZE_T old = HeapSize(heap, 0, p);
        EXPECT_EQ(HeapSize(heap, 0, p + 8), kHeapSizeFailed) << old;
        for (SIZE_T grown = old + 7; grown < 600; grown += 61) {
            // Twice: the second growth finds stale bytes in the room it grows into.
            for (int pass = 0; pass < 2; ++pass) {
                auto* q = static_cast<unsigned char*>(HeapReAlloc(heap, HEAP_ZERO_MEMORY, p, grown));
                ASSERT_NE(q, nullptr);
                EXPECT_TRUE(all_bytes(q, 0, old, (unsigned char)old)) << old << " to " << grown;
                EXPECT_TRUE(all_bytes(q, old, grown, 0)) << old << " to " << grown;
                std::memset(q + old, 0x5A, grown - old);
                p = static_cast<unsigned char*>(HeapReAlloc(heap, 0, q, old));
                ASSERT_NE(p, nullptr);
            }
        }
    }
    unsigned char* first = blocks.front();
    EXPECT_TRUE(HeapFree(heap, 0, first));
    EXPECT_EQ(HeapSize(heap, 0, first), kHeapSizeFailed);
    EXPECT_FALSE(HeapFree(heap, 0, first));
    for (unsigned char* p : std::vector<unsigned char*>(blocks.begin() + 1, blocks.end()))
        EXPECT_TRUE(HeapFree(heap, 0, p));
    EXPECT_TRUE(HeapDestroy(heap));
}

TEST(Heap, ForeignFreedPointersAndDestroyedHeapsAreRefused) {
    HANDLE a = HeapCreate(0, 0, 0);
    HANDLE b = HeapCreate(0, 0, 0);
    void* in_a = HeapAlloc(a, 0, 16);
    int on_stack = 0;
    for (void* foreign : {static_cast<void*>(&on_stack), in_a}) {
        SetLastError(0);
        EXPECT_FALSE(HeapFree(b, 0, foreign));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
        EXPECT_EQ(HeapSize(b, 0, foreign), kHeapSizeFailed);
        EXPECT_EQ(HeapReAlloc(b, 0, foreign, 32), nullptr);
    }
    EXPECT_TRUE(HeapFree(a, 0, in_a));
    EXPECT_FALSE(HeapFree(a, 0, in_a));
    EXPECT_EQ(HeapSize(a, 0, in_a), kHeapSizeFailed);
    HeapDestroy(a);
    HeapDestroy(b);
    // Destruction frees live blocks and invalidates the handle.
    HANDLE heap = HeapCreate(0, 0, 0);
    for (int i = 0; i < 100; ++i) ASSERT_NE(HeapAlloc(heap, 0, 100 + i), nullptr);
    void* grown = HeapReAlloc(heap, 0, HeapAlloc(heap, 0, 10), 100000);
    ASSERT_NE(grown, nullptr);
    EXPECT_TRUE(HeapDestroy(heap));  // the sanitizer build reports any leak

    SetLastError(0);
    EXPECT_EQ(HeapAlloc(heap, 0, 8), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(HeapDestroy(heap));
}

TEST(Heap, MaximumSizeBoundsTheBlocksTogether) {
    HANDLE heap = HeapCreate(0, 0, 1000);
    void* a = HeapAlloc(heap, 0, 600);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(HeapAlloc(heap, 0, 401), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    void* b = HeapAlloc(heap, 0, 400);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(HeapReAlloc(heap, 0, a, 601), nullptr);
    ASSERT_NE(HeapReAlloc(heap, 0, a, 100), nullptr);
    EXPECT_NE(HeapAlloc(heap, 0, 500), nullptr);
    HeapDestroy(heap);
}

TEST(Heap, AllocationFaultsFailCleanly) {
    HANDLE heap = HeapCreate(0, 0, 0);
    void* p = HeapAlloc(heap, 0, 8);
    {
        qz::testing::FaultPlan plan;
        plan.fail(qz::testing::FaultOp::Alloc, 1, 3);
        EXPECT_EQ(HeapCreate(0, 0, 0), nullptr);
        EXPECT_EQ(HeapAlloc(heap, 0, 8), nullptr);
        EXPECT_EQ(HeapReAlloc(heap, 0, p, 4096), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
        EXPECT_EQ(HeapSize(heap, 0, p), 8u);
        EXPECT_NE(HeapReAlloc(heap, 0, p, 4096), nullptr);
        EXPECT_EQ(plan.failures(qz::testing::FaultOp::Alloc), 3u);
    }
    HeapDestroy(heap);
}

}  // namespace
