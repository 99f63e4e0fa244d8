/*
 * qzlist.h - tQZLIST, the kernel's growable array of fixed-size items.
 *
 * A list holds items by value (QZLIST_VALUES), plain pointers it does not
 * own (neither kind bit), or pointers to blocks it allocates and frees
 * itself (QZLIST_HEAPITEMS). It can guard itself with a recursive lock
 * (QZLIST_THREADSAFE) and its header can live in the caller's storage
 * (QZLIST_INPLACE). Operations return result codes unless stated.
 *
 * Entry rule of every operation on a list: a thread-safe list enters its
 * lock for the whole call; any other list refuses a thread other than its
 * owner unless QZLIST_ANYTHREAD is set (QzList_CreateExZ always sets it),
 * with E_FAIL, -1 for index and size results, FALSE for predicates and 0
 * for the other getters. A null or destroyed list is refused the same way
 * (E_INVALIDARG for code results).
 *
 * Slot blocks grow and shrink in whole grow steps. Item i of a value list
 * is at items + i * item_size; any other slot holds a pointer. Comparisons
 * are called compare(sort criteria, a, b) with a and b the item addresses
 * (value lists) or the slot pointers (other lists) and answer negative,
 * zero or positive.
 */
#ifndef QZ_QZLIST_H
#define QZ_QZLIST_H

#include "qz/qzdefs.h"
#include "qz/qzresult.h"

/* Creation options. */
#define QZLIST_HEAPITEMS 0x00000002u   /* slots own blocks the list allocates */
#define QZLIST_VALUES 0x00000004u      /* slots hold items by value */
#define QZLIST_INPLACE 0x00000008u     /* header in the caller's storage */
#define QZLIST_PRIVATEHEAP 0x10000000u /* owned blocks from a private heap */
#define QZLIST_ANYTHREAD 0x40000000u   /* no thread-owner check */
#define QZLIST_THREADSAFE 0x80000000u  /* every call enters the list's lock */

/* The signature of a live list: the bytes "CURT" in memory order. */
#define QZLIST_SIGNATURE 0x54525543u

/* Defaults and limits of creation. */
#define QZLIST_DEFAULT_GROW_STEP 16
#define QZLIST_MIN_GROW_STEP 4
#define QZLIST_MAX_GROW_STEP 66560
#define QZLIST_DEFAULT_INITIAL 16
#define QZLIST_MIN_INITIAL 4

/* Block moves up to this many bytes use scratch space on the stack. */
#define QZLIST_STACK_SCRATCH 512

/*
 * The list header. Fields keep this order; on 32-bit Windows the header is
 * 84 bytes. Read count, item_size and items directly when iterating (under
 * the lock of a thread-safe list); change a list only through QzList_*.
 */
typedef struct tQZLIST {
    LONG count;             /* items in use */
    DWORD item_size;        /* bytes per slot */
    void* items;            /* the slot block (global memory, fixed) */
    CRITICAL_SECTION lock;  /* initialised only with QZLIST_THREADSAFE */
    DWORD signature;        /* QZLIST_SIGNATURE while alive, then 0 */
    DWORD create_options;   /* QZLIST_... */
    LONG_PTR user_data;     /* the owner's word */
    LONG_PTR sort_criteria; /* first argument of comparisons */
    DWORD thread_owner;     /* creating thread, or set by QzList_SetThreadOwner */
    LONG allocated;         /* slots in the slot block */
    LONG grow_step;         /* granularity of growth and shrinking */
    HANDLE item_heap;       /* private heap of owned blocks, or null */
    DWORD heap_alloc_flags; /* HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY */
    DWORD heap_flags;       /* HEAP_NO_SERIALIZE */
    void* pending_item;     /* allocated by QzList_AllocItem, not yet inserted */
    DWORD reserved;         /* zero */
} tQZLIST;

#if defined(_WIN32) && !defined(_WIN64)
#ifdef __cplusplus
static_assert(sizeof(tQZLIST) == 84, "tQZLIST is 84 bytes on 32-bit Windows");
#endif
#endif

/* The number of items and the address of item i (no checks, no lock). */
#define QZLIST_COUNT(list) ((list)->count)
#define QZLIST_ITEMADDR(list, i) \
    ((void*)((BYTE*)(list)->items + (SIZE_T)(i) * (SIZE_T)(list)->item_size))
/* The pointer held in slot i of a pointer or heap-item list. */
#define QZLIST_ITEMPTR(list, i) (((void**)(list)->items)[i])

typedef int(QZ_STDCALL* QZLISTCOMPARE)(LONG_PTR criteria, const void* a, const void* b);

QZ_EXTERN_C_BEGIN

/*
 * Creates a list. *list receives the header (with QZLIST_INPLACE *list is
 * the caller's storage of sizeof(tQZLIST) bytes, which is cleared; E_FAIL
 * when it is null). Value lists round item_size up to a multiple of 4, the
 * others hold one pointer per slot. grow_step below 1 means 16 and is kept
 * within 4..66560; initial below 1 means 16, at least 4, rounded up to the
 * grow step. QZLIST_ANYTHREAD is always added to the stored options.
 * E_FAIL for QZLIST_HEAPITEMS with QZLIST_VALUES, E_POINTER for a null
 * `list`, E_OUTOFMEMORY (nothing is left allocated). The last three words
 * are ignored.
 */
QZ_API HRESULT QZ_STDCALL QzList_CreateExZ(tQZLIST** list, UINT item_size, int initial,
                                           int grow_step, DWORD options, DWORD reserved1,
                                           DWORD reserved2, DWORD reserved3);
/*
 * Frees the owned blocks (also a pending one), the slot block, the lock
 * and, unless in place, the header. Null gives S_OK.
 */
QZ_API HRESULT QZ_STDCALL QzList_Destroy(tQZLIST* list);

/* TRUE when size is sizeof(tQZLIST), those bytes are readable and hold a live list. */
QZ_API BOOL QZ_STDCALL QzList_IsList(LPCVOID pointer, UINT size);
/* TRUE when the signature is that of a live list (null: FALSE). */
QZ_API BOOL QZ_STDCALL QzList_IsListFast(const tQZLIST* list);
/* TRUE when 0 <= index < count. */
QZ_API BOOL QZ_STDCALL QzList_IsValidIndexSlow(tQZLIST* list, int index);

/* The owner's word; -1 for a refused call. */
QZ_API LONG_PTR QZ_STDCALL QzList_GetUserData(tQZLIST* list);
/* Exchanges the owner's word atomically and returns the old one; -1 when refused. */
QZ_API LONG_PTR QZ_STDCALL QzList_SetUserData(tQZLIST* list, LONG_PTR value);
QZ_API DWORD QZ_STDCALL QzList_GetCreateOptions(tQZLIST* list);
/* The criteria stored by the last QzList_HeapSort or QzList_SortTo. */
QZ_API LONG_PTR QZ_STDCALL QzList_GetSortCriteria(tQZLIST* list);
QZ_API DWORD QZ_STDCALL QzList_GetThreadOwner(tQZLIST* list);
/* Makes `thread_id` (0: the calling thread) the owner; S_OK. */
QZ_API HRESULT QZ_STDCALL QzList_SetThreadOwner(tQZLIST* list, DWORD thread_id);
/* Creation sites are not recorded: writes an empty string (capacity > 0) and returns -1. */
QZ_API int QZ_STDCALL QzList_GetFileAndLine(tQZLIST* list, LPWSTR buffer, int capacity);

/* Adds `extra` slots (below 1: one grow step), rounded up to the grow step. */
QZ_API HRESULT QZ_STDCALL QzList_GrowAllocated(tQZLIST* list, int extra);
/*
 * Releases free slots (`release` below 0: all of them) in whole grow steps,
 * never more than are free; the slot block keeps at least one slot's bytes.
 */
QZ_API HRESULT QZ_STDCALL QzList_ShrinkAllocated(tQZLIST* list, int release);

/*
 * Inserts `count` items from `source` before `index` (an index outside
 * 0..count-1 appends). Heap-item lists, null sources and negative counts
 * take one of two forms: a source with count -n copies n items (so a
 * heap-item list takes over n blocks the caller allocated: from its private
 * heap, item_heap, since the list frees them there; a list on the standard
 * allocator can adopt only the kernel's own blocks, which is what
 * QzList_MoveItemsBetweenHeapLists is for), and a null source with count -1
 * inserts the pending item; anything else is E_FAIL.
 * E_OUTOFMEMORY leaves the list unchanged.
 */
QZ_API HRESULT QZ_STDCALL QzList_InsertList(tQZLIST* list, int index, const void* source,
                                            int count);
/*
 * Deletes `count` items from `index` (count below 0: to the end; index and
 * count both below 0: frees the pending item, E_FAIL when there is none).
 * A count below 1 does nothing; an index outside 0..count-1 is E_FAIL.
 * Owned blocks are freed. With `shrink`, free slots beyond one grow step are
 * released afterwards.
 */
QZ_API HRESULT QZ_STDCALL QzList_DeleteList(tQZLIST* list, int index, int count, BOOL shrink);
/*
 * Moves `count` items from `from` to `to` (the others keep their order).
 * E_INVALIDARG for from < 0; to < 0 counts as 0; count < 0 means count -
 * max(from, to); E_FAIL when either range passes the end.
 */
QZ_API HRESULT QZ_STDCALL QzList_MoveRange(tQZLIST* list, int from, int to, int count);

/*
 * Allocates the pending item of a heap-item list: a zeroed block of `size`
 * bytes, returned in *item (set to null first). E_FAIL for another kind of
 * list or when an item is already pending, E_POINTER for a null `item`.
 */
QZ_API HRESULT QZ_STDCALL QzList_AllocItem(tQZLIST* list, UINT size, void** item);
/*
 * Allocates a block, copies `size` bytes from `source` (if given) and
 * inserts it at `index` as QzList_InsertList would. *inserted_at (if given)
 * receives the position, or -1 on failure, when nothing is left allocated.
 */
QZ_API HRESULT QZ_STDCALL QzList_AllocAndInsertItem(tQZLIST* list, const void* source, UINT size,
                                                    int index, int* inserted_at);
/*
 * Resizes the block of item `index` of a heap-item list (added bytes are
 * zeroed). E_FAIL for an index outside the items or another kind of list;
 * E_OUTOFMEMORY keeps the old block.
 */
QZ_API HRESULT QZ_STDCALL QzList_ReAllocItem(tQZLIST* list, int index, UINT size);
/*
 * Bytes of item `index`: the item size of a value or pointer list, the
 * block size of a heap item. index < 0: the whole list (owned blocks, slot
 * block and header). -1 when refused or for an index past the items.
 */
QZ_API LONG_PTR QZ_STDCALL QzList_AllocSize(tQZLIST* list, int index);

/*
 * Searches over `count` items from `start` (start < 0 counts as 0; a
 * negative or too large count runs to the end); -1 when nothing matches or
 * the range is empty.
 */
/* The first item identical to `item`: equal bytes (value lists) or the same pointer. */
QZ_API int QZ_STDCALL QzList_FindSpecificItemRange(tQZLIST* list, int start, int count,
                                                   const void* item);
/* The first item for which compare(criteria, key, item) is 0. */
QZ_API int QZ_STDCALL QzList_FindItemRange(tQZLIST* list, const void* key, int start, int count,
                                           QZLISTCOMPARE compare);
/* Bisection of a sorted range: the equal item it meets, or -1. */
QZ_API int QZ_STDCALL QzList_FindSortedItemRange(tQZLIST* list, const void* key, int start,
                                                 int count, QZLISTCOMPARE compare);
/*
 * Bisection of a sorted range: where `key` goes to keep the order (in
 * front of the equal item the bisection meets). -1 when start passes the
 * items, 0 for an empty range.
 */
QZ_API int QZ_STDCALL QzList_FindSortedInsertIndexRange(tQZLIST* list, const void* key, int start,
                                                        int count, QZLISTCOMPARE compare);

/* Selection sort from the end (not stable; quadratic). */
QZ_API HRESULT QZ_STDCALL QzList_Sort(tQZLIST* list, LONG_PTR criteria, QZLISTCOMPARE compare);
/* Heap sort; stores the criteria. Without a comparison nothing is sorted. S_OK. */
QZ_API HRESULT QZ_STDCALL QzList_HeapSort(tQZLIST* list, LONG_PTR criteria, QZLISTCOMPARE compare);
/*
 * Inserts every source item, in order, into `destination` at its sorted
 * place; stores the criteria in the destination. The lists must hold the
 * same kind and size of item, and the destination must not own its blocks
 * (E_FAIL). Thread-safe lists are both locked for the whole call, in an
 * order shared by every call on two lists, so calls between the same two
 * lists in opposite directions cannot deadlock.
 */
QZ_API HRESULT QZ_STDCALL QzList_SortTo(tQZLIST* destination, tQZLIST* source, LONG_PTR criteria,
                                        QZLISTCOMPARE compare);
/*
 * Hands `count` owned blocks (below 0: all) from `source_start` of one
 * heap-item list to `destination_index` of another (below 0 or past the
 * end: appended), keeping their order. Both lists must allocate alike (the
 * standard allocator, or the same heap) and the destination must have no
 * pending item (E_FAIL). Both lists are locked as by QzList_SortTo; a
 * refusal of the destination is reported before one of the source.
 */
QZ_API HRESULT QZ_STDCALL QzList_MoveItemsBetweenHeapLists(tQZLIST* destination,
                                                           int destination_index, tQZLIST* source,
                                                           int source_start, int count);
/*
 * Sets the item count of a value list: a larger count grows the slots (the
 * new items are zero), a smaller one drops items. E_FAIL for other lists,
 * E_INVALIDARG for a negative count.
 */
QZ_API HRESULT QZ_STDCALL QzList_ArrayForceItemCount(tQZLIST* list, int count, BOOL shrink);

QZ_EXTERN_C_END

#ifdef __cplusplus
/*
 * Moves a list's header from the heap into caller storage of
 * sizeof(tQZLIST) bytes, which is the list from then on (a thread-safe
 * list gets a fresh lock there); *list becomes null. E_INVALIDARG unless
 * both are given and *list is live, E_FAIL when it is already in place.
 */
QZ_API HRESULT QZ_STDCALL QzList_ConvertToInPlace(tQZLIST** list, tQZLIST* storage);
#endif

#endif
