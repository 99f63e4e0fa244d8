// tQZLIST: creation and destruction, the entry rule, the slot block's
// growth and shrinking, insertion, deletion and block moves.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <limits>
#include <utility>

#include "kernel/list_internal.h"
#include "platform/platform.h"

namespace qz::list {

namespace {

constexpr DWORD kHeapAllocFlags = HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY;
constexpr DWORD kHeapFlags = HEAP_NO_SERIALIZE;
constexpr SIZE_T kPrivateHeapInitialSize = 4096;
constexpr std::int64_t kMaxSlots = std::numeric_limits<LONG>::max();

// The slot block is fixed global memory; reallocation may move it.
constexpr UINT kSlotBlockFlags = GMEM_FIXED | GMEM_ZEROINIT;
constexpr UINT kSlotReallocFlags = GMEM_MOVEABLE | GMEM_ZEROINIT;

int clamp_grow_step(int step) {
    if (step < 1) step = QZLIST_DEFAULT_GROW_STEP;
    return std::clamp(step, QZLIST_MIN_GROW_STEP, QZLIST_MAX_GROW_STEP);
}

std::int64_t initial_slots(int initial, int step) {
    std::int64_t slots = initial > 0 ? initial : QZLIST_DEFAULT_INITIAL;
    slots = std::max<std::int64_t>(slots, QZLIST_MIN_INITIAL);
    return round_up(slots, step);
}

// True when one more item fits: the slots allocated have room, or one grow
// step more still fits the block under them, which is then counted as
// allocated exactly as the general path's growth would count it.
inline bool has_room_for_one(tQZLIST* list) {
    if (list->count < list->allocated) return true;
    const std::int64_t next = std::int64_t(list->allocated) + list->grow_step;
    if (next > kMaxSlots || block_slots(next) != block_slots(list->allocated)) return false;
    list->allocated = LONG(next);
    return true;
}

// Copies n items; single items of the usual sizes are plain moves.
inline void copy_items(BYTE* target, const void* source, SIZE_T n, SIZE_T size) {
    if (n == 1 && size == 4)
        std::memcpy(target, source, 4);
    else if (n == 1 && size == 8)
        std::memcpy(target, source, 8);
    else if (n == 1 && size == 16)
        std::memcpy(target, source, 16);
    else
        std::memcpy(target, source, n * size);
}

bool reallocate_slots(tQZLIST* list, std::int64_t slots) {
    if (slots > kMaxSlots) return false;
    // The block already holds block_slots(allocated) slots, all of them zero
    // past the count; a new slot count with the same block needs no memory.
    if (block_slots(slots) == block_slots(list->allocated)) {
        list->allocated = LONG(slots);
        return true;
    }
    SIZE_T bytes = 0;
    if (!slot_block_bytes(list, block_slots(slots), &bytes)) return false;
    void* items = GlobalReAlloc(list->items, bytes, kSlotReallocFlags);
    if (!items) return false;
    list->items = items;
    list->allocated = LONG(slots);
    return true;
}

// Frees every owned block (and a pending one) and clears the slots.
void free_owned_blocks(tQZLIST* list) {
    void** slots = static_cast<void**>(list->items);
    if (list->item_heap) {
        // Destroying the heap frees every block at once.
        HeapDestroy(list->item_heap);
        list->item_heap = nullptr;
    } else {
        for (LONG i = 0; i < list->count; ++i) free_block(list, slots[i]);
        free_block(list, list->pending_item);
    }
    std::memset(slots, 0, SIZE_T(list->count) * list->item_size);
    list->pending_item = nullptr;
}

}  // namespace

Entry::Entry(tQZLIST* list) : list_(list) {
    if (!is_live(list)) {
        state_ = State::BadList;
    } else if (has(list, QZLIST_THREADSAFE)) {
        EnterCriticalSection(&list->lock);
        locked_ = true;
    } else if (!has(list, QZLIST_ANYTHREAD) && GetCurrentThreadId() != list->thread_owner) {
        state_ = State::ForeignThread;
    }
}

Entry::~Entry() {
    if (locked_) LeaveCriticalSection(&list_->lock);
}

namespace {

// The entry rule's verdict on a list, without taking its lock.
HRESULT admission(const tQZLIST* list) {
    if (!is_live(list)) return E_INVALIDARG;
    if (!has(list, QZLIST_THREADSAFE) && !has(list, QZLIST_ANYTHREAD) &&
        GetCurrentThreadId() != list->thread_owner)
        return E_FAIL;
    return S_OK;
}

}  // namespace

PairEntry::PairEntry(tQZLIST* first, tQZLIST* second) {
    refusal_ = admission(first);
    if (refusal_ == S_OK) refusal_ = admission(second);
    if (refusal_ != S_OK) return;
    // std::less orders any two pointers, related or not.
    tQZLIST* order[2] = {first, second};
    if (std::less<tQZLIST*>()(second, first)) std::swap(order[0], order[1]);
    for (int i = 0; i < 2; ++i) {
        if (i == 1 && order[1] == order[0]) break;
        if (!has(order[i], QZLIST_THREADSAFE)) continue;
        EnterCriticalSection(&order[i]->lock);
        locked_[i] = order[i];
    }
}

PairEntry::~PairEntry() {
    for (int i = 1; i >= 0; --i)
        if (locked_[i]) LeaveCriticalSection(&locked_[i]->lock);
}

void remove_slots(tQZLIST* list, std::int64_t index, std::int64_t n) {
    const SIZE_T size = list->item_size;
    BYTE* at = slot_address(list, index);
    std::memmove(at, at + n * size, SIZE_T(list->count - index - n) * size);
    std::memset(slot_address(list, list->count - n), 0, SIZE_T(n) * size);
    list->count -= LONG(n);
}

bool slot_block_bytes(const tQZLIST* list, std::int64_t slots, SIZE_T* bytes) {
    const std::uint64_t size = std::max<std::uint64_t>(
        std::uint64_t(std::max<std::int64_t>(slots, 1)) * list->item_size, 1);
    if (size > std::numeric_limits<SIZE_T>::max() / 2) return false;
    *bytes = SIZE_T(size);
    return true;
}

HRESULT grow_slots(tQZLIST* list, std::int64_t extra) {
    if (extra < 1) extra = list->grow_step;
    extra = round_up(extra, list->grow_step);
    return reallocate_slots(list, list->allocated + extra) ? S_OK : E_OUTOFMEMORY;
}

HRESULT shrink_slots(tQZLIST* list, std::int64_t release) {
    const std::int64_t free_slots = list->allocated - list->count;
    // Asking for more than is free releases what is free.
    if (release < 0 || release > free_slots) release = free_slots;
    std::int64_t whole = round_up(release, list->grow_step);
    if (whole > free_slots) whole -= list->grow_step;
    if (whole < 1) return S_OK;
    return reallocate_slots(list, list->allocated - whole) ? S_OK : E_OUTOFMEMORY;
}

}  // namespace qz::list

using namespace qz::list;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_CreateExZ(tQZLIST** out, UINT item_size, int initial,
                                                       int grow_step, DWORD options, DWORD, DWORD,
                                                       DWORD) {
    if (!out) return E_POINTER;
    const bool in_place = (options & QZLIST_INPLACE) != 0;
    tQZLIST* list = nullptr;
    if (in_place) {
        list = *out;
        if (!list) return E_FAIL;
        std::memset(list, 0, sizeof(tQZLIST));
    } else {
        *out = nullptr;
    }
    if ((options & QZLIST_VALUES) && (options & QZLIST_HEAPITEMS)) return E_FAIL;
    if (!in_place) {
        list = static_cast<tQZLIST*>(std_calloc(sizeof(tQZLIST)));
        if (!list) return E_OUTOFMEMORY;
    }

    list->signature = QZLIST_SIGNATURE;
    const std::uint64_t rounded = (std::uint64_t(item_size) + 3) & ~std::uint64_t(3);
    list->item_size = (options & QZLIST_VALUES)
                          ? DWORD(std::min<std::uint64_t>(rounded, 0xFFFFFFFC))
                          : DWORD(sizeof(void*));
    const int step = clamp_grow_step(grow_step);
    const std::int64_t slots = initial_slots(initial, step);
    SIZE_T bytes = 0;
    void* items = nullptr;
    if (slots <= kMaxSlots && slot_block_bytes(list, block_slots(slots), &bytes))
        items = GlobalAlloc(kSlotBlockFlags, bytes);
    if (!items) {
        list->signature = 0;
        if (!in_place) std_free(list);
        return E_OUTOFMEMORY;
    }
    list->items = items;
    if (options & QZLIST_THREADSAFE) InitializeCriticalSection(&list->lock);
    list->thread_owner = GetCurrentThreadId();
    list->create_options = options | QZLIST_ANYTHREAD;
    list->allocated = LONG(slots);
    list->grow_step = step;
    if ((options & QZLIST_HEAPITEMS) && (options & QZLIST_PRIVATEHEAP)) {
        list->item_heap = HeapCreate(HEAP_NO_SERIALIZE, kPrivateHeapInitialSize, 0);
        if (!list->item_heap) {
            QzList_Destroy(list);
            return E_OUTOFMEMORY;
        }
    }
    list->heap_alloc_flags = kHeapAllocFlags;
    list->heap_flags = kHeapFlags;
    *out = list;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_Destroy(tQZLIST* list) {
    if (!list) return S_OK;
    if (!is_live(list)) return E_INVALIDARG;
    const bool thread_safe = has(list, QZLIST_THREADSAFE);
    if (thread_safe)
        EnterCriticalSection(&list->lock);
    else if (!has(list, QZLIST_ANYTHREAD) && GetCurrentThreadId() != list->thread_owner)
        return E_FAIL;
    if (owns_items(list)) free_owned_blocks(list);
    GlobalFree(list->items);
    list->items = nullptr;
    list->count = 0;
    list->allocated = 0;
    list->signature = 0;
    if (thread_safe) {
        LeaveCriticalSection(&list->lock);
        DeleteCriticalSection(&list->lock);
    }
    if (!has(list, QZLIST_INPLACE)) std_free(list);
    return S_OK;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzList_IsList(LPCVOID pointer, UINT size) {
    // The size is checked before the memory is touched at all.
    if (size != sizeof(tQZLIST) || !pointer) return FALSE;
    // The header is copied out through the memory probe, so an unreadable
    // one is never touched.
    tQZLIST header;
    if (!qz::platform::read_memory(pointer, &header, sizeof header)) return FALSE;
    return header.signature == QZLIST_SIGNATURE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzList_IsListFast(const tQZLIST* list) {
    return is_live(list) ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzList_IsValidIndexSlow(tQZLIST* list, int index) {
    Entry entry(list);
    if (!entry.ok()) return FALSE;
    return index >= 0 && index < list->count;
}

QZ_EXTERN_C QZ_API LONG_PTR QZ_STDCALL QzList_GetUserData(tQZLIST* list) {
    Entry entry(list);
    if (!entry.ok()) return -1;
    return std::atomic_ref<LONG_PTR>(list->user_data).load();
}

QZ_EXTERN_C QZ_API LONG_PTR QZ_STDCALL QzList_SetUserData(tQZLIST* list, LONG_PTR value) {
    Entry entry(list);
    if (!entry.ok()) return -1;
    // An exchange, so lists without a lock can share the word between threads.
    return std::atomic_ref<LONG_PTR>(list->user_data).exchange(value);
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL QzList_GetCreateOptions(tQZLIST* list) {
    Entry entry(list);
    return entry.ok() ? list->create_options : 0;
}

QZ_EXTERN_C QZ_API LONG_PTR QZ_STDCALL QzList_GetSortCriteria(tQZLIST* list) {
    Entry entry(list);
    return entry.ok() ? list->sort_criteria : 0;
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL QzList_GetThreadOwner(tQZLIST* list) {
    Entry entry(list);
    return entry.ok() ? list->thread_owner : 0;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_SetThreadOwner(tQZLIST* list, DWORD thread_id) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    list->thread_owner = thread_id ? thread_id : GetCurrentThreadId();
    return S_OK;
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzList_GetFileAndLine(tQZLIST*, LPWSTR buffer, int capacity) {
    if (buffer && capacity > 0) buffer[0] = 0;
    return -1;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_GrowAllocated(tQZLIST* list, int extra) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    return grow_slots(list, extra);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_ShrinkAllocated(tQZLIST* list, int release) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    return shrink_slots(list, release);
}

namespace {

// Every insertion form, under the entry rule. Kept out of line so that the
// append fast path of QzList_InsertList needs no stack frame of its own.
[[gnu::noinline]] HRESULT insert_general(tQZLIST* list, int index, const void* source, int count) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (index < 0 || index >= list->count) index = list->count;

    const void* items = source;
    std::int64_t n = count;
    void* pending[1] = {list->pending_item};
    if (!source || count < 0 || owns_items(list)) {
        // A heap-item list takes in blocks only through these two forms, so
        // it never adopts a pointer by accident.
        if (source && count < 0) {
            n = -std::int64_t(count);
        } else if (!source && count == -1 && list->pending_item) {
            items = pending;
            n = 1;
        } else {
            return E_FAIL;
        }
    }
    if (list->allocated < list->count + n) {
        const HRESULT hr = grow_slots(list, n);
        if (FAILED(hr)) return hr;
    }
    const SIZE_T size = list->item_size;
    BYTE* at = slot_address(list, index);
    if (index < list->count) std::memmove(at + n * size, at, SIZE_T(list->count - index) * size);
    if (n > 0) copy_items(at, items, SIZE_T(n), size);
    list->count += LONG(n);
    list->pending_item = nullptr;
    return S_OK;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_InsertList(tQZLIST* list, int index,
                                                        const void* source, int count) {
    // The common case, one item appended to an unguarded list with room by
    // its owner thread, skips the general path: appending item by item is
    // how most callers fill a list. (Only heap-item lists, which take the
    // general path, hold a pending item.)
    if (count == 1 && source && is_live(list) &&
        !(list->create_options & (QZLIST_THREADSAFE | QZLIST_HEAPITEMS))) {
        const LONG n = list->count;
        if (unsigned(index) >= unsigned(n) && has_room_for_one(list) &&
            ((list->create_options & QZLIST_ANYTHREAD) ||
             GetCurrentThreadId() == list->thread_owner)) {
            copy_items(slot_address(list, n), source, 1, list->item_size);
            list->count = n + 1;
            return S_OK;
        }
    }
    return insert_general(list, index, source, count);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_DeleteList(tQZLIST* list, int index, int count,
                                                        BOOL shrink) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    std::int64_t n = count;
    if (count < 0) {
        if (index < 0) {
            if (!list->pending_item) return E_FAIL;
            free_block(list, list->pending_item);
            list->pending_item = nullptr;
            return S_OK;
        }
        n = list->count;  // to the end, clamped below
    } else if (count < 1) {
        return S_OK;
    }
    if (index < 0 || index >= list->count) return E_FAIL;
    n = std::min<std::int64_t>(n, list->count - index);

    if (owns_items(list)) {
        void** slots = static_cast<void**>(list->items);
        for (std::int64_t i = index; i < index + n; ++i) free_block(list, slots[i]);
    }
    remove_slots(list, index, n);
    // A failed shrink leaves a valid, larger block: the deletion stands.
    if (shrink && list->allocated - list->count > list->grow_step) shrink_slots(list, -1);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_MoveRange(tQZLIST* list, int from, int to, int count) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (from < 0) return E_INVALIDARG;
    if (to < 0) to = 0;
    std::int64_t n = count;
    if (n < 0) n = std::int64_t(list->count) - std::max(from, to);
    if (from + n > list->count || to + n > list->count) return E_FAIL;
    if (n < 1 || from == to) return S_OK;

    const SIZE_T size = list->item_size;
    const SIZE_T bytes = SIZE_T(n) * size;
    BYTE stack_scratch[QZLIST_STACK_SCRATCH];
    HGLOBAL heap_scratch = nullptr;
    BYTE* scratch = stack_scratch;
    if (bytes > sizeof(stack_scratch)) {
        heap_scratch = GlobalAlloc(GMEM_FIXED, bytes);
        if (!heap_scratch) return E_OUTOFMEMORY;
        scratch = static_cast<BYTE*>(heap_scratch);
    }
    std::memcpy(scratch, slot_address(list, from), bytes);
    if (to < from)  // the items in [to, from) move up behind the block
        std::memmove(slot_address(list, to + n), slot_address(list, to), SIZE_T(from - to) * size);
    else  // the items in [from + n, to + n) move down in front of it
        std::memmove(slot_address(list, from), slot_address(list, from + n),
                     SIZE_T(to - from) * size);
    std::memcpy(slot_address(list, to), scratch, bytes);
    if (heap_scratch) GlobalFree(heap_scratch);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_ArrayForceItemCount(tQZLIST* list, int count, BOOL) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (!is_value_list(list)) return E_FAIL;
    if (count < 0) return E_INVALIDARG;
    if (count > list->count) {
        if (count > list->allocated) {
            const HRESULT hr = grow_slots(list, std::int64_t(count) - list->allocated);
            if (FAILED(hr)) return hr;
        }
        list->count = count;
    } else if (count < list->count) {
        // The dropped items are cleared so that slots past the count stay
        // zero and a later larger count shows zeroed items. The shrink flag
        // releases nothing: it asks for a deletion of no items, which never
        // shrinks.
        std::memset(slot_address(list, count), 0, SIZE_T(list->count - count) * list->item_size);
        list->count = count;
    }
    return S_OK;
}
