// Private heaps: HeapCreate and friends.
//
// A heap is a handle object that records its blocks (in slots found by
// address through an open-addressing index), so that HeapDestroy
// can free every block still live and a pointer the heap did not hand out
// is refused (HeapFree FALSE, HeapSize (SIZE_T)-1, with
// ERROR_INVALID_PARAMETER) instead of being passed to the allocator.
#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

#include "platform/posix/address_index.h"
#include "platform/posix/fault_plan.h"
#include "platform/posix/handles.h"
#include "platform/posix/sized_block.h"

namespace qz::posix {

namespace {

constexpr SIZE_T kHeapSizeFailed = static_cast<SIZE_T>(-1);

class HeapObject : public HandleObject {
public:
    explicit HeapObject(SIZE_T maximum) : HandleObject(HandleKind::Heap), maximum_(maximum) {}
    ~HeapObject() override { release_all(); }

    // CloseHandle on a heap destroys it.
    bool close() override {
        release_all();
        return true;
    }

    void release_all() {
        std::lock_guard<std::mutex> guard(lock_);
        for (SizedBlock& block : slots_)
            if (block.data) free_block(block);
        slots_.clear();
        free_slots_.clear();
        index_ = AddressIndex();
        in_use_ = 0;
    }

    LPVOID allocate(SIZE_T bytes, bool zero) {
        std::lock_guard<std::mutex> guard(lock_);
        if (!fits(0, bytes)) return out_of_memory();
        SizedBlock block;
        if (!allocate_block(block, bytes, zero)) return out_of_memory();
        try {
            const uint32_t slot = take_slot();
            try {
                index_.insert(block.data, slot);
            } catch (const std::bad_alloc&) {
                free_slots_.push_back(slot);
                throw;
            }
            slots_[slot] = block;
        } catch (const std::bad_alloc&) {
            free_block(block);
            return out_of_memory();
        }
        in_use_ += bytes;
        return block.data;
    }

    LPVOID reallocate(LPVOID memory, SIZE_T bytes, bool zero, bool may_move) {
        std::lock_guard<std::mutex> guard(lock_);
        const uint32_t slot = index_.find(memory);
        if (slot == AddressIndex::kNone) return not_ours();
        SizedBlock& block = slots_[slot];
        const SIZE_T old_size = block.size;
        if (!fits(old_size, bytes)) return out_of_memory();
        if (!resize_block(block, bytes, zero, may_move)) return out_of_memory();
        in_use_ = in_use_ - old_size + bytes;
        LPVOID data = block.data;
        if (data != memory) {
            // One entry out, one in: the index never grows here, so a moved
            // block is never lost.
            index_.erase(memory);
            index_.insert(data, slot);
        }
        return data;
    }

    SIZE_T size(LPCVOID memory) {
        std::lock_guard<std::mutex> guard(lock_);
        const uint32_t slot = index_.find(memory);
        if (slot == AddressIndex::kNone) {
            not_ours();
            return kHeapSizeFailed;
        }
        return slots_[slot].size;
    }

    bool release(LPVOID memory) {
        SizedBlock block;
        {
            std::lock_guard<std::mutex> guard(lock_);
            const uint32_t slot = index_.find(memory);
            if (slot == AddressIndex::kNone) {
                not_ours();
                return false;
            }
            block = slots_[slot];
            slots_[slot] = SizedBlock{};
            index_.erase(memory);
            free_slots_.push_back(slot);  // room reserved when the slot was made
            in_use_ -= block.size;
        }
        free_block(block);
        return true;
    }

private:
    // A heap created with a maximum size is fixed: its blocks together
    // never exceed it.
    bool fits(SIZE_T old_size, SIZE_T new_size) const {
        if (maximum_ == 0 || new_size <= old_size) return true;
        return new_size - old_size <= maximum_ - in_use_;
    }

    static LPVOID out_of_memory() {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }

    static LPVOID not_ours() {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }

    // A free slot; throws std::bad_alloc.
    uint32_t take_slot() {
        if (!free_slots_.empty()) {
            const uint32_t slot = free_slots_.back();
            free_slots_.pop_back();
            return slot;
        }
        if (slots_.size() >= AddressIndex::kNone) throw std::bad_alloc();
        // Room for every slot on the free list, so release never throws.
        if (free_slots_.capacity() < slots_.size() + 1)
            free_slots_.reserve(std::max<size_t>(1024, 2 * (slots_.size() + 1)));
        slots_.emplace_back();
        return uint32_t(slots_.size() - 1);
    }

    std::mutex lock_;
    // Blocks live in slots (a free data pointer marks an unused one) and
    // are found by address through the index.
    std::vector<SizedBlock> slots_;
    std::vector<uint32_t> free_slots_;
    AddressIndex index_;
    const SIZE_T maximum_;
    SIZE_T in_use_ = 0;
};

bool alloc_fault() {
    DWORD error = 0;
    if (!inject_fault(qz::testing::FaultOp::Alloc, &error)) return false;
    SetLastError(error);
    return true;
}

// The process heap lives as long as the process and stays out of the
// handle registry: CloseHandle refuses it like any unknown handle.
const std::shared_ptr<HeapObject>& process_heap() {
    static const auto* heap = new std::shared_ptr<HeapObject>(std::make_shared<HeapObject>(0));
    return *heap;
}

HandleRef<HeapObject> find_heap(HANDLE heap) {
    if (heap == process_heap().get()) return HandleRef<HeapObject>(nullptr, process_heap().get());
    return lookup<HeapObject>(heap, HandleKind::Heap);
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C HANDLE HeapCreate(DWORD /*options*/, SIZE_T /*initial_size*/, SIZE_T maximum_size) {
    if (alloc_fault()) return nullptr;
    try {
        return register_handle(std::make_shared<HeapObject>(maximum_size));
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
}

QZ_EXTERN_C HANDLE GetProcessHeap(void) {
    return process_heap().get();
}

QZ_EXTERN_C BOOL HeapDestroy(HANDLE heap) {
    HandleRef<HeapObject> object = find_heap(heap);
    if (!object) return FALSE;
    if (object.get() == process_heap().get()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    unregister_handle(heap);
    object->release_all();
    return TRUE;
}

QZ_EXTERN_C LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    if (alloc_fault()) return nullptr;
    HandleRef<HeapObject> object = find_heap(heap);
    if (!object) return nullptr;
    return object->allocate(bytes, (flags & HEAP_ZERO_MEMORY) != 0);
}

QZ_EXTERN_C LPVOID HeapReAlloc(HANDLE heap, DWORD flags, LPVOID memory, SIZE_T bytes) {
    if (alloc_fault()) return nullptr;
    HandleRef<HeapObject> object = find_heap(heap);
    if (!object) return nullptr;
    return object->reallocate(memory, bytes, (flags & HEAP_ZERO_MEMORY) != 0,
                              (flags & HEAP_REALLOC_IN_PLACE_ONLY) == 0);
}

QZ_EXTERN_C SIZE_T HeapSize(HANDLE heap, DWORD /*flags*/, LPCVOID memory) {
    HandleRef<HeapObject> object = find_heap(heap);
    if (!object) return kHeapSizeFailed;
    return object->size(memory);
}

QZ_EXTERN_C BOOL HeapFree(HANDLE heap, DWORD /*flags*/, LPVOID memory) {
    HandleRef<HeapObject> object = find_heap(heap);
    if (!object) return FALSE;
    // Freeing null is allowed and does nothing.
    if (!memory) return TRUE;
    return object->release(memory) ? TRUE : FALSE;
}
