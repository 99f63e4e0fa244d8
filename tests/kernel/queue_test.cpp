// The intrusive queue: order, the not-empty event, searches and moves,
// waiting removals, deletion, and many threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "qz/qzqueue.h"
#include "platform/win32api.h"

namespace {

struct Item {
    tQZQELM links{};
    LONG_PTR key = 0;
};

LONG_PTR key_of(const tQZQELM* e) {
    return reinterpret_cast<const Item*>(e)->key;
}
BOOL QZ_STDCALL key_equals(tQZQELM* e, LONG_PTR key) {
    return key_of(e) == key;
}
BOOL QZ_STDCALL key_at_least(tQZQELM* e, LONG_PTR key) {
    return key_of(e) >= key;
}

using Keys = std::vector<LONG_PTR>;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A queue holding items with the keys 1..n in that order.
struct Queue {
    explicit Queue(int n = 0) : items(size_t(n)) {
        EXPECT_TRUE(QzQueueInitialize(&head));
        for (int i = 0; i < n; ++i) {
            items[size_t(i)].key = i + 1;
            QzQueueInsert(&head, &items[size_t(i)].links);
        }
    }
    ~Queue() { QzQueueDelete(&head); }
    tQZQELM* item(int key) { return &items[size_t(key - 1)].links; }
    tQZQELM* anchor() { return reinterpret_cast<tQZQELM*>(&head); }
    bool signalled() { return WaitForSingleObject(head.not_empty, 0) == WAIT_OBJECT_0; }
    // The keys from the front; the backward links must tell the same story.
    Keys keys() {
        Keys forward, backward;
        for (tQZQELM* e = head.first; e != anchor(); e = e->next) forward.push_back(key_of(e));
        for (tQZQELM* e = head.last; e != anchor(); e = e->prev) backward.push_back(key_of(e));
        std::reverse(backward.begin(), backward.end());
        EXPECT_EQ(forward, backward);
        return forward;
    }
    tQZQHEAD head{};
    std::vector<Item> items;
    Item added{{}, 9};
};

TEST(QzQueue, InitialiseEmptiesAndKeepsAnExistingEvent) {
    Queue q(2);
    const HANDLE event = q.head.not_empty;
    EXPECT_TRUE(QzQueueInitialize(&q.head));
    EXPECT_EQ(q.head.not_empty, event);
    EXPECT_EQ(q.head.first, q.anchor());
    EXPECT_EQ(q.head.last, q.anchor());
    QzQueueDelete(&q.head);
    EXPECT_EQ(q.head.not_empty, nullptr);
    QzQueueDelete(&q.head);  // a second deletion does nothing
}

TEST(QzQueueEvent, SignalledByTheInsertionIntoAnEmptyQueueOnly) {
    struct Case {
        std::function<void(tQZQHEAD*, tQZQELM*)> insert;
        Keys after;  // inserting 1, then 2
    } cases[] = {
        {QzQueueInsert, {1, 2}},
        {QzQueueInsertHead, {2, 1}},
        {[](tQZQHEAD* h, tQZQELM* e) { QzQueueInsertEx(h, key_equals, 7, e); }, {1, 2}},
        {[](tQZQHEAD* h, tQZQELM* e) { QzQueueInsertExRev(h, key_equals, 7, e); }, {1, 2}},
    };
    for (const Case& c : cases) {
        Queue q;
        Item one{{}, 1}, two{{}, 2};
        c.insert(&q.head, &one.links);
        EXPECT_TRUE(q.signalled());
        ResetEvent(q.head.not_empty);
        c.insert(&q.head, &two.links);
        EXPECT_FALSE(q.signalled());
        EXPECT_EQ(q.keys(), c.after);
    }
}

TEST(QzQueueEvent, ResetByTheRemovalThatEmptiesTheQueue) {
    struct Case {
        std::function<tQZQELM*(tQZQHEAD*)> remove;
        LONG_PTR first;  // the key removed first from {1, 2}
    } cases[] = {
        {[](tQZQHEAD* h) { return QzQueueRemove(h, 0); }, 1},
        {[](tQZQHEAD* h) { return QzQueueRemoveTail(h, 0); }, 2},
        {[](tQZQHEAD* h) { return QzQueueFindAndRemove(h, key_at_least, 0); }, 1},
        {[](tQZQHEAD* h) { return QzQueueFindAndRemoveRev(h, key_at_least, 0); }, 2},
    };
    for (const Case& c : cases) {
        Queue q(2);
        EXPECT_EQ(c.remove(&q.head), q.item(int(c.first)));
        EXPECT_EQ(q.item(int(c.first))->next, nullptr);
        EXPECT_EQ(q.item(int(c.first))->prev, nullptr);
        EXPECT_TRUE(q.signalled());
        EXPECT_NE(c.remove(&q.head), nullptr);
        EXPECT_FALSE(q.signalled());
        EXPECT_EQ(c.remove(&q.head), nullptr);
    }
}

// Calls on the queue {1, 2, 3, 4}, returning the element found, inserted
// or moved (null: none).
using Step = std::function<tQZQELM*(Queue&)>;

Step find(tQZQELM*(QZ_STDCALL* call)(tQZQHEAD*, QZQUEUEMATCH, LONG_PTR), LONG_PTR at_least) {
    return [=](Queue& q) { return call(&q.head, key_at_least, at_least); };
}
Step insert(void(QZ_STDCALL* call)(tQZQHEAD*, QZQUEUEMATCH, LONG_PTR, tQZQELM*), QZQUEUEMATCH match,
            LONG_PTR key) {
    return [=](Queue& q) {
        call(&q.head, match, key, &q.added.links);
        return &q.added.links;
    };
}
Step move(BOOL(QZ_STDCALL* call)(tQZQHEAD*, tQZQELM*), int key, tQZQELM* stranger = nullptr) {
    return [=](Queue& q) {
        tQZQELM* e = stranger ? stranger : q.item(key);
        return call(&q.head, e) ? e : nullptr;
    };
}

TEST(QzQueueOrder, SearchesInsertionsAndMovesKeepTheirEnds) {
    Queue elsewhere(1);
    Item loose;
    struct Case {
        Step step;
        LONG_PTR result;  // key, 0: null
        Keys after;
    } cases[] = {
        {insert(QzQueueInsertEx, key_at_least, 2), 9, {1, 9, 2, 3, 4}},
        // Searched from the back, but still inserted in front of the match.
        {insert(QzQueueInsertExRev, key_at_least, 2), 9, {1, 2, 3, 9, 4}},
        {insert(QzQueueInsertExRev, key_equals, 1), 9, {9, 1, 2, 3, 4}},
        {insert(QzQueueInsertEx, key_at_least, 5), 9, {1, 2, 3, 4, 9}},
        {insert(QzQueueInsertExRev, key_at_least, 5), 9, {1, 2, 3, 4, 9}},
        {insert(QzQueueInsertExRev, nullptr, 1), 9, {1, 2, 3, 4, 9}},
        {find(QzQueueFind, 2), 2, {1, 2, 3, 4}},
        {find(QzQueueFindRev, 2), 4, {1, 2, 3, 4}},
        {find(QzQueueFindAndRemove, 2), 2, {1, 3, 4}},
        {find(QzQueueFindAndRemoveRev, 9), 0, {1, 2, 3, 4}},
        {find(QzQueueFindAndMoveToHead, 3), 3, {3, 1, 2, 4}},
        {find(QzQueueFindAndMoveToTail, 2), 2, {1, 3, 4, 2}},
        {find(QzQueueFindAndMoveToTail, 9), 0, {1, 2, 3, 4}},
        {move(QzQueueMoveToHead, 2), 2, {2, 1, 3, 4}},
        {move(QzQueueMoveToTail, 2), 2, {1, 3, 4, 2}},
        {move(QzQueueMoveToHead, 1), 0, {1, 2, 3, 4}},
        {move(QzQueueMoveToTail, 4), 0, {1, 2, 3, 4}},
        {move(QzQueueMoveToHead, 0, elsewhere.item(1)), 0, {1, 2, 3, 4}},
        {move(QzQueueMoveToTail, 0, &loose.links), 0, {1, 2, 3, 4}},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        Queue q(4);
        tQZQELM* result = cases[i].step(q);
        EXPECT_EQ(result ? key_of(result) : 0, cases[i].result) << i;
        EXPECT_EQ(q.keys(), cases[i].after) << i;
    }
}

TEST(QzQueueMembership, UnlinkedElementsAndHintsNeedNoLock) {
    Queue q(2), elsewhere(1);
    EXPECT_TRUE(IsInQzQueue(&q.head, q.item(2)));
    EXPECT_FALSE(IsInQzQueue(&q.head, elsewhere.item(1)));
    ASSERT_EQ(QzQueueRemove(&elsewhere.head, 0), elsewhere.item(1));

    // Another thread holds the lock: an answer that took it would block.
    std::atomic<bool> held{false}, done{false};
    std::thread holder([&] {
        EnterCriticalSection(&q.head.lock);
        held = true;
        for (const auto start = Clock::now(); !done && seconds_since(start) < 5;) Sleep(1);
        LeaveCriticalSection(&q.head.lock);
    });
    while (!held) Sleep(1);
    const auto start = Clock::now();
    EXPECT_FALSE(IsInQzQueue(&q.head, elsewhere.item(1)));
    EXPECT_TRUE(QzQueueWait(&q.head, 0));
    EXPECT_LT(seconds_since(start), 2.0);
    done = true;
    holder.join();
}

TEST(QzQueueWaiting, ExtraHandlesAndFlagsDecideTheWait) {
    HANDLE extra[3];
    for (HANDLE& h : extra) h = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    constexpr DWORD kUntouched = 12345;
    struct Case {
        bool flushed;  // the queue's event is signalled, the queue empty
        DWORD extras;  // bit i: extra handle i is signalled
        DWORD count, flags, timeout;
        DWORD expected;
    } cases[] = {
        {false, 0, 0, 0, 0, kUntouched},  // no wait at all
        {false, 0, 0, 0, 10, WAIT_TIMEOUT},
        {true, 0, 3, 0, 30, WAIT_OBJECT_0},
        {true, 0, 0, QZQUEUE_KEEPWAITING | QZQUEUE_ALERTABLE, 30, WAIT_OBJECT_0},
        {false, 2, 3, 0, 30, WAIT_OBJECT_0 + 2},
        {false, 4, 3, QZQUEUE_KEEPWAITING, 30, WAIT_OBJECT_0 + 3},
        {true, 0, 3, QZQUEUE_WAITALL, 30, WAIT_TIMEOUT},
        {false, 7, 3, QZQUEUE_WAITALL, 30, WAIT_TIMEOUT},
        {true, 7, 3, QZQUEUE_WAITALL, 1000, WAIT_OBJECT_0},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        Queue q;
        if (c.flushed) QzQueueFlush(&q.head);
        for (int h = 0; h < 3; ++h) (c.extras >> h & 1 ? SetEvent : ResetEvent)(extra[h]);
        DWORD result = kUntouched;
        EXPECT_EQ(QzQueueRemoveEx(&q.head, extra, c.count, c.flags, c.timeout, &result), nullptr);
        EXPECT_EQ(result, c.expected) << i;
    }
    // 63 extra handles are refused before the queue is even looked at.
    std::vector<HANDLE> many(63, extra[0]);
    Queue filled(1);
    EXPECT_EQ(QzQueueRemoveEx(&filled.head, many.data(), 63, 0, 0, nullptr), nullptr);
    EXPECT_EQ(QzQueueRemoveEx(&filled.head, many.data(), 62, 0, 0, nullptr), filled.item(1));
    for (HANDLE h : extra) CloseHandle(h);
}

TEST(QzQueueWaiting, FlushAndDeletionWakeEveryWaiter) {
    HANDLE extra = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    for (bool deleting : {false, true}) {
        Queue q(1);
        const tQZQELM kept = *q.item(1);
        QzQueueFlush(&q.head);  // forgets the element without touching it
        EXPECT_EQ(q.keys(), Keys());
        EXPECT_EQ(q.item(1)->next, kept.next);
        ResetEvent(q.head.not_empty);
        tQZQHEAD* head = &q.head;
        const std::function<bool()> waits[] = {
            [&] { return !QzQueueRemove(head, 10000); },
            [&] { return !QzQueueRemoveTail(head, 10000); },
            [&] { return !QzQueueRemoveAlertable(head, 10000); },
            [&] { return !QzQueueRemoveEx(head, &extra, 1, 0, 10000, nullptr); },
        };
        std::atomic<int> woken{0};
        std::vector<std::thread> threads;
        const auto start = Clock::now();
        for (const auto& wait : waits) threads.emplace_back([&] { woken += wait() ? 1 : 0; });
        if (deleting) threads.emplace_back([&] { woken += QzQueueWait(head, 10000) ? 0 : 1; });
        Sleep(100);
        EXPECT_EQ(woken.load(), 0);
        (deleting ? QzQueueDelete : QzQueueFlush)(head);
        for (auto& t : threads) t.join();
        EXPECT_EQ(woken.load(), int(threads.size()));
        EXPECT_LT(seconds_since(start), 5.0);
    }
    CloseHandle(extra);
}

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kStressElements = 200000;
#else
constexpr int kStressElements = 1000000;
#endif

// Four producers insert at either end and four consumers remove in four
// different ways; every element must arrive exactly once.
TEST(QzQueueThreads, EveryElementArrivesExactlyOnce) {
    constexpr int kThreads = 4;
    Queue q;
    std::vector<Item> items(kStressElements);
    for (int i = 0; i < kStressElements; ++i) items[size_t(i)].key = i;
    HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const std::function<tQZQELM*()> removers[kThreads] = {
        [&] { return QzQueueRemove(&q.head, 10); },
        [&] { return QzQueueRemoveTail(&q.head, 10); },
        [&] { return QzQueueRemoveAlertable(&q.head, 10); },
        [&] { return QzQueueRemoveEx(&q.head, &never, 1, 0, 10, nullptr); },
    };
    std::atomic<int> consumed{0};
    std::vector<std::vector<LONG_PTR>> received(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (consumed < kStressElements) {
                if (tQZQELM* e = removers[t]()) {
                    received[size_t(t)].push_back(key_of(e));
                    ++consumed;
                }
            }
        });
        threads.emplace_back([&, t] {
            for (int i = t; i < kStressElements; i += kThreads) {
                (i % 8 == 0 ? QzQueueInsertHead : QzQueueInsert)(&q.head, &items[size_t(i)].links);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    std::vector<int> seen(kStressElements);
    for (const auto& keys : received)
        for (LONG_PTR k : keys) ++seen[size_t(k)];
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), kStressElements);
    EXPECT_EQ(q.keys(), Keys());
    EXPECT_FALSE(q.signalled());
    CloseHandle(never);
}

}  // namespace
