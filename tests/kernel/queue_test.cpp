// The intrusive queue: order, the not-empty event, searches and moves,
// waiting removals, deletion, and many threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
    return e ? reinterpret_cast<const Item*>(e)->key : 0;
}
BOOL QZ_STDCALL key_at_least(tQZQELM* e, LONG_PTR key) {
    return key_of(e) >= key;
}

using Keys = std::vector<LONG_PTR>;

// Nine items keyed 1..9, the first n of them queued in that order.
struct Queue {
    explicit Queue(int n = 0) {
        EXPECT_TRUE(QzQueueInitialize(&head));
        for (int key = 1; key <= 9; ++key) items[size_t(key - 1)].key = key;
        for (int key = 1; key <= n; ++key) QzQueueInsert(&head, item(key));
    }
    ~Queue() { QzQueueDelete(&head); }
    tQZQELM* item(int key) { return &items[size_t(key - 1)].links; }
    bool signalled() { return WaitForSingleObject(head.not_empty, 0) == WAIT_OBJECT_0; }
    // The keys from the front, each element's links agreeing with its neighbours'.
    Keys keys() {
        Keys out;
        for (tQZQELM* e = head.first; e != reinterpret_cast<tQZQELM*>(&head); e = e->next) {
            EXPECT_TRUE(e->next->prev == e && e->prev->next == e) << key_of(e);
            out.push_back(key_of(e));
        }
        return out;
    }
    tQZQHEAD head{};
    Item items[9];
};

// The four waiting removals, by number; the last also waits on an event
// that is never signalled.
tQZQELM* take(int way, Queue& q, DWORD timeout) {
    static const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return way == 0   ? QzQueueRemove(&q.head, timeout)
           : way == 1 ? QzQueueRemoveTail(&q.head, timeout)
           : way == 2 ? QzQueueRemoveAlertable(&q.head, timeout)
                      : QzQueueRemoveEx(&q.head, &never, 1, 0, timeout, nullptr);
}

// The event is set by the insertion that makes the queue non-empty and
// reset by the removal that empties it, whichever call makes the change.
TEST(QzQueue, EventFollowsTheFirstInsertionAndTheLastRemoval) {
    Queue q(3);
    const HANDLE event = q.head.not_empty;
    EXPECT_TRUE(QzQueueInitialize(&q.head));  // forgets the items, keeps the event
    EXPECT_EQ(q.head.not_empty, event);
    ResetEvent(event);
    QzQueueInsertEx(&q.head, key_at_least, 7, q.item(1));  // no match: at the tail
    EXPECT_TRUE(q.signalled());
    ResetEvent(event);
    QzQueueInsertHead(&q.head, q.item(2));
    QzQueueInsertExRev(&q.head, nullptr, 0, q.item(3));
    EXPECT_FALSE(q.signalled());
    EXPECT_EQ(q.keys(), (Keys{2, 1, 3}));

    SetEvent(event);
    EXPECT_EQ(QzQueueRemoveTail(&q.head, 0), q.item(3));
    EXPECT_EQ(QzQueueFindAndRemoveRev(&q.head, key_at_least, 0), q.item(1));
    EXPECT_TRUE(q.signalled());
    EXPECT_EQ(QzQueueRemove(&q.head, 0), q.item(2));
    EXPECT_FALSE(q.signalled());
    EXPECT_TRUE(!q.item(2)->next && !q.item(2)->prev);
    EXPECT_EQ(QzQueueRemoveTail(&q.head, 0), nullptr);
}

// Calls on the queue {1, 2, 3, 4}, giving the element found, inserted or
// moved (null: none).
using Step = std::function<tQZQELM*(Queue&)>;
Step find(tQZQELM*(QZ_STDCALL* call)(tQZQHEAD*, QZQUEUEMATCH, LONG_PTR), LONG_PTR at_least) {
    return [=](Queue& q) { return call(&q.head, key_at_least, at_least); };
}
Step insert(void(QZ_STDCALL* call)(tQZQHEAD*, QZQUEUEMATCH, LONG_PTR, tQZQELM*), LONG_PTR key) {
    return [=](Queue& q) { return call(&q.head, key_at_least, key, q.item(9)), q.item(9); };
}
Step move(BOOL(QZ_STDCALL* call)(tQZQHEAD*, tQZQELM*), int key) {
    return [=](Queue& q) { return call(&q.head, q.item(key)) ? q.item(key) : nullptr; };
}

TEST(QzQueue, SearchesInsertionsMovesAndMembership) {
    const struct {
        Step step;
        LONG_PTR result;  // key, 0: null
        Keys after;
    } cases[] = {
        {insert(QzQueueInsertEx, 2), 9, {1, 9, 2, 3, 4}},
        // Searched from the back, but still inserted in front of the match.
        {insert(QzQueueInsertExRev, 2), 9, {1, 2, 3, 9, 4}},
        {find(QzQueueFind, 2), 2, {1, 2, 3, 4}},
        {find(QzQueueFindRev, 2), 4, {1, 2, 3, 4}},
        {find(QzQueueFindAndRemove, 2), 2, {1, 3, 4}},
        {find(QzQueueFindAndRemoveRev, 9), 0, {1, 2, 3, 4}},
        {find(QzQueueFindAndMoveToHead, 3), 3, {3, 1, 2, 4}},
        {find(QzQueueFindAndMoveToTail, 2), 2, {1, 3, 4, 2}},
        {move(QzQueueMoveToHead, 2), 2, {2, 1, 3, 4}},
        {move(QzQueueMoveToTail, 2), 2, {1, 3, 4, 2}},
        {move(QzQueueMoveToHead, 1), 0, {1, 2, 3, 4}},
        {move(QzQueueMoveToTail, 4), 0, {1, 2, 3, 4}},
        {move(QzQueueMoveToTail, 9), 0, {1, 2, 3, 4}},  // not queued
        {move(IsInQzQueue, 3), 3, {1, 2, 3, 4}},
    };
    for (const auto& c : cases) {
        Queue q(4);
        ResetEvent(q.head.not_empty);
        EXPECT_EQ(key_of(c.step(q)), c.result) << &c - cases;
        EXPECT_EQ(q.keys(), c.after) << &c - cases;
        EXPECT_FALSE(q.signalled()) << &c - cases;  // the queue was never empty
    }

    // Linked, but elsewhere; and, while another thread holds the lock, the
    // answers that need not take it.
    Queue q(2), elsewhere(1);
    EXPECT_FALSE(IsInQzQueue(&q.head, elsewhere.item(1)));
    std::atomic<bool> answered{false};
    EnterCriticalSection(&q.head.lock);
    std::thread asker(
        [&] { answered = !IsInQzQueue(&q.head, q.item(9)) && QzQueueWait(&q.head, 0); });
    for (int i = 0; i < 200 && !answered; ++i) Sleep(10);
    EXPECT_TRUE(answered);
    LeaveCriticalSection(&q.head.lock);
    asker.join();
}

TEST(QzQueue, ExtraHandlesFlagsAndTimeOutsDecideTheWait) {
    HANDLE extra[3];
    for (HANDLE& h : extra) h = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    constexpr DWORD kUntouched = 12345;
    const struct {
        bool flushed;  // the queue's one element is flushed, its event left signalled
        DWORD extras;  // bit i: extra handle i is signalled
        DWORD count, flags, timeout, expected;
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
    for (const auto& c : cases) {
        Queue q(c.flushed);
        if (c.flushed) QzQueueFlush(&q.head);
        for (int h = 0; h < 3; ++h) (c.extras >> h & 1 ? SetEvent : ResetEvent)(extra[h]);
        DWORD result = kUntouched;
        EXPECT_EQ(QzQueueRemoveEx(&q.head, extra, c.count, c.flags, c.timeout, &result), nullptr);
        EXPECT_EQ(result, c.expected) << &c - cases;
        // A flush forgets the element without touching it; the other waits
        // end too when the event is set but the queue is empty.
        EXPECT_TRUE(!c.flushed || (q.item(1)->next && !QzQueueRemoveTail(&q.head, 1000) &&
                                   QzQueueWait(&q.head, 1000)));
    }
    // 63 extra handles are refused before the queue is even looked at.
    std::vector<HANDLE> many(63, extra[0]);
    Queue filled(1);
    EXPECT_EQ(QzQueueRemoveEx(&filled.head, many.data(), 63, 0, 0, nullptr), nullptr);
    EXPECT_EQ(QzQueueRemoveEx(&filled.head, many.data(), 62, 0, 0, nullptr), filled.item(1));
    for (HANDLE h : extra) CloseHandle(h);
}

TEST(QzQueue, DeletionWakesEveryWaiter) {
    Queue q;
    std::atomic<int> woken{0};
    std::vector<std::thread> threads;
    const DWORD start = GetTickCount();
    for (int way = 0; way < 5; ++way)  // the four removals, then QzQueueWait
        threads.emplace_back(
            [&, way] { woken += way < 4 ? !take(way, q, 10000) : !QzQueueWait(&q.head, 10000); });
    Sleep(100);
    EXPECT_EQ(woken.load(), 0);
    QzQueueDelete(&q.head);
    for (auto& t : threads) t.join();
    EXPECT_EQ(woken.load(), 5);
    EXPECT_LT(GetTickCount() - start, 5000u);
    EXPECT_EQ(q.head.not_empty, nullptr);  // the destructor's deletion does nothing
}

// Four producers insert at either end and four consumers remove in the four
// ways; every element must arrive exactly once.
TEST(QzQueue, EveryElementArrivesExactlyOnce) {
    constexpr int kThreads = 4, kStressElements = 400000;
    Queue q;
    std::vector<Item> items(kStressElements);
    std::vector<std::atomic<int>> seen(kStressElements);
    std::atomic<int> consumed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (consumed < kStressElements)
                if (tQZQELM* e = take(t, q, 10)) ++seen[size_t(key_of(e))], ++consumed;
        });
        threads.emplace_back([&, t] {
            for (int i = t; i < kStressElements; i += kThreads) {
                items[size_t(i)].key = i;
                (i % 8 == 0 ? QzQueueInsertHead : QzQueueInsert)(&q.head, &items[size_t(i)].links);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), kStressElements);
    EXPECT_EQ(q.keys(), Keys());
    EXPECT_FALSE(q.signalled());
}

}  // namespace
