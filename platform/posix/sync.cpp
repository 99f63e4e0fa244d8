// Critical sections, events and waits, interlocked operations, thread and
// process ids, ticks, sleeping and the error mode.
//
// Events share one process-wide mutex and condition variable: a state
// change wakes every waiter, and each re-checks its own handles. Waits are
// rare and short in this library, and one lock makes wait-all atomic for
// free: the events it needs are tested and consumed under the same lock
// that SetEvent takes.
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>

#include "platform/posix/handles.h"

namespace qz::posix {

namespace {

// ---- critical sections --------------------------------------------------------

static_assert(sizeof(pthread_mutex_t) <= sizeof(CRITICAL_SECTION::u),
              "a pthread mutex must fit the CRITICAL_SECTION storage");
static_assert(alignof(CRITICAL_SECTION) >= alignof(pthread_mutex_t),
              "the CRITICAL_SECTION storage must be aligned for a pthread mutex");

pthread_mutex_t* mutex_of(LPCRITICAL_SECTION section) {
    return reinterpret_cast<pthread_mutex_t*>(section->u.opaque);
}

// ---- events ------------------------------------------------------------------------

class EventObject : public HandleObject {
public:
    EventObject(bool manual_reset, bool signalled)
        : HandleObject(HandleKind::Event), manual_reset(manual_reset), signalled(signalled) {}

    // Guarded by the hub's mutex.
    const bool manual_reset;
    bool signalled;
};

struct EventHub {
    std::mutex lock;
    std::condition_variable changed;
};

EventHub& hub() {
    // Never destroyed: events may be set from other destructors at exit.
    static EventHub* h = new EventHub;
    return *h;
}

using EventRef = HandleRef<EventObject>;

BOOL set_state(HANDLE event, bool signalled) {
    EventRef object = lookup<EventObject>(event, HandleKind::Event);
    if (!object) return FALSE;
    {
        std::lock_guard<std::mutex> guard(hub().lock);
        object->signalled = signalled;
    }
    if (signalled) hub().changed.notify_all();
    return TRUE;
}

// Under the hub's lock: the result of the wait if it is satisfied now
// (consuming auto-reset events), else WAIT_TIMEOUT.
DWORD try_satisfy(const EventRef* events, DWORD count, bool wait_all) {
    if (!wait_all) {
        for (DWORD i = 0; i < count; ++i) {
            if (!events[i]->signalled) continue;
            if (!events[i]->manual_reset) events[i]->signalled = false;
            return WAIT_OBJECT_0 + i;
        }
        return WAIT_TIMEOUT;
    }
    for (DWORD i = 0; i < count; ++i) {
        if (!events[i]->signalled) return WAIT_TIMEOUT;
    }
    for (DWORD i = 0; i < count; ++i) {
        if (!events[i]->manual_reset) events[i]->signalled = false;
    }
    return WAIT_OBJECT_0;
}

DWORD wait_failed(DWORD error) {
    SetLastError(error);
    return WAIT_FAILED;
}

DWORD wait_for_events(DWORD count, const HANDLE* handles, bool wait_all, DWORD milliseconds) {
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || !handles) {
        return wait_failed(ERROR_INVALID_PARAMETER);
    }
    EventRef events[MAXIMUM_WAIT_OBJECTS];
    for (DWORD i = 0; i < count; ++i) {
        events[i] = lookup<EventObject>(handles[i], HandleKind::Event);
        if (!events[i]) return WAIT_FAILED;
    }
    // Waiting for all of a list that names one event twice is refused, as
    // the event could never be consumed twice at once.
    if (wait_all) {
        for (DWORD i = 0; i < count; ++i) {
            for (DWORD j = i + 1; j < count; ++j) {
                if (events[i].get() == events[j].get()) return wait_failed(ERROR_INVALID_PARAMETER);
            }
        }
    }
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::unique_lock<std::mutex> guard(hub().lock);
    for (;;) {
        const DWORD result = try_satisfy(events, count, wait_all);
        if (result != WAIT_TIMEOUT || milliseconds == 0) return result;
        if (milliseconds == INFINITE) {
            hub().changed.wait(guard);
        } else if (hub().changed.wait_until(guard, deadline) == std::cv_status::timeout) {
            return try_satisfy(events, count, wait_all);
        }
    }
}

std::atomic<UINT> g_error_mode{0};

ULONGLONG monotonic_milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000u +
           static_cast<ULONGLONG>(now.tv_nsec) / 1000000u;
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

// ---- critical sections ---------------------------------------------------------------

QZ_EXTERN_C void InitializeCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex_of(section), &attributes);
    pthread_mutexattr_destroy(&attributes);
}

QZ_EXTERN_C void DeleteCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_destroy(mutex_of(section));
}

QZ_EXTERN_C void EnterCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_lock(mutex_of(section));
}

QZ_EXTERN_C BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) {
    return pthread_mutex_trylock(mutex_of(section)) == 0 ? TRUE : FALSE;
}

QZ_EXTERN_C void LeaveCriticalSection(LPCRITICAL_SECTION section) {
    pthread_mutex_unlock(mutex_of(section));
}

// ---- events and waits --------------------------------------------------------------------

QZ_EXTERN_C HANDLE CreateEventW(LPSECURITY_ATTRIBUTES /*sa*/, BOOL manual_reset, BOOL initial_state,
                                LPCWSTR name) {
    // Named events would be shared between processes; this layer has none.
    if (name && name[0]) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    try {
        return register_handle(
            std::make_shared<EventObject>(manual_reset != FALSE, initial_state != FALSE));
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

QZ_EXTERN_C BOOL SetEvent(HANDLE event) {
    return set_state(event, true);
}

QZ_EXTERN_C BOOL ResetEvent(HANDLE event) {
    return set_state(event, false);
}

QZ_EXTERN_C DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    return wait_for_events(1, &handle, false, milliseconds);
}

// Nothing is ever queued to a thread here, so an alertable wait is an
// ordinary one and never ends with WAIT_IO_COMPLETION.
QZ_EXTERN_C DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL /*alertable*/) {
    return wait_for_events(1, &handle, false, milliseconds);
}

QZ_EXTERN_C DWORD WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL wait_all,
                                         DWORD milliseconds) {
    return wait_for_events(count, handles, wait_all != FALSE, milliseconds);
}

QZ_EXTERN_C DWORD WaitForMultipleObjectsEx(DWORD count, const HANDLE* handles, BOOL wait_all,
                                           DWORD milliseconds, BOOL /*alertable*/) {
    return wait_for_events(count, handles, wait_all != FALSE, milliseconds);
}

QZ_EXTERN_C DWORD MsgWaitForMultipleObjectsEx(DWORD count, const HANDLE* handles,
                                              DWORD milliseconds, DWORD /*wake_mask*/,
                                              DWORD flags) {
    if (count > MAXIMUM_WAIT_OBJECTS - 1) return wait_failed(ERROR_INVALID_PARAMETER);
    if (count == 0) {
        Sleep(milliseconds);
        return WAIT_TIMEOUT;
    }
    return wait_for_events(count, handles, (flags & MWMO_WAITALL) != 0, milliseconds);
}

// ---- interlocked operations (sequentially consistent) ----------------------------------------

QZ_EXTERN_C LONG InterlockedExchange(LONG volatile* target, LONG value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

QZ_EXTERN_C LONG InterlockedIncrement(LONG volatile* target) {
    return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}

QZ_EXTERN_C LONG InterlockedDecrement(LONG volatile* target) {
    return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}

QZ_EXTERN_C LONG InterlockedCompareExchange(LONG volatile* target, LONG value, LONG comparand) {
    __atomic_compare_exchange_n(target, &comparand, value, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;  // the value found, whether or not it was replaced
}

QZ_EXTERN_C LONG_PTR InterlockedExchangeLongPtr(LONG_PTR volatile* target, LONG_PTR value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

QZ_EXTERN_C PVOID InterlockedExchangePointer(PVOID volatile* target, PVOID value) {
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

// ---- threads, ticks, sleeping -------------------------------------------------------------------

QZ_EXTERN_C DWORD GetCurrentThreadId(void) {
    thread_local const DWORD id = static_cast<DWORD>(syscall(SYS_gettid));
    return id;
}

QZ_EXTERN_C DWORD GetCurrentProcessId(void) {
    return static_cast<DWORD>(getpid());
}

// Wraps around after about 49.7 days, as the Windows count does.
QZ_EXTERN_C DWORD GetTickCount(void) {
    return static_cast<DWORD>(monotonic_milliseconds());
}

QZ_EXTERN_C ULONGLONG GetTickCount64(void) {
    return monotonic_milliseconds();
}

QZ_EXTERN_C void Sleep(DWORD milliseconds) {
    if (milliseconds == INFINITE) {
        for (;;) std::this_thread::sleep_for(std::chrono::hours(24));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

QZ_EXTERN_C DWORD SleepEx(DWORD milliseconds, BOOL /*alertable*/) {
    Sleep(milliseconds);
    return 0;
}

QZ_EXTERN_C UINT SetErrorMode(UINT mode) {
    return g_error_mode.exchange(mode);
}
