// Global memory: GlobalAlloc and friends.
//
// Every live block is recorded in one table, keyed by its handle and by its
// address, and every call looks the block up there before touching memory:
// an invalid, foreign or already-freed handle is refused with
// ERROR_INVALID_HANDLE instead of being dereferenced.
//
// A fixed block's handle is its address. A moveable block gets a handle of
// its own, made from a counter and never a multiple of eight, so it can
// neither be mistaken for an address the allocator returned nor be reused
// after a free: a double free of a moveable handle is always detected.
#include <cstdint>
#include <mutex>
#include <new>
#include <unordered_map>

#include "platform/posix/fault_plan.h"
#include "platform/posix/sized_block.h"
#include "platform/posix/win32_internal.h"

namespace qz::posix {

namespace {

struct GlobalBlock {
    SizedBlock memory;
    bool moveable = false;
    unsigned locks = 0; /* only moveable blocks count locks */
};

struct GlobalTable {
    std::mutex lock;
    std::unordered_map<HGLOBAL, GlobalBlock> by_handle;
    std::unordered_map<const void*, HGLOBAL> by_address;
    uintptr_t moveable_count = 0;

    HGLOBAL next_moveable_handle() {
        return reinterpret_cast<HGLOBAL>((++moveable_count << 3) | 4u);
    }

    GlobalBlock* find(HGLOBAL handle) {
        auto it = by_handle.find(handle);
        return it == by_handle.end() ? nullptr : &it->second;
    }

    // Moves the key `from` of `map` to `to` without allocating, so that a
    // block that moved can always be re-keyed.
    template <class Map, class Key>
    static void rekey(Map& map, Key from, Key to) {
        auto node = map.extract(from);
        node.key() = to;
        map.insert(std::move(node));
    }
};

GlobalTable& table() {
    // Never destroyed: blocks may still be freed from other destructors
    // while the process exits.
    static GlobalTable* t = new GlobalTable;
    return *t;
}

bool alloc_fault() {
    DWORD error = 0;
    if (!inject_fault(qz::testing::FaultOp::Alloc, &error)) return false;
    SetLastError(error);
    return true;
}

HGLOBAL fail(DWORD error) {
    SetLastError(error);
    return nullptr;
}

// GMEM_MODIFY: only the flags change. Making a fixed block moveable gives
// it a handle of its own; the address stays.
HGLOBAL modify_flags(GlobalTable& t, HGLOBAL handle, GlobalBlock& block, UINT flags) {
    if (!(flags & GMEM_MOVEABLE) || block.moveable) return handle;
    const HGLOBAL moved = t.next_moveable_handle();
    block.moveable = true;
    GlobalTable::rekey(t.by_handle, handle, moved);
    t.by_address[block.memory.data] = moved;
    return moved;
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (alloc_fault()) return nullptr;
    GlobalBlock block;
    block.moveable = (flags & GMEM_MOVEABLE) != 0;
    if (!allocate_block(block.memory, bytes, (flags & GMEM_ZEROINIT) != 0)) {
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    const HGLOBAL handle = block.moveable ? t.next_moveable_handle() : block.memory.data;
    const void* address = block.memory.data;
    try {
        t.by_handle.emplace(handle, block);
        try {
            t.by_address.emplace(address, handle);
        } catch (const std::bad_alloc&) {
            t.by_handle.erase(handle);
            throw;
        }
    } catch (const std::bad_alloc&) {
        free_block(block.memory);
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    return handle;
}

QZ_EXTERN_C LPVOID GlobalLock(HGLOBAL memory) {
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    GlobalBlock* block = t.find(memory);
    if (!block) return fail(ERROR_INVALID_HANDLE);
    // The count saturates like the Windows one, which a byte holds.
    if (block->moveable && block->locks < 0xFF) ++block->locks;
    return block->memory.data;
}

QZ_EXTERN_C BOOL GlobalUnlock(HGLOBAL memory) {
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    GlobalBlock* block = t.find(memory);
    if (!block) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // Fixed blocks have no lock count; unlocking one is harmless.
    if (!block->moveable) return TRUE;
    if (block->locks == 0) {
        SetLastError(ERROR_NOT_LOCKED);
        return FALSE;
    }
    // Reaching zero is reported as FALSE with NO_ERROR, so callers that
    // check the result can tell "now unlocked" from a failure.
    if (--block->locks == 0) {
        SetLastError(NO_ERROR);
        return FALSE;
    }
    return TRUE;
}

QZ_EXTERN_C HGLOBAL GlobalHandle(LPCVOID address) {
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    auto it = t.by_address.find(address);
    if (it != t.by_address.end()) return it->second;
    // A moveable handle names itself.
    HGLOBAL as_handle = const_cast<LPVOID>(address);
    if (t.find(as_handle)) return as_handle;
    return fail(ERROR_INVALID_HANDLE);
}

QZ_EXTERN_C SIZE_T GlobalSize(HGLOBAL memory) {
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    GlobalBlock* block = t.find(memory);
    if (!block) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return block->memory.size;
}

QZ_EXTERN_C HGLOBAL GlobalReAlloc(HGLOBAL memory, SIZE_T bytes, UINT flags) {
    if (alloc_fault()) return nullptr;
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    GlobalBlock* block = t.find(memory);
    if (!block) return fail(ERROR_INVALID_HANDLE);
    if (flags & GMEM_MODIFY) return modify_flags(t, memory, *block, flags);

    // A fixed block, or a locked moveable one, has callers holding its
    // address: it may only move when the caller says so with GMEM_MOVEABLE.
    const bool may_move = (flags & GMEM_MOVEABLE) || (block->moveable && block->locks == 0);
    const void* old_address = block->memory.data;
    if (!resize_block(block->memory, bytes, (flags & GMEM_ZEROINIT) != 0, may_move)) {
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    const void* new_address = block->memory.data;
    if (new_address == old_address) return memory;
    GlobalTable::rekey(t.by_address, old_address, new_address);
    if (block->moveable) return memory;
    // A fixed block's handle is its address, so it moves with it.
    const HGLOBAL moved = block->memory.data;
    GlobalTable::rekey(t.by_handle, memory, moved);
    t.by_address[new_address] = moved;
    return moved;
}

QZ_EXTERN_C HGLOBAL GlobalFree(HGLOBAL memory) {
    if (!memory) return nullptr;
    SizedBlock released;
    {
        GlobalTable& t = table();
        std::lock_guard<std::mutex> guard(t.lock);
        auto it = t.by_handle.find(memory);
        if (it == t.by_handle.end()) {
            SetLastError(ERROR_INVALID_HANDLE);
            return memory;
        }
        released = it->second.memory;
        t.by_address.erase(released.data);
        t.by_handle.erase(it);
    }
    free_block(released);
    return nullptr;
}
