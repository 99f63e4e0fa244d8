// Global memory: handles, locks, resizing, bad handles and faults.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "platform/posix/fault_plan.h"
#include "platform/posix/sized_block.h"
#include "platform/win32api.h"

namespace {

using qz::testing::FaultOp;
using qz::testing::FaultPlan;

bool all_bytes(const void* data, SIZE_T from, SIZE_T to, unsigned char value) {
    const auto* p = static_cast<const unsigned char*>(data);
    return std::all_of(p + from, p + to, [&](unsigned char b) { return b == value; });
}

TEST(GlobalMemory, FixedHandleIsTheAddressMoveableIsNotAndLocksCount) {
    // Sizes are what was asked and zero-init zeroes, even where a freed
    // block left its bytes.
    HGLOBAL dirty = GlobalAlloc(GMEM_FIXED, 40);
    std::memset(dirty, 0x5A, 40);
    GlobalFree(dirty);
    HGLOBAL fixed = GlobalAlloc(GPTR, 40);
    ASSERT_NE(fixed, nullptr);
    EXPECT_EQ(GlobalLock(fixed), fixed);
    EXPECT_EQ(GlobalSize(fixed), 40u);
    EXPECT_TRUE(all_bytes(fixed, 0, 40, 0));
    EXPECT_TRUE(GlobalUnlock(fixed));  // a fixed block has no lock count
    EXPECT_EQ(GlobalHandle(fixed), fixed);
    EXPECT_EQ(GlobalFree(fixed), nullptr);

    HGLOBAL h = GlobalAlloc(GHND, 24);
    void* p = GlobalLock(h);
    ASSERT_NE(p, nullptr);
    EXPECT_NE(p, h);
    EXPECT_EQ(GlobalSize(h), 24u);
    EXPECT_TRUE(all_bytes(p, 0, 24, 0));
    EXPECT_EQ(GlobalHandle(p), h);
    // An address inside the block is not the block.
    SetLastError(0);
    EXPECT_EQ(GlobalHandle(static_cast<char*>(p) + 1), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    GlobalUnlock(h);
    EXPECT_EQ(GlobalFree(h), nullptr);
    // Unlocking reports the count reaching zero, and blocks not locked.
    HGLOBAL counted = GlobalAlloc(GMEM_MOVEABLE, 8);
    ASSERT_NE(counted, nullptr);
    void* first = GlobalLock(counted);
    EXPECT_EQ(GlobalLock(counted), first);
    EXPECT_TRUE(GlobalUnlock(counted));  // still locked once
    SetLastError(ERROR_GEN_FAILURE);
    EXPECT_FALSE(GlobalUnlock(counted));  // now unlocked: FALSE with NO_ERROR
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NO_ERROR));
    EXPECT_FALSE(GlobalUnlock(counted));  // was not locked
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_LOCKED));
    GlobalFree(counted);
}

TEST(GlobalMemory, ReAllocKeepsHandleContentsAndZeroesGrowthOrModifiesFlagsOnly) {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, 100);
    ASSERT_NE(h, nullptr);
    auto* p = static_cast<unsigned char*>(GlobalLock(h));
    std::memset(p, 0xAB, 100);
    GlobalUnlock(h);

    // Shrink, then grow back within the old room: the stale bytes past the
    // smaller size must not reappear.
    ASSERT_EQ(GlobalReAlloc(h, 10, GMEM_MOVEABLE), h);
    EXPECT_EQ(GlobalSize(h), 10u);
    ASSERT_EQ(GlobalReAlloc(h, 100, GMEM_MOVEABLE | GMEM_ZEROINIT), h);
    p = static_cast<unsigned char*>(GlobalLock(h));
    EXPECT_TRUE(all_bytes(p, 0, 10, 0xAB));
    EXPECT_TRUE(all_bytes(p, 10, 100, 0));
    GlobalUnlock(h);

    // Far past the room: the data moves, the handle stays.
    ASSERT_EQ(GlobalReAlloc(h, 1 << 20, GMEM_ZEROINIT), h);
    EXPECT_EQ(GlobalSize(h), static_cast<SIZE_T>(1 << 20));
    p = static_cast<unsigned char*>(GlobalLock(h));
    EXPECT_EQ(GlobalHandle(p), h);
    EXPECT_TRUE(all_bytes(p, 0, 10, 0xAB));
    EXPECT_TRUE(all_bytes(p, 10, 1 << 20, 0));
    GlobalUnlock(h);
    GlobalFree(h);
    // GMEM_MODIFY changes the flags only: a fixed block gets a handle.
    HGLOBAL fixed = GlobalAlloc(GMEM_FIXED, 32);
    ASSERT_NE(fixed, nullptr);
    HGLOBAL modified = GlobalReAlloc(fixed, 4096, GMEM_MODIFY | GMEM_MOVEABLE);
    ASSERT_NE(modified, nullptr);
    EXPECT_NE(modified, fixed);
    EXPECT_EQ(GlobalSize(modified), 32u);  // the size argument is ignored
    EXPECT_EQ(GlobalLock(modified), fixed);
    EXPECT_EQ(GlobalHandle(fixed), modified);
    GlobalUnlock(modified);
    EXPECT_EQ(GlobalFree(fixed), fixed);  // the old handle is gone
    EXPECT_EQ(GlobalFree(modified), nullptr);
}

TEST(GlobalMemory, HeldAddressesMoveOnlyWhenTheCallerAllows) {
    // A locked moveable block cannot move without GMEM_MOVEABLE.
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, 16);
    void* p = GlobalLock(h);
    std::memset(p, 0x5A, 16);
    EXPECT_EQ(GlobalReAlloc(h, 1 << 16, 0), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
    EXPECT_EQ(GlobalSize(h), 16u);
    EXPECT_EQ(GlobalReAlloc(h, 8, 0), h);  // shrinking in place is fine
    EXPECT_EQ(GlobalLock(h), p);
    GlobalUnlock(h);
    GlobalUnlock(h);
    GlobalFree(h);

    // A fixed block moves only with GMEM_MOVEABLE, and its handle follows.
    HGLOBAL fixed = GlobalAlloc(GMEM_FIXED, 16);
    std::memset(fixed, 0x5A, 16);
    EXPECT_EQ(GlobalReAlloc(fixed, 1 << 16, 0), nullptr);
    HGLOBAL moved = GlobalReAlloc(fixed, 1 << 16, GMEM_MOVEABLE);
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(GlobalHandle(moved), moved);
    EXPECT_EQ(GlobalSize(moved), static_cast<SIZE_T>(1 << 16));
    EXPECT_TRUE(all_bytes(moved, 0, 16, 0x5A));
    EXPECT_EQ(GlobalFree(moved), nullptr);
}

TEST(GlobalMemory, BadHandlesAndFailedAllocationsAreRefusedWithoutACrash) {
    HGLOBAL moveable = GlobalAlloc(GMEM_MOVEABLE, 8);
    HGLOBAL fixed = GlobalAlloc(GMEM_FIXED, 8);
    ASSERT_EQ(GlobalFree(moveable), nullptr);
    ASSERT_EQ(GlobalFree(fixed), nullptr);
    int on_stack = 0;
    for (HGLOBAL bad : {moveable, fixed, static_cast<HGLOBAL>(&on_stack), INVALID_HANDLE_VALUE}) {
        SetLastError(0);
        EXPECT_EQ(GlobalFree(bad), bad);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
        EXPECT_EQ(GlobalLock(bad), nullptr);
        EXPECT_EQ(GlobalReAlloc(bad, 64, GMEM_MOVEABLE), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    }
    EXPECT_EQ(GlobalFree(nullptr), nullptr);
    // Failed allocations fail cleanly.
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, 4);
    ASSERT_NE(h, nullptr);
    {
        FaultPlan plan;
        plan.fail(FaultOp::Alloc, 2);
        HGLOBAL first = GlobalAlloc(GMEM_FIXED, 4);
        EXPECT_NE(first, nullptr);
        SetLastError(0);
        EXPECT_EQ(GlobalReAlloc(h, 64, GMEM_ZEROINIT), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));
        EXPECT_EQ(GlobalSize(h), 4u);  // the failed resize left the block alone
        EXPECT_EQ(plan.failures(FaultOp::Alloc), 1u);

        plan.fail(FaultOp::Alloc, 1, 1, ERROR_OUTOFMEMORY);
        EXPECT_EQ(GlobalAlloc(GHND, 4), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_OUTOFMEMORY));
        HGLOBAL after = GlobalAlloc(GHND, 4);
        EXPECT_NE(after, nullptr);
        GlobalFree(after);
        GlobalFree(first);
    }
    GlobalFree(h);
}

}  // namespace
