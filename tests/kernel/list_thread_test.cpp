// tQZLIST: a thread-safe list shared by several threads loses nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "support/list_support.h"
#include "win32api.h"

namespace {

using qz::testing::TestList;

constexpr uint32_t kThreads = 4;
constexpr uint32_t kItemsPerThread = 1500;

uint32_t tag(uint32_t thread, uint32_t i) {
    return thread << 20 | i;
}

// Each thread inserts its own tagged items at the front, the end or the
// middle, and deletes every second one again; a find followed by a delete
// runs under the list's own (recursive) lock, as a host would do it.
void work(tQZLIST* list, uint32_t thread) {
    for (uint32_t i = 0; i < kItemsPerThread; ++i) {
        const uint32_t value = tag(thread, i);
        const int where = i % 3 == 0 ? 0 : (i % 3 == 1 ? -1 : int(i / 2));
        ASSERT_EQ(QzList_InsertList(list, where, &value, 1), S_OK);
        if (i % 2 == 1) {
            const uint32_t victim = tag(thread, i - 1);
            EnterCriticalSection(&list->lock);
            const int at = QzList_FindSpecificItemRange(list, 0, -1, &victim);
            const HRESULT hr = at >= 0 ? QzList_DeleteList(list, at, 1, TRUE) : E_FAIL;
            LeaveCriticalSection(&list->lock);
            ASSERT_EQ(hr, S_OK) << "lost " << victim;
        }
    }
}

TEST(ListThreads, InsertsAndDeletesFromSeveralThreadsLoseNothing) {
    TestList list(4, QZLIST_VALUES | QZLIST_THREADSAFE);
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < kThreads; ++t) threads.emplace_back(work, list.get(), t);
    for (auto& thread : threads) thread.join();

    std::vector<uint32_t> got = qz::testing::values(list.get());
    std::vector<uint32_t> expected;
    for (uint32_t t = 0; t < kThreads; ++t)
        for (uint32_t i = 1; i < kItemsPerThread; i += 2) expected.push_back(tag(t, i));
    std::sort(got.begin(), got.end());
    EXPECT_EQ(got, expected);
    EXPECT_TRUE(qz::testing::tail_is_zero(list.get()));
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

}  // namespace
