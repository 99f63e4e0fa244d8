// Internal helpers shared by the list's source files: the entry rule, item
// addressing, the slot-block arithmetic and the allocators of owned blocks.
#ifndef QZ_KERNEL_LIST_INTERNAL_H
#define QZ_KERNEL_LIST_INTERNAL_H

#include <bit>
#include <cstddef>
#include <cstdint>

#include "platform/win32api.h"
#include "qz/qzlist.h"

namespace qz::list {

inline bool is_live(const tQZLIST* list) {
    return list != nullptr && list->signature == QZLIST_SIGNATURE;
}
inline bool has(const tQZLIST* list, DWORD option) {
    return (list->create_options & option) != 0;
}
inline bool is_value_list(const tQZLIST* list) {
    return has(list, QZLIST_VALUES);
}
inline bool owns_items(const tQZLIST* list) {
    return has(list, QZLIST_HEAPITEMS);
}

// The entry rule: a thread-safe list is locked for the guard's lifetime;
// any other list refuses a thread other than its owner unless any thread
// may call. A null or dead list is refused as well.
class Entry {
public:
    explicit Entry(tQZLIST* list);
    ~Entry();
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

    bool ok() const { return state_ == State::Entered; }
    // The result code of a refused call: E_INVALIDARG for a bad list,
    // E_FAIL for a foreign thread.
    HRESULT refusal() const { return state_ == State::BadList ? E_INVALIDARG : E_FAIL; }

private:
    enum class State { Entered, BadList, ForeignThread };
    tQZLIST* list_;
    bool locked_ = false;
    State state_ = State::Entered;
};

// The entry rule for a call on two lists, `first` being the one whose
// refusal is reported when both are refused. Both lists are admitted
// before either is locked; two thread-safe lists are then locked in one
// order for every caller, the lower address first, so two threads moving
// items between the same lists in opposite directions cannot each hold one
// lock while waiting for the other. Both stay locked for the whole call.
class PairEntry {
public:
    PairEntry(tQZLIST* first, tQZLIST* second);
    ~PairEntry();
    PairEntry(const PairEntry&) = delete;
    PairEntry& operator=(const PairEntry&) = delete;

    bool ok() const { return refusal_ == S_OK; }
    HRESULT refusal() const { return refusal_; }

private:
    tQZLIST* locked_[2] = {nullptr, nullptr};
    HRESULT refusal_ = S_OK;
};

// Byte address of slot i.
inline BYTE* slot_address(const tQZLIST* list, std::int64_t i) {
    return static_cast<BYTE*>(list->items) + i * std::int64_t(list->item_size);
}
// What comparisons and searches see of item i: its address in a value
// list, the pointer it holds otherwise.
inline const void* item_argument(const tQZLIST* list, std::int64_t i) {
    if (is_value_list(list)) return slot_address(list, i);
    return static_cast<void* const*>(list->items)[i];
}

// n rounded up to a multiple of step (step >= 1).
inline std::int64_t round_up(std::int64_t n, std::int64_t step) {
    return (n + step - 1) / step * step;
}

// Bytes of a slot block of `slots` slots, or false when it cannot be
// addressed on this platform. A block never has fewer bytes than one slot.
/*
 * The slots the block under a list of `allocated` slots really holds:
 * exactly `allocated` for small lists, the next power of two beyond
 * kExactBlockSlots. Allocated still moves in whole grow steps, but the
 * memory of a large list grows geometrically, so appending item by item
 * stays linear without wasting room in the many small lists.
 */
inline constexpr std::int64_t kExactBlockSlots = 256;
// The slots the block under `allocated` slots holds: exactly that many up
// to kExactBlockSlots (a power of two), then the next power of two.
inline std::int64_t block_slots(std::int64_t allocated) {
    if (allocated <= kExactBlockSlots) return allocated;
    return std::int64_t(std::bit_ceil(std::uint64_t(allocated)));
}
bool slot_block_bytes(const tQZLIST* list, std::int64_t slots, SIZE_T* bytes);

// Takes slots index .. index+n-1 (all in use) out of the list, closing the
// gap and zeroing the vacated slots at the end; owned blocks are not freed.
void remove_slots(tQZLIST* list, std::int64_t index, std::int64_t n);

// Grows the slot block by `extra` slots (below 1: one grow step), rounded up
// to the grow step. E_OUTOFMEMORY leaves the list unchanged.
HRESULT grow_slots(tQZLIST* list, std::int64_t extra);
// Releases up to `release` free slots (below 0: all) in whole grow steps.
HRESULT shrink_slots(tQZLIST* list, std::int64_t release);

// Owned blocks (kernel/list_memory.cpp): from the list's private heap, or
// from the standard allocator. Allocation zeroes; reallocation zeroes what
// it adds.
void* alloc_block(const tQZLIST* list, SIZE_T size);
void* realloc_block(const tQZLIST* list, void* block, SIZE_T size);
void free_block(const tQZLIST* list, void* block);
SIZE_T block_size(const tQZLIST* list, const void* block);

// The standard allocator of list headers and owned blocks: the process
// heap (GetProcessHeap), zeroing. std_block_size answers exactly the size
// asked for. Its failures are the platform's, so a test's fault plan fails
// these allocations as it fails every other.
void* std_calloc(SIZE_T size);
void* std_realloc(void* block, SIZE_T size);
void std_free(void* block);
SIZE_T std_block_size(const void* block);

}  // namespace qz::list

#endif
