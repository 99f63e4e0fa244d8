// Critical sections, events and waits, interlocked operations, ticks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/win32api.h"

namespace {

// Closes an event when the test leaves.
struct Event {
    explicit Event(bool manual, bool initial = false)
        : handle(CreateEventW(nullptr, manual, initial, nullptr)) {}
    ~Event() { CloseHandle(handle); }
    HANDLE handle;
};

struct CriticalSection {
    CriticalSection() { InitializeCriticalSection(&section); }
    ~CriticalSection() { DeleteCriticalSection(&section); }
    CRITICAL_SECTION section;
};

TEST(CriticalSection, IsRecursiveAndExcludesOtherThreads) {
    CriticalSection cs;
    EnterCriticalSection(&cs.section);
    EXPECT_TRUE(TryEnterCriticalSection(&cs.section));  // the owner enters again
    bool other_entered = true;
    std::thread([&] { other_entered = TryEnterCriticalSection(&cs.section) != FALSE; }).join();
    EXPECT_FALSE(other_entered);
    LeaveCriticalSection(&cs.section);
    LeaveCriticalSection(&cs.section);
    std::thread([&] {
        other_entered = TryEnterCriticalSection(&cs.section) != FALSE;
        if (other_entered) LeaveCriticalSection(&cs.section);
    }).join();
    EXPECT_TRUE(other_entered);
}

TEST(Event, ASetReleasesOneAutoResetWaiterOrEveryManualResetWaiterAndStays) {
    // The initial state; a manual-reset event stays set, an automatic one is consumed.
    Event kept(true, true);
    EXPECT_EQ(WaitForSingleObject(kept.handle, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(kept.handle, 0), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(kept.handle));
    EXPECT_EQ(WaitForSingleObject(kept.handle, 0), WAIT_TIMEOUT);

    Event automatic(false, true);
    EXPECT_EQ(WaitForSingleObjectEx(automatic.handle, 0, TRUE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(automatic.handle, 0), WAIT_TIMEOUT);  // consumed

    for (bool manual : {false, true}) {
        SCOPED_TRACE(manual ? "manual" : "auto");
        Event event(manual);
        std::atomic<int> woken{0};
        std::vector<std::thread> waiters;
        for (int i = 0; i < 4; ++i)
            waiters.emplace_back(
                [&] { woken += WaitForSingleObject(event.handle, 10000) == WAIT_OBJECT_0; });
        Sleep(50);
        EXPECT_EQ(woken.load(), 0);  // they block until the set
        SetEvent(event.handle);
        // Waited for generously, so that a loaded machine cannot fail it;
        // an auto-reset event must then stay at one release.
        const int expected = manual ? 4 : 1;
        for (int ms = 0; ms < 5000 && woken.load() < expected; ms += 5) Sleep(5);
        Sleep(50);
        EXPECT_EQ(woken.load(), expected);
        EXPECT_EQ(WaitForSingleObject(event.handle, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
        while (woken.load() < 4) {  // the others, one set each for an auto-reset event
            SetEvent(event.handle);
            Sleep(5);
        }
        for (auto& t : waiters) t.join();
    }
}

TEST(WaitForMultiple, AnyTakesTheFirstSignalledIndexAndAllConsumesTogether) {
    Event a(false), b(false), c(true);
    HANDLE handles[] = {a.handle, b.handle, c.handle};
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_TIMEOUT);
    SetEvent(c.handle);
    SetEvent(b.handle);
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 1);
    // b was auto-reset and is consumed; c is manual and stays.
    EXPECT_EQ(WaitForMultipleObjects(3, handles, FALSE, 0), WAIT_OBJECT_0 + 2);

    // Waiting for all: while not all are signalled nothing is consumed.
    SetEvent(a.handle);
    EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, 20), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(a.handle, 0), WAIT_OBJECT_0);
    SetEvent(a.handle);
    std::thread setter([&] {
        Sleep(30);
        SetEvent(b.handle);
    });
    EXPECT_EQ(WaitForMultipleObjects(3, handles, TRUE, 10000), WAIT_OBJECT_0);
    setter.join();
    EXPECT_EQ(WaitForSingleObject(a.handle, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(b.handle, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(c.handle, 0), WAIT_OBJECT_0);
}

TEST(WaitForMultiple, BadArgumentsFail) {
    Event a(true, true);
    HANDLE closed = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    CloseHandle(closed);
    HANDLE many[MAXIMUM_WAIT_OBJECTS + 1];
    for (HANDLE& h : many) h = a.handle;
    HANDLE with_closed[] = {a.handle, closed};
    HANDLE twice[] = {a.handle, a.handle};
    struct Case {
        DWORD count;
        const HANDLE* handles;
        BOOL all;
        DWORD error;
    } cases[] = {
        {0, many, FALSE, ERROR_INVALID_PARAMETER},
        {MAXIMUM_WAIT_OBJECTS + 1, many, FALSE, ERROR_INVALID_PARAMETER},
        {2, nullptr, FALSE, ERROR_INVALID_PARAMETER},
        {2, with_closed, FALSE, ERROR_INVALID_HANDLE},
        {2, twice, TRUE, ERROR_INVALID_PARAMETER},
    };
    for (const Case& c : cases) {
        SetLastError(0);
        EXPECT_EQ(WaitForMultipleObjects(c.count, c.handles, c.all, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), c.error);
    }
    EXPECT_EQ(WaitForMultipleObjects(MAXIMUM_WAIT_OBJECTS, many, FALSE, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(closed, 0), WAIT_FAILED);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(Interlocked, OperationsReturnTheWin32Values) {
    LONG value = 5;
    EXPECT_EQ(InterlockedIncrement(&value), 6);
    EXPECT_EQ(InterlockedDecrement(&value), 5);
    EXPECT_EQ(InterlockedExchange(&value, -1), 5);
    EXPECT_EQ(InterlockedCompareExchange(&value, 7, 0), -1);  // no match: unchanged
    EXPECT_EQ(InterlockedCompareExchange(&value, 7, -1), -1);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(GetCurrentProcessId(), DWORD(getpid()));  // the process's id is the system's
}

}  // namespace
