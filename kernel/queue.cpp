// tQZQHEAD: the intrusive queue that hands records between threads.
//
// The chain is circular through the head, whose first and last fields sit
// where an element's next and previous links do; so inserting, unlinking
// and walking never need a special case for either end. Links are reached
// by address rather than through a member of the wrong record type, and
// every access to them is atomic (relaxed): the lock orders the changes,
// but IsInQzQueue and QzQueueWait read links without it, and the event
// field is taken out of the head by QzQueueDelete without it.
#include <atomic>
#include <cstddef>

#include "platform/platform.h"
#include "platform/win32api.h"
#include "qz/qzqueue.h"

namespace qz::queue {

namespace {

static_assert(offsetof(tQZQHEAD, first) == offsetof(tQZQELM, next),
              "the head's first link lines up with an element's next link");
static_assert(offsetof(tQZQHEAD, last) == offsetof(tQZQELM, prev),
              "the head's last link lines up with an element's previous link");

// The message-wait flags that QzQueueRemoveEx passes on, and where its own
// flag word keeps them.
struct FlagMapping {
    DWORD queue_flag;
    DWORD wait_flag;
};
constexpr FlagMapping kWaitFlags[] = {
    {QZQUEUE_WAITALL, MWMO_WAITALL},
    {QZQUEUE_ALERTABLE, MWMO_ALERTABLE},
    {QZQUEUE_INPUTAVAILABLE, MWMO_INPUTAVAILABLE},
};

using Link = std::atomic_ref<tQZQELM*>;

Link link_at(tQZQELM* element, std::size_t offset) {
    return Link(*reinterpret_cast<tQZQELM**>(reinterpret_cast<BYTE*>(element) + offset));
}

tQZQELM* next(tQZQELM* e) {
    return link_at(e, offsetof(tQZQELM, next)).load(std::memory_order_relaxed);
}
tQZQELM* prev(tQZQELM* e) {
    return link_at(e, offsetof(tQZQELM, prev)).load(std::memory_order_relaxed);
}
void set_next(tQZQELM* e, tQZQELM* value) {
    link_at(e, offsetof(tQZQELM, next)).store(value, std::memory_order_relaxed);
}
void set_prev(tQZQELM* e, tQZQELM* value) {
    link_at(e, offsetof(tQZQELM, prev)).store(value, std::memory_order_relaxed);
}

tQZQELM* anchor(tQZQHEAD* head) {
    return reinterpret_cast<tQZQELM*>(head);
}

bool is_empty(tQZQHEAD* head) {
    return next(anchor(head)) == anchor(head);
}

HANDLE event_of(tQZQHEAD* head) {
    return std::atomic_ref<HANDLE>(head->not_empty).load(std::memory_order_acquire);
}

class Locked {
public:
    explicit Locked(tQZQHEAD* head) : head_(head) { EnterCriticalSection(&head_->lock); }
    ~Locked() { LeaveCriticalSection(&head_->lock); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    tQZQHEAD* head_;
};

// ---- under the lock ---------------------------------------------------------------

void make_empty(tQZQHEAD* head) {
    set_next(anchor(head), anchor(head));
    set_prev(anchor(head), anchor(head));
}

void signal(tQZQHEAD* head) {
    if (HANDLE event = event_of(head)) SetEvent(event);
}

// Links `e` between the neighbours `before` and `after`; the event fires
// when `e` is the only element now.
void link_between(tQZQHEAD* head, tQZQELM* e, tQZQELM* before, tQZQELM* after) {
    set_next(e, after);
    set_prev(e, before);
    set_next(before, e);
    set_prev(after, e);
    if (before == anchor(head) && after == anchor(head)) signal(head);
}

void append(tQZQHEAD* head, tQZQELM* e) {
    link_between(head, e, prev(anchor(head)), anchor(head));
}

// Takes `e` out of the chain without clearing its links (a move relinks it).
void detach(tQZQELM* e) {
    tQZQELM* const before = prev(e);
    tQZQELM* const after = next(e);
    set_next(before, after);
    set_prev(after, before);
}

// Unlinks `e` for good: its links are cleared, and the removal that
// empties the queue resets the event.
void take_out(tQZQHEAD* head, tQZQELM* e) {
    detach(e);
    set_next(e, nullptr);
    set_prev(e, nullptr);
    if (is_empty(head)) {
        if (HANDLE event = event_of(head)) ResetEvent(event);
    }
}

// The end a search starts from, or a move goes to.
enum class End { Front, Back };

tQZQELM* find(tQZQHEAD* head, QZQUEUEMATCH match, LONG_PTR context, End from) {
    if (!match) return nullptr;
    tQZQELM* const end = anchor(head);
    for (tQZQELM* e = from == End::Front ? next(end) : prev(end); e != end;
         e = from == End::Front ? next(e) : prev(e)) {
        if (match(e, context)) return e;
    }
    return nullptr;
}

bool contains(tQZQHEAD* head, tQZQELM* element) {
    for (tQZQELM* e = next(anchor(head)); e != anchor(head); e = next(e)) {
        if (e == element) return true;
    }
    return false;
}

// A null link means unlinked; no search is needed to tell.
bool looks_linked(tQZQELM* element) {
    return next(element) && prev(element);
}

void move_to_front(tQZQHEAD* head, tQZQELM* e) {
    if (e == next(anchor(head))) return;
    detach(e);
    link_between(head, e, anchor(head), next(anchor(head)));
}

void move_to_back(tQZQHEAD* head, tQZQELM* e) {
    if (e == prev(anchor(head))) return;
    detach(e);
    append(head, e);
}

// The searching exports: under the lock, find the first match from one
// end and hand it to `then` (removal, a move, or nothing).
tQZQELM* search(tQZQHEAD* head, QZQUEUEMATCH match, LONG_PTR context, End from,
                void (*then)(tQZQHEAD*, tQZQELM*)) {
    if (!head) return nullptr;
    Locked locked(head);
    tQZQELM* const found = find(head, match, context, from);
    if (found) then(head, found);
    return found;
}

void leave_in_place(tQZQHEAD*, tQZQELM*) {}

// The moving exports: FALSE for an empty queue, an element already at
// that end and one that is not in this queue.
BOOL move(tQZQHEAD* head, tQZQELM* element, End to) {
    if (!head || !element) return FALSE;
    Locked locked(head);
    tQZQELM* const end = to == End::Front ? next(anchor(head)) : prev(anchor(head));
    if (is_empty(head) || end == element || !contains(head, element)) return FALSE;
    (to == End::Front ? move_to_front : move_to_back)(head, element);
    return TRUE;
}

// ---- the pieces of the general removal ---------------------------------------------

// Why the last wait ended, as far as the removal loop cares.
enum class WaitOutcome { LookAgain, KeepWaiting, GiveUp };

struct RemovalWait {
    const HANDLE* extra = nullptr;
    DWORD extra_count = 0;
    DWORD wake_mask = 0;
    DWORD wait_flags = 0;
    bool keep_waiting = false;

    bool is_message_wait() const { return extra_count || wake_mask || wait_flags; }

    WaitOutcome wait(HANDLE event, DWORD milliseconds, DWORD* wait_result) const {
        if (!is_message_wait()) {
            const DWORD result = WaitForSingleObject(event, milliseconds);
            if (wait_result) *wait_result = result;
            return WaitOutcome::LookAgain;
        }
        HANDLE handles[MAXIMUM_WAIT_OBJECTS];
        handles[0] = event;
        for (DWORD i = 0; i < extra_count; ++i) handles[i + 1] = extra[i];
        // Without a wake mask no message can end the wait, and Windows'
        // message wait with MWMO_WAITALL would wait for an input event as
        // well, which never comes: the plain wait gives what the flags ask.
        const bool messages = wake_mask != 0 || (wait_flags & MWMO_INPUTAVAILABLE);
        const DWORD result =
            messages ? MsgWaitForMultipleObjectsEx(extra_count + 1, handles, milliseconds,
                                                   wake_mask, wait_flags)
                     : WaitForMultipleObjectsEx(extra_count + 1, handles,
                                                (wait_flags & MWMO_WAITALL) != 0, milliseconds,
                                                (wait_flags & MWMO_ALERTABLE) != 0);
        if (wait_result) *wait_result = result;
        if (result == WAIT_OBJECT_0) return WaitOutcome::LookAgain;
        if (result == WAIT_TIMEOUT) return WaitOutcome::GiveUp;
        if (result > WAIT_OBJECT_0 && result <= WAIT_OBJECT_0 + extra_count) {
            return WaitOutcome::GiveUp;  // one of the caller's handles
        }
        if (!keep_waiting) return WaitOutcome::GiveUp;
        if (result == WAIT_IO_COMPLETION) return WaitOutcome::KeepWaiting;
        if (result == WAIT_OBJECT_0 + extra_count + 1) {
            qz::platform::serve_sent_messages();
            return WaitOutcome::KeepWaiting;
        }
        return WaitOutcome::GiveUp;
    }
};

}  // namespace

}  // namespace qz::queue

using namespace qz::queue;

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzQueueInitialize(tQZQHEAD* head) {
    if (!head) return FALSE;
    if (!event_of(head)) {
        HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        if (!event) return FALSE;
        InitializeCriticalSection(&head->lock);
        std::atomic_ref<HANDLE>(head->not_empty).store(event, std::memory_order_release);
    }
    Locked locked(head);
    make_empty(head);
    return TRUE;
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzQueueFlush(tQZQHEAD* head) {
    if (!head) return;
    Locked locked(head);
    make_empty(head);
    signal(head);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzQueueInsert(tQZQHEAD* head, tQZQELM* element) {
    if (!head || !element) return;
    Locked locked(head);
    append(head, element);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzQueueInsertHead(tQZQHEAD* head, tQZQELM* element) {
    if (!head || !element) return;
    Locked locked(head);
    link_between(head, element, anchor(head), next(anchor(head)));
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzQueueInsertEx(tQZQHEAD* head, QZQUEUEMATCH match,
                                                   LONG_PTR context, tQZQELM* element) {
    if (!head || !element) return;
    Locked locked(head);
    if (tQZQELM* found = find(head, match, context, End::Front)) {
        link_between(head, element, prev(found), found);
    } else {
        append(head, element);
    }
}

// The search runs backwards, but the new element still goes in front of
// the match, and to the tail when nothing matches: callers rely on exactly
// this, so it must not be "mirrored" into an insertion after the match.
QZ_EXTERN_C QZ_API void QZ_STDCALL QzQueueInsertExRev(tQZQHEAD* head, QZQUEUEMATCH match,
                                                      LONG_PTR context, tQZQELM* element) {
    if (!head || !element) return;
    Locked locked(head);
    if (tQZQELM* found = find(head, match, context, End::Back)) {
        link_between(head, element, prev(found), found);
    } else {
        append(head, element);
    }
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueRemoveEx(tQZQHEAD* head, const HANDLE* handles,
                                                       DWORD count, DWORD flags, DWORD timeout,
                                                       DWORD* wait_result) {
    if (!head) return nullptr;
    RemovalWait how;
    if (handles && count) {
        if (count > QZQUEUE_MAX_EXTRA_HANDLES) return nullptr;
        how.extra = handles;
        how.extra_count = count;
    }
    how.wake_mask = flags & QZQUEUE_WAKEMASK;
    how.keep_waiting = (flags & QZQUEUE_KEEPWAITING) != 0;
    if (how.keep_waiting) how.wake_mask |= QS_SENDMESSAGE;
    for (const FlagMapping& m : kWaitFlags) {
        if (flags & m.queue_flag) how.wait_flags |= m.wait_flag;
    }

    const bool finite = timeout != 0 && timeout != INFINITE;
    const DWORD start = finite ? GetTickCount() : 0;
    DWORD remaining = timeout;
    // The first look may always wait; later ones only after a wait that
    // asked for more waiting.
    WaitOutcome last = WaitOutcome::KeepWaiting;

    EnterCriticalSection(&head->lock);
    while (is_empty(head)) {
        const HANDLE event = event_of(head);
        if (timeout == 0 || !event || last != WaitOutcome::KeepWaiting) {
            LeaveCriticalSection(&head->lock);
            return nullptr;
        }
        LeaveCriticalSection(&head->lock);
        last = how.wait(event, how.is_message_wait() ? remaining : timeout, wait_result);
        if (last == WaitOutcome::GiveUp) return nullptr;
        if (finite) {
            const DWORD elapsed = GetTickCount() - start;
            remaining = elapsed >= timeout ? 0 : timeout - elapsed;
        }
        // Deleted while this thread waited: the lock may be gone too.
        if (!event_of(head)) return nullptr;
        EnterCriticalSection(&head->lock);
    }
    tQZQELM* const element = next(anchor(head));
    take_out(head, element);
    LeaveCriticalSection(&head->lock);
    return element;
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueRemove(tQZQHEAD* head, DWORD timeout) {
    return QzQueueRemoveEx(head, nullptr, 0, 0, timeout, nullptr);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueRemoveAlertable(tQZQHEAD* head, DWORD timeout) {
    return QzQueueRemoveEx(head, nullptr, 0, QZQUEUE_KEEPWAITING | QZQUEUE_ALERTABLE, timeout,
                           nullptr);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueRemoveTail(tQZQHEAD* head, DWORD timeout) {
    if (!head) return nullptr;
    EnterCriticalSection(&head->lock);
    if (is_empty(head)) {
        const HANDLE event = event_of(head);
        LeaveCriticalSection(&head->lock);
        if (timeout == 0 || !event) return nullptr;
        WaitForSingleObject(event, timeout);
        if (!event_of(head)) return nullptr;
        EnterCriticalSection(&head->lock);
        if (is_empty(head)) {
            LeaveCriticalSection(&head->lock);
            return nullptr;
        }
    }
    tQZQELM* const element = prev(anchor(head));
    take_out(head, element);
    LeaveCriticalSection(&head->lock);
    return element;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzQueueWait(tQZQHEAD* head, DWORD timeout) {
    if (!head) return FALSE;
    if (!is_empty(head)) return TRUE;
    const HANDLE event = event_of(head);
    if (!event) return FALSE;
    const DWORD result = WaitForSingleObject(event, timeout);
    return result == WAIT_OBJECT_0 && event_of(head) ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueFind(tQZQHEAD* head, QZQUEUEMATCH match,
                                                   LONG_PTR context) {
    return search(head, match, context, End::Front, leave_in_place);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueFindRev(tQZQHEAD* head, QZQUEUEMATCH match,
                                                      LONG_PTR context) {
    return search(head, match, context, End::Back, leave_in_place);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndRemove(tQZQHEAD* head, QZQUEUEMATCH match,
                                                            LONG_PTR context) {
    return search(head, match, context, End::Front, take_out);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndRemoveRev(tQZQHEAD* head, QZQUEUEMATCH match,
                                                               LONG_PTR context) {
    return search(head, match, context, End::Back, take_out);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndMoveToHead(tQZQHEAD* head, QZQUEUEMATCH match,
                                                                LONG_PTR context) {
    return search(head, match, context, End::Front, move_to_front);
}

QZ_EXTERN_C QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndMoveToTail(tQZQHEAD* head, QZQUEUEMATCH match,
                                                                LONG_PTR context) {
    return search(head, match, context, End::Front, move_to_back);
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzQueueMoveToHead(tQZQHEAD* head, tQZQELM* element) {
    return move(head, element, End::Front);
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzQueueMoveToTail(tQZQHEAD* head, tQZQELM* element) {
    return move(head, element, End::Back);
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL IsInQzQueue(tQZQHEAD* head, tQZQELM* element) {
    if (!head || !element || !looks_linked(element)) return FALSE;
    Locked locked(head);
    return contains(head, element) ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzQueueDelete(tQZQHEAD* head) {
    if (!head) return;
    const HANDLE event = InterlockedExchangePointer(&head->not_empty, nullptr);
    if (!event) return;
    // Every waiter wakes, finds the event gone and returns null.
    SetEvent(event);
    CloseHandle(event);
    // A thread still inside the lock finishes first. A waiter that saw the
    // event just before it went and gets the lock now finds an empty queue
    // without an event, and leaves.
    {
        Locked locked(head);
        make_empty(head);
    }
    DeleteCriticalSection(&head->lock);
}
