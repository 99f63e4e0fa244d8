// Private heaps: HeapCreate and friends.
//
// A heap is a handle object that records its blocks in a block store
// (block_store.h), so that HeapDestroy can free every block still live and a pointer the heap did not hand out
// is refused (HeapFree FALSE, HeapSize (SIZE_T)-1, with
// ERROR_INVALID_PARAMETER) instead of being passed to the allocator.
#include <algorithm>
#include <mutex>
#include <new>
#include <vector>

#include "platform/posix/block_store.h"
#include "platform/posix/fault_plan.h"
#include "platform/posix/handles.h"

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
        blocks_.release_all();
        in_use_ = 0;
    }

    LPVOID allocate(SIZE_T bytes, bool zero) {
        std::lock_guard<std::mutex> guard(lock_);
        if (!fits(0, bytes)) return out_of_memory();
        const uint32_t slot = blocks_.allocate(bytes, zero);
        if (slot == Store::kNone) return out_of_memory();
        in_use_ += bytes;
        return blocks_.at(slot).memory.data;
    }

    LPVOID reallocate(LPVOID memory, SIZE_T bytes, bool zero, bool may_move) {
        std::lock_guard<std::mutex> guard(lock_);
        const uint32_t slot = blocks_.find(memory);
        if (slot == Store::kNone) return not_ours();
        const SIZE_T old_size = blocks_.at(slot).memory.size;
        if (!fits(old_size, bytes)) return out_of_memory();
        if (!blocks_.resize(slot, bytes, zero, may_move)) return out_of_memory();
        in_use_ = in_use_ - old_size + bytes;
        return blocks_.at(slot).memory.data;
    }

    SIZE_T size(LPCVOID memory) {
        std::lock_guard<std::mutex> guard(lock_);
        const uint32_t slot = blocks_.find(memory);
        if (slot == Store::kNone) {
            not_ours();
            return kHeapSizeFailed;
        }
        return blocks_.at(slot).memory.size;
    }

    bool release(LPVOID memory) {
        std::lock_guard<std::mutex> guard(lock_);
        const uint32_t slot = blocks_.find(memory);
        if (slot == Store::kNone) {
            not_ours();
            return false;
        }
        in_use_ -= blocks_.at(slot).memory.size;
        blocks_.release(slot);
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

    struct NoExtra {};
    using Store = BlockStore<NoExtra>;

    std::mutex lock_;
    Store blocks_;
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
