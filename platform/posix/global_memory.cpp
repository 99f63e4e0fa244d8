// Global memory: GlobalAlloc and friends.
//
// Every live block is recorded in one table and every call looks the block
// up there before touching memory: an invalid, foreign or already-freed
// handle is refused with ERROR_INVALID_HANDLE instead of being
// dereferenced.
//
// A fixed block's handle is its address. A moveable block gets a handle of
// its own that names its slot in the table together with the slot's
// generation, and is never a multiple of eight, so it can neither be
// mistaken for an address the allocator returned nor name a later block
// that reuses the slot: a double free of a moveable handle is detected.
//
// The blocks themselves live in a block store (block_store.h), which finds
// them by address without touching memory it did not hand out.
#include <algorithm>
#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

#include "platform/posix/block_store.h"
#include "platform/posix/fault_plan.h"
#include "platform/posix/win32_internal.h"

namespace qz::posix {

namespace {

struct GlobalExtra {
    uint32_t generation = 0; /* bumped when the slot is freed */
    bool moveable = false;
    unsigned char locks = 0; /* only moveable blocks count locks */
};

using Store = BlockStore<GlobalExtra>;
using GlobalBlock = Store::Slot;

// A moveable handle: slot and generation, low bits 100. Every block, fixed
// ones too, takes a slot. A 32-bit handle has 29 bits for both: 24 for the
// slot, so that a tree of millions of blocks fits (an XML document of a
// million elements has three each), and 5 for the generation.
constexpr unsigned kSlotBits = sizeof(uintptr_t) == 8 ? 32 : 24;
constexpr uintptr_t kSlotMask = (uintptr_t(1) << kSlotBits) - 1;
constexpr uintptr_t kGenerationMask = (uintptr_t(1) << (sizeof(uintptr_t) * 8 - 3 - kSlotBits)) - 1;

struct GlobalTable {
    std::mutex lock;
    Store blocks;

    static HGLOBAL moveable_handle(uint32_t slot, uint32_t generation) {
        const uintptr_t g = uintptr_t(generation) & kGenerationMask;
        return reinterpret_cast<HGLOBAL>((((g << kSlotBits) | slot) << 3) | 4u);
    }

    // The live block a handle names, with its slot, or null.
    GlobalBlock* find(HGLOBAL handle, uint32_t* slot_out = nullptr) {
        const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
        uint32_t slot = Store::kNone;
        if ((value & 7u) == 4u) {
            slot = uint32_t((value >> 3) & kSlotMask);
            const uintptr_t generation = (value >> (3 + kSlotBits)) & kGenerationMask;
            if (!blocks.live(slot)) return nullptr;
            const GlobalExtra& e = blocks.at(slot).extra;
            if (!e.moveable || (e.generation & kGenerationMask) != generation) return nullptr;
        } else {
            slot = blocks.find(handle);
            if (slot == Store::kNone || blocks.at(slot).extra.moveable) return nullptr;
        }
        if (slot_out) *slot_out = slot;
        return &blocks.at(slot);
    }

    HGLOBAL handle_of(uint32_t slot) {
        const GlobalBlock& b = blocks.at(slot);
        return b.extra.moveable ? moveable_handle(slot, b.extra.generation) : b.memory.data;
    }

    void release(uint32_t slot) {
        GlobalExtra& e = blocks.at(slot).extra;
        e.locks = 0;
        ++e.generation;
        blocks.release(slot);
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
HGLOBAL modify_flags(GlobalTable& t, HGLOBAL handle, uint32_t slot, UINT flags) {
    GlobalExtra& e = t.blocks.at(slot).extra;
    if (!(flags & GMEM_MOVEABLE) || e.moveable) return handle;
    e.moveable = true;
    return t.handle_of(slot);
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (alloc_fault()) return nullptr;
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    const uint32_t slot = t.blocks.allocate(bytes, (flags & GMEM_ZEROINIT) != 0);
    if (slot == Store::kNone) return fail(ERROR_NOT_ENOUGH_MEMORY);
    if (slot > kSlotMask) {
        // Beyond what a moveable handle can name.
        t.release(slot);
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    GlobalExtra& e = t.blocks.at(slot).extra;
    e.moveable = (flags & GMEM_MOVEABLE) != 0;
    e.locks = 0;
    return t.handle_of(slot);
}

QZ_EXTERN_C LPVOID GlobalLock(HGLOBAL memory) {
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    GlobalBlock* block = t.find(memory);
    if (!block) return fail(ERROR_INVALID_HANDLE);
    // The count saturates like the Windows one, which a byte holds.
    if (block->extra.moveable && block->extra.locks < 0xFF) ++block->extra.locks;
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
    GlobalExtra& e = block->extra;
    // Fixed blocks have no lock count; unlocking one is harmless.
    if (!e.moveable) return TRUE;
    if (e.locks == 0) {
        SetLastError(ERROR_NOT_LOCKED);
        return FALSE;
    }
    // Reaching zero is reported as FALSE with NO_ERROR, so callers that
    // check the result can tell "now unlocked" from a failure.
    if (--e.locks == 0) {
        SetLastError(NO_ERROR);
        return FALSE;
    }
    return TRUE;
}

QZ_EXTERN_C HGLOBAL GlobalHandle(LPCVOID address) {
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    const uint32_t slot = t.blocks.find(address);
    if (slot != Store::kNone) return t.handle_of(slot);
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
    uint32_t slot = Store::kNone;
    GlobalBlock* block = t.find(memory, &slot);
    if (!block) return fail(ERROR_INVALID_HANDLE);
    if (flags & GMEM_MODIFY) return modify_flags(t, memory, slot, flags);

    // A fixed block, or a locked moveable one, has callers holding its
    // address: it may only move when the caller says so with GMEM_MOVEABLE.
    const bool may_move =
        (flags & GMEM_MOVEABLE) || (block->extra.moveable && block->extra.locks == 0);
    if (!t.blocks.resize(slot, bytes, (flags & GMEM_ZEROINIT) != 0, may_move))
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    return t.handle_of(slot);
}

QZ_EXTERN_C HGLOBAL GlobalFree(HGLOBAL memory) {
    if (!memory) return nullptr;
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    uint32_t slot = Store::kNone;
    if (!t.find(memory, &slot)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return memory;
    }
    t.release(slot);
    return nullptr;
}
