// tQZLIST: a thread-safe list shared by several threads loses nothing, and
// calls on two lists do not deadlock whichever way threads run them.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "platform/win32api.h"
#include "tests/support/list_support.h"

namespace {

using qz::testing::TestList;

constexpr uint32_t kThreads = 4;

uint32_t tag(uint32_t thread, uint32_t i) {
    return thread << 20 | i;
}

TEST(ListThreads, OwnedBlocksSurviveConcurrentAllocationAndDeletion) {
    for (DWORD options : {QZLIST_HEAPITEMS, QZLIST_HEAPITEMS | QZLIST_PRIVATEHEAP}) {
        TestList list(0, options | QZLIST_THREADSAFE);
        std::vector<std::thread> threads;
        for (uint32_t t = 0; t < kThreads; ++t) {
            threads.emplace_back([&list, t] {
                for (uint32_t i = 0; i < 500; ++i) {
                    uint32_t block[17] = {tag(t, i)};
                    ASSERT_EQ(
                        QzList_AllocAndInsertItem(list.get(), block, 4 + 4 * (i % 17), 0, nullptr),
                        S_OK);
                    if (i % 4 == 3) {
                        ASSERT_EQ(QzList_DeleteList(list.get(), 0, 1, FALSE), S_OK);
                    }
                }
            });
        }
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(list->count, LONG(kThreads * 375));
    }
}

// Runs `one` and `two` on threads of their own. Threads stuck in a deadlock
// cannot be joined, nor their lists destroyed, so a deadlock ends the run.
void run_both_or_die(const char* what, const std::function<void()>& one,
                     const std::function<void()>& two) {
    std::atomic<int> ready{0}, done{0};
    // Both start together, or the first may be done before the second runs.
    auto run = [&](const std::function<void()>& work) {
        ++ready;
        while (ready.load() < 2) std::this_thread::yield();
        work();
        ++done;
    };
    std::thread first(run, std::cref(one));
    std::thread second(run, std::cref(two));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (done.load() < 2) {
        if (std::chrono::steady_clock::now() > deadline) {
            std::fprintf(stderr, "%s: the two threads deadlocked\n", what);
            std::fflush(stderr);
            std::_Exit(EXIT_FAILURE);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    first.join();
    second.join();
}

TEST(ListThreads, SortToBetweenTwoListsBothWaysDoesNotDeadlock) {
    constexpr int kRounds = 10000;
    constexpr uint32_t kKeep = 4;
    TestList a(4, QZLIST_VALUES | QZLIST_THREADSAFE);
    TestList b(4, QZLIST_VALUES | QZLIST_THREADSAFE);
    qz::testing::fill(a.get(), 0, kKeep);
    qz::testing::fill(b.get(), 100, kKeep);
    std::atomic<int> failures{0};
    // Each thread sorts one list into the other and cuts it back to kKeep
    // items, so the lists stay small; both keep their order throughout.
    auto sort_into = [&](tQZLIST* to, tQZLIST* from, LONG_PTR criteria) {
        return [&failures, to, from, criteria] {
            for (int i = 0; i < kRounds; ++i) {
                if (QzList_SortTo(to, from, criteria, qz::testing::compare_u32) != S_OK) ++failures;
                if (QzList_DeleteList(to, kKeep, -1, FALSE) != S_OK) ++failures;
            }
        };
    };
    run_both_or_die("QzList_SortTo", sort_into(b.get(), a.get(), 2),
                    sort_into(a.get(), b.get(), 3));
    EXPECT_EQ(failures.load(), 0);
    for (tQZLIST* list : {a.get(), b.get()}) {
        const std::vector<uint32_t> got = qz::testing::values(list);
        EXPECT_EQ(got.size(), kKeep);
        EXPECT_TRUE(std::is_sorted(got.begin(), got.end()));
    }
    EXPECT_EQ(QzList_GetSortCriteria(a.get()), 3);
    EXPECT_EQ(QzList_GetSortCriteria(b.get()), 2);
}

TEST(ListThreads, MovingBlocksBetweenTwoListsBothWaysLosesNone) {
    constexpr int kRounds = 100000;
    constexpr uint32_t kBlocks = 24;
    TestList a(0, QZLIST_HEAPITEMS | QZLIST_THREADSAFE);
    TestList b(0, QZLIST_HEAPITEMS | QZLIST_THREADSAFE);
    for (uint32_t i = 0; i < kBlocks; ++i)
        ASSERT_EQ(QzList_AllocAndInsertItem(i % 2 ? a.get() : b.get(), &i, 4, -1, nullptr), S_OK);
    std::atomic<int> failures{0};
    // Everything in one list goes over to the other, to its front or its end.
    auto move_into = [&](tQZLIST* to, tQZLIST* from) {
        return [&failures, to, from] {
            for (int i = 0; i < kRounds; ++i)
                if (QzList_MoveItemsBetweenHeapLists(to, i % 2 ? -1 : 0, from, 0, -1) != S_OK)
                    ++failures;
        };
    };
    run_both_or_die("QzList_MoveItemsBetweenHeapLists", move_into(b.get(), a.get()),
                    move_into(a.get(), b.get()));
    EXPECT_EQ(failures.load(), 0);
    std::vector<uint32_t> tags;
    for (tQZLIST* list : {a.get(), b.get()})
        for (LONG i = 0; i < list->count; ++i)
            tags.push_back(*static_cast<const uint32_t*>(static_cast<void**>(list->items)[i]));
    std::sort(tags.begin(), tags.end());
    std::vector<uint32_t> expected(kBlocks);
    for (uint32_t i = 0; i < kBlocks; ++i) expected[i] = i;
    EXPECT_EQ(tags, expected);
}

}  // namespace
