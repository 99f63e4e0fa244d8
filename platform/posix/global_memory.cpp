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
// Callers such as the XML tree make millions of small blocks, so the table
// is built for that: slots live in one array with a free list, and
// addresses are found through an open-addressing hash of address to slot.
// Each block costs a slot, a hash entry and the allocator's own block.
#include <algorithm>
#include <cstdint>
#include <mutex>
#include <new>
#include <vector>

#include "platform/posix/address_index.h"
#include "platform/posix/fault_plan.h"
#include "platform/posix/sized_block.h"
#include "platform/posix/win32_internal.h"

namespace qz::posix {

namespace {

struct GlobalBlock {
    SizedBlock memory;
    uint32_t generation = 0; /* bumped when the slot is freed */
    bool live = false;
    bool moveable = false;
    unsigned char locks = 0; /* only moveable blocks count locks */
};

// A moveable handle: slot and generation, low bits 100. Every block, fixed
// ones too, takes a slot. A 32-bit handle has 29 bits for both: 24 for the
// slot, so that a tree of millions of blocks fits (an XML document of a
// million elements has three each), and 5 for the generation.
constexpr unsigned kSlotBits = sizeof(uintptr_t) == 8 ? 32 : 24;
constexpr uintptr_t kSlotMask = (uintptr_t(1) << kSlotBits) - 1;
constexpr uintptr_t kGenerationMask = (uintptr_t(1) << (sizeof(uintptr_t) * 8 - 3 - kSlotBits)) - 1;

struct GlobalTable {
    std::mutex lock;
    std::vector<GlobalBlock> slots;
    std::vector<uint32_t> free_slots;
    AddressIndex by_address;

    static HGLOBAL moveable_handle(uint32_t slot, uint32_t generation) {
        const uintptr_t g = uintptr_t(generation) & kGenerationMask;
        return reinterpret_cast<HGLOBAL>((((g << kSlotBits) | slot) << 3) | 4u);
    }

    // The live block a handle names, or null.
    GlobalBlock* find(HGLOBAL handle) {
        const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
        if ((value & 7u) == 4u) {
            const uintptr_t slot = (value >> 3) & kSlotMask;
            const uintptr_t generation = (value >> (3 + kSlotBits)) & kGenerationMask;
            if (slot >= slots.size()) return nullptr;
            GlobalBlock& b = slots[slot];
            if (!b.live || !b.moveable || (b.generation & kGenerationMask) != generation)
                return nullptr;
            return &b;
        }
        const uint32_t slot = by_address.find(handle);
        if (slot == AddressIndex::kNone || slots[slot].moveable) return nullptr;
        return &slots[slot];
    }

    uint32_t slot_of(const GlobalBlock* b) const { return uint32_t(b - slots.data()); }

    HGLOBAL handle_of(const GlobalBlock* b) const {
        return b->moveable ? moveable_handle(slot_of(b), b->generation) : b->memory.data;
    }

    // A free slot; throws std::bad_alloc.
    uint32_t take_slot() {
        if (!free_slots.empty()) {
            const uint32_t slot = free_slots.back();
            free_slots.pop_back();
            return slot;
        }
        if (slots.size() > kSlotMask) throw std::bad_alloc();
        // Room for every slot on the free list, so release never throws;
        // grown geometrically like the slots themselves.
        if (free_slots.capacity() < slots.size() + 1)
            free_slots.reserve(std::max<size_t>(1024, 2 * (slots.size() + 1)));
        slots.emplace_back();
        return uint32_t(slots.size() - 1);
    }

    void release(GlobalBlock* b) {
        b->live = false;
        b->locks = 0;
        ++b->generation;
        b->memory = SizedBlock{};
        free_slots.push_back(slot_of(b));
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
    block.moveable = true;
    return t.handle_of(&block);
}

}  // namespace

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (alloc_fault()) return nullptr;
    SizedBlock memory;
    if (!allocate_block(memory, bytes, (flags & GMEM_ZEROINIT) != 0)) {
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    GlobalTable& t = table();
    std::lock_guard<std::mutex> guard(t.lock);
    uint32_t slot = 0;
    try {
        slot = t.take_slot();
        t.by_address.insert(memory.data, slot);
    } catch (const std::bad_alloc&) {
        if (slot < t.slots.size() && !t.slots[slot].live) t.free_slots.push_back(slot);
        free_block(memory);
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    GlobalBlock& block = t.slots[slot];
    block.memory = memory;
    block.live = true;
    block.moveable = (flags & GMEM_MOVEABLE) != 0;
    block.locks = 0;
    return t.handle_of(&block);
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
    const uint32_t slot = t.by_address.find(address);
    if (slot != AddressIndex::kNone) return t.handle_of(&t.slots[slot]);
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
    SizedBlock resized = block->memory;
    if (!resize_block(resized, bytes, (flags & GMEM_ZEROINIT) != 0, may_move)) {
        return fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (resized.data != old_address) {
        // Re-key before committing, so a failure leaves the table right:
        // the old storage is gone, but the block is still found under its
        // new address.
        const uint32_t slot = t.slot_of(block);
        t.by_address.erase(old_address);
        try {
            t.by_address.insert(resized.data, slot);
        } catch (const std::bad_alloc&) {
            // The index shrank by one entry above, so this insert cannot grow it.
        }
        block = &t.slots[slot];
    }
    block->memory = resized;
    return t.handle_of(block);
}

QZ_EXTERN_C HGLOBAL GlobalFree(HGLOBAL memory) {
    if (!memory) return nullptr;
    SizedBlock released;
    {
        GlobalTable& t = table();
        std::lock_guard<std::mutex> guard(t.lock);
        GlobalBlock* block = t.find(memory);
        if (!block) {
            SetLastError(ERROR_INVALID_HANDLE);
            return memory;
        }
        released = block->memory;
        t.by_address.erase(released.data);
        t.release(block);
    }
    free_block(released);
    return nullptr;
}
