/*
 * qzqueue.h - the intrusive queue: records handed between threads.
 *
 * A queue is a tQZQHEAD and the records in it. Every queued record starts
 * with a tQZQELM, whose two links chain it into the queue, so queuing never
 * allocates. The chain is circular through the head: an empty queue's first
 * and last links point at the head itself, the first element's previous
 * link and the last element's next link too. Unlinked elements have both
 * links null. The queue never frees or touches the rest of a record; whoever
 * inserted a record owns it.
 *
 * A critical section guards the links, and a manual-reset event tells
 * consumers that the queue is not empty: it is signalled when an insertion
 * makes the queue non-empty (and by a flush) and reset by the removal that
 * empties it. Several consumers may wake for one element; each looks again
 * under the lock, and the ones that find nothing wait again or give up as
 * their call says.
 *
 * Match callbacks are called as match(element, context) and answer TRUE for
 * the element sought. They run with the queue's lock held, so they must not
 * wait for another thread that uses the same queue.
 *
 * A null head makes every call do nothing and return null or FALSE. A head
 * starts zeroed and must be initialised before any other call; no call
 * other than those already waiting may run on it during or after
 * QzQueueDelete.
 */
#ifndef QZ_QZQUEUE_H
#define QZ_QZQUEUE_H

#include "qzdefs.h"

/* The links at the start of every queued record. */
typedef struct tQZQELM {
    struct tQZQELM* next; /* toward the tail; the head after the last element */
    struct tQZQELM* prev; /* toward the front; the head before the first element */
} tQZQELM;

/*
 * The queue head. Its first two fields line up with a tQZQELM's next and
 * previous links, which is what lets the chain close through the head.
 */
typedef struct tQZQHEAD {
    tQZQELM* first;        /* first element, or the head itself when empty */
    tQZQELM* last;         /* last element, or the head itself when empty */
    CRITICAL_SECTION lock; /* guards the links */
    HANDLE not_empty;      /* manual-reset event; null before initialisation and after deletion */
} tQZQHEAD;

#if defined(_WIN32) && !defined(_WIN64)
#ifdef __cplusplus
static_assert(sizeof(tQZQELM) == 8, "tQZQELM is 8 bytes on 32-bit Windows");
static_assert(sizeof(tQZQHEAD) == 36, "tQZQHEAD is 36 bytes on 32-bit Windows");
#endif
#endif

typedef BOOL(QZ_STDCALL* QZQUEUEMATCH)(tQZQELM* element, LONG_PTR context);

/*
 * Flags of QzQueueRemoveEx. The low 16 bits are a wake mask of window-message
 * kinds (QS_... values) that end a wait with WAIT_OBJECT_0 + count + 1.
 *
 * On POSIX threads have no message queue and no asynchronous procedure
 * calls: the wake mask and QZQUEUE_INPUTAVAILABLE never end a wait, and
 * QZQUEUE_ALERTABLE never ends one with WAIT_IO_COMPLETION, so there every
 * QzQueueRemoveEx waits at most once. QZQUEUE_WAITALL waits until the
 * queue's event and every extra handle are signalled at the same time (on
 * Windows an input event is required too when a wake mask is given).
 * Time-outs, extra handles and deletion behave the same on both.
 */
#define QZQUEUE_WAKEMASK 0x0000FFFFu
#define QZQUEUE_WAITALL 0x00010000u        /* MWMO_WAITALL */
#define QZQUEUE_ALERTABLE 0x00020000u      /* MWMO_ALERTABLE */
#define QZQUEUE_INPUTAVAILABLE 0x00040000u /* MWMO_INPUTAVAILABLE */
/*
 * Adds sent messages (QS_SENDMESSAGE, 0x40) to the wake mask and keeps
 * waiting after an I/O completion or a message, which are served, until an
 * element arrives, the time is up, an extra handle is signalled or the wait
 * ends any other way.
 */
#define QZQUEUE_KEEPWAITING 0x00080000u

/* The most extra handles QzQueueRemoveEx takes (the queue's event is one more). */
#define QZQUEUE_MAX_EXTRA_HANDLES 62

QZ_EXTERN_C_BEGIN

/*
 * Makes `head` usable: creates its event (manual reset, not signalled) and
 * its lock when it has no event yet, then empties the queue (the elements
 * it held are forgotten, not unlinked). A head that already has an event
 * is only emptied. FALSE when the event cannot be created, or for a null
 * head.
 */
QZ_API BOOL QZ_STDCALL QzQueueInitialize(tQZQHEAD* head);

/*
 * Empties the queue under its lock, leaving the elements' own links as they
 * were, and signals the event, so that waiting consumers wake, find nothing
 * and return null (or wait again in keep-waiting mode).
 */
QZ_API void QZ_STDCALL QzQueueFlush(tQZQHEAD* head);

/*
 * Links `element` at the tail (QzQueueInsert) or at the front
 * (QzQueueInsertHead); signals the event when the queue was empty. The
 * element must not be in a queue. A null element inserts nothing.
 */
QZ_API void QZ_STDCALL QzQueueInsert(tQZQHEAD* head, tQZQELM* element);
QZ_API void QZ_STDCALL QzQueueInsertHead(tQZQHEAD* head, tQZQELM* element);

/*
 * Ordered insertion: links `element` in front of the first element, from
 * the front, for which match(element in the queue, context) is TRUE. When
 * nothing matches, the queue is empty or `match` is null it is appended at
 * the tail, as QzQueueInsert does. A null element inserts nothing.
 */
QZ_API void QZ_STDCALL QzQueueInsertEx(tQZQHEAD* head, QZQUEUEMATCH match, LONG_PTR context,
                                       tQZQELM* element);
/*
 * The same search made from the tail backwards. The element still goes in
 * front of the match found (so before the last matching element), and
 * still at the tail when nothing matches.
 */
QZ_API void QZ_STDCALL QzQueueInsertExRev(tQZQHEAD* head, QZQUEUEMATCH match, LONG_PTR context,
                                          tQZQELM* element);

/*
 * Removes and returns the first element (its links cleared), waiting up to
 * `timeout` milliseconds (INFINITE: no limit) for one when the queue is
 * empty. The wait happens once: if the event fires and another consumer
 * took the element, the result is null. Null also when `timeout` is 0 and
 * the queue is empty, on time-out, and when the queue is deleted meanwhile.
 * The removal that empties the queue resets its event.
 */
QZ_API tQZQELM* QZ_STDCALL QzQueueRemove(tQZQHEAD* head, DWORD timeout);
/*
 * QzQueueRemoveEx with QZQUEUE_KEEPWAITING | QZQUEUE_ALERTABLE and no extra
 * handles: on Windows it serves queued procedure calls and sent messages
 * while it waits, and goes on waiting until an element arrives or the time
 * is up. On POSIX it behaves as QzQueueRemove.
 */
QZ_API tQZQELM* QZ_STDCALL QzQueueRemoveAlertable(tQZQHEAD* head, DWORD timeout);
/*
 * The general removal from the front. `handles` (null: none) holds `count`
 * extra handles waited on together with the queue's event; more than
 * QZQUEUE_MAX_EXTRA_HANDLES gives null at once, without a wait. `flags` are
 * the QZQUEUE_... flags above, with a wake mask in the low 16 bits. With
 * extra handles, a wake mask or flags the wait is a message wait on the
 * event followed by the extra handles; otherwise a plain wait on the event.
 *
 * Returns the element, or null when the time is up (WAIT_TIMEOUT), when
 * extra handle i is signalled (WAIT_OBJECT_0 + 1 + i), on an unexpected
 * wait result (WAIT_FAILED, an abandoned handle, a message or I/O
 * completion outside keep-waiting mode), when the queue is deleted
 * meanwhile, and when the event fired but the queue was empty again by the
 * time this call looked (only keep-waiting mode waits again, and only after
 * an I/O completion or a message). Each wait's raw result is stored in
 * *wait_result (may be null), which is left untouched when no wait
 * happened. With a finite time-out, later waits get only what is left of it.
 */
QZ_API tQZQELM* QZ_STDCALL QzQueueRemoveEx(tQZQHEAD* head, const HANDLE* handles, DWORD count,
                                           DWORD flags, DWORD timeout, DWORD* wait_result);
/*
 * Removes and returns the last element (links cleared), waiting once up to
 * `timeout` milliseconds when the queue is empty; null as QzQueueRemove.
 */
QZ_API tQZQELM* QZ_STDCALL QzQueueRemoveTail(tQZQHEAD* head, DWORD timeout);

/*
 * Waits up to `timeout` milliseconds until the queue is not empty, removing
 * nothing. TRUE at once when the first link (read without the lock, as a
 * hint) shows an element; otherwise TRUE when the event is signalled within
 * the time (a flush signals it too). FALSE on time-out, for a queue without
 * an event and when the queue is deleted meanwhile.
 */
QZ_API BOOL QZ_STDCALL QzQueueWait(tQZQHEAD* head, DWORD timeout);

/* The first element, from the front / from the back, that `match` accepts; null when none or
   when `match` is null. The element stays queued. */
QZ_API tQZQELM* QZ_STDCALL QzQueueFind(tQZQHEAD* head, QZQUEUEMATCH match, LONG_PTR context);
QZ_API tQZQELM* QZ_STDCALL QzQueueFindRev(tQZQHEAD* head, QZQUEUEMATCH match, LONG_PTR context);
/* The same search, then the element found is unlinked (links cleared) and returned; the event is
   reset when the queue became empty. */
QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndRemove(tQZQHEAD* head, QZQUEUEMATCH match,
                                                LONG_PTR context);
QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndRemoveRev(tQZQHEAD* head, QZQUEUEMATCH match,
                                                   LONG_PTR context);
/* Searches from the front and moves the element found to the front / to the tail; returns it, or
   null when none matches or `match` is null. */
QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndMoveToHead(tQZQHEAD* head, QZQUEUEMATCH match,
                                                    LONG_PTR context);
QZ_API tQZQELM* QZ_STDCALL QzQueueFindAndMoveToTail(tQZQHEAD* head, QZQUEUEMATCH match,
                                                    LONG_PTR context);

/*
 * Moves `element` to the front / to the tail. TRUE when it moved; FALSE
 * when the queue is empty, when the element is already in that place, when
 * it is not in this queue, or when it is null.
 */
QZ_API BOOL QZ_STDCALL QzQueueMoveToHead(tQZQHEAD* head, tQZQELM* element);
QZ_API BOOL QZ_STDCALL QzQueueMoveToTail(tQZQHEAD* head, tQZQELM* element);

/*
 * TRUE when `element` is linked into this queue. An element with a null
 * link (never queued, or removed) is FALSE at once, without the lock;
 * otherwise the queue is searched under the lock. Null element: FALSE.
 */
QZ_API BOOL QZ_STDCALL IsInQzQueue(tQZQHEAD* head, tQZQELM* element);

/*
 * Ends the queue. Takes the event out of the head atomically; when there
 * was one, signals it, so that every consumer waiting on the queue wakes
 * and returns null, closes it, empties the queue under the lock (so no
 * thread is left inside) and deletes the lock. The elements are forgotten,
 * not unlinked. A second call, or a call on a head never initialised with
 * a zeroed event, does nothing.
 */
QZ_API void QZ_STDCALL QzQueueDelete(tQZQHEAD* head);

QZ_EXTERN_C_END

#endif
