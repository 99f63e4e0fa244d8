/*
 * block_store.h - the table of blocks behind global memory and each
 * private heap.
 *
 * A store hands out blocks and numbers them by slot: slots live in pages
 * of 4096 that never move (growing the table copies nothing and leaves no
 * slack beyond one page), free slots are chained through their own size
 * field, and each slot carries the owner's own record
 * (`Extra`: the lock count and generation of a global block, nothing for
 * a heap block). A block is found by its address before anything touches
 * its memory, so a foreign, inner or freed address is refused rather than
 * dereferenced: small blocks (up to SlabPool::kLargest bytes) through
 * their slab, larger ones through an address index.
 *
 * Not thread-safe: each owner serialises its calls. Nothing here throws.
 */
#ifndef QZ_PLATFORM_POSIX_BLOCK_STORE_H
#define QZ_PLATFORM_POSIX_BLOCK_STORE_H

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "platform/posix/address_index.h"
#include "platform/posix/sized_block.h"
#include "platform/posix/slab_pool.h"

namespace qz::posix {

template <class Extra>
class BlockStore {
public:
    static constexpr uint32_t kNone = AddressIndex::kNone;

    struct Slot {
        SizedBlock memory;  // data is null while the slot is free
        [[no_unique_address]] Extra extra{};  // kept while the slot is free
        uint32_t slab = kNone;  // the slab of a small block; kNone for a large one
    };

    BlockStore() = default;
    BlockStore(const BlockStore&) = delete;
    BlockStore& operator=(const BlockStore&) = delete;
    ~BlockStore() { release_all(); }

    /* A new block of `bytes` in a free slot, or kNone when out of memory. */
    uint32_t allocate(SIZE_T bytes, bool zero) {
        const uint32_t slot = take_slot();
        if (slot == kNone) return kNone;
        Slot& s = at(slot);
        if (SlabPool::takes(bytes)) {
            size_t capacity = 0;
            void* data = small_.allocate(bytes, zero, slot, &capacity, &s.slab);
            if (!data) return give_back(slot);
            s.memory = SizedBlock{data, bytes, capacity};
            return slot;
        }
        SizedBlock memory;
        if (!allocate_block(memory, bytes, zero)) return give_back(slot);
        try {
            large_.insert(memory.data, slot);
        } catch (const std::bad_alloc&) {
            free_block(memory);
            return give_back(slot);
        }
        s.memory = memory;
        return slot;
    }

    /* The slot of the live block whose data starts at `address`, or kNone. */
    uint32_t find(const void* address) const {
        const uint32_t slot = small_.find(address);
        return slot != kNone ? slot : large_.find(address);
    }

    Slot& at(uint32_t slot) { return pages_[slot / kPageSlots][slot % kPageSlots]; }
    const Slot& at(uint32_t slot) const { return pages_[slot / kPageSlots][slot % kPageSlots]; }
    bool live(uint32_t slot) const { return slot < made_ && at(slot).memory.data; }

    /*
     * Changes a block's size, zeroing the grown part when asked. Growth past
     * the capacity moves the data unless `may_move` is false, in which case
     * the call fails. False leaves the block as it was.
     */
    bool resize(uint32_t slot, SIZE_T bytes, bool zero, bool may_move) {
        Slot& s = at(slot);
        if (s.slab == kNone) return resize_large(s, slot, bytes, zero, may_move);
        if (bytes <= s.memory.capacity) {
            if (zero && bytes > s.memory.size)
                std::memset(static_cast<char*>(s.memory.data) + s.memory.size, 0,
                            bytes - s.memory.size);
            s.memory.size = bytes;
            return true;
        }
        if (!may_move) return false;
        return move_small(s, slot, bytes, zero);
    }

    /* Frees a live block; the slot's Extra stays for the owner to update. */
    void release(uint32_t slot) {
        free_memory(at(slot));
        give_back(slot);
    }

    /* Frees every block. */
    void release_all() {
        for (uint32_t slot = 0; slot < made_; ++slot) {
            Slot& s = at(slot);
            if (s.memory.data && s.slab == kNone) free_block(s.memory);
        }
        small_.clear();
        pages_.clear();
        made_ = 0;
        free_head_ = kNone;
        large_ = AddressIndex();
    }

private:
    static constexpr uint32_t kPageSlots = 4096;

    uint32_t take_slot() {
        if (free_head_ != kNone) {
            const uint32_t slot = free_head_;
            free_head_ = uint32_t(at(slot).memory.size);
            at(slot).memory.size = 0;
            return slot;
        }
        if (made_ >= kNone - 1) return kNone;
        if (made_ % kPageSlots == 0) {
            try {
                pages_.push_back(std::make_unique<Slot[]>(kPageSlots));
            } catch (const std::bad_alloc&) {
                return kNone;
            }
        }
        return made_++;
    }

    // A free slot keeps the next free one in its size field.
    uint32_t give_back(uint32_t slot) {
        at(slot).memory.size = free_head_;
        free_head_ = slot;
        return kNone;
    }

    void free_memory(Slot& s) {
        if (s.slab != kNone) {
            small_.release(s.memory.data, s.slab);
        } else {
            large_.erase(s.memory.data);
            free_block(s.memory);
        }
        s.memory = SizedBlock{};
        s.slab = kNone;
    }

    bool resize_large(Slot& s, uint32_t slot, SIZE_T bytes, bool zero, bool may_move) {
        const void* old_address = s.memory.data;
        if (!resize_block(s.memory, bytes, zero, may_move)) return false;
        if (s.memory.data != old_address) {
            // One entry out, one in: the index does not grow, so the moved
            // block cannot be lost.
            large_.erase(old_address);
            try {
                large_.insert(s.memory.data, slot);
            } catch (const std::bad_alloc&) {
            }
        }
        return true;
    }

    // A small block outgrowing its class moves to a larger one, or out of
    // the slabs, with half as much again as room for further growth.
    bool move_small(Slot& s, uint32_t slot, SIZE_T bytes, bool zero) {
        const SIZE_T wanted = std::max(bytes, s.memory.size + s.memory.size / 2);
        Slot moved;
        if (SlabPool::takes(wanted)) {
            size_t capacity = 0;
            void* data = small_.allocate(wanted, false, slot, &capacity, &moved.slab);
            if (!data) return false;
            moved.memory = SizedBlock{data, bytes, capacity};
        } else {
            if (!allocate_block(moved.memory, wanted, false)) return false;
            try {
                large_.insert(moved.memory.data, slot);
            } catch (const std::bad_alloc&) {
                free_block(moved.memory);
                return false;
            }
            moved.memory.size = bytes;
        }
        std::memcpy(moved.memory.data, s.memory.data, s.memory.size);
        if (zero)
            std::memset(static_cast<char*>(moved.memory.data) + s.memory.size, 0,
                        bytes - s.memory.size);
        small_.release(s.memory.data, s.slab);
        s.memory = moved.memory;
        s.slab = moved.slab;
        return true;
    }

    std::vector<std::unique_ptr<Slot[]>> pages_;
    uint32_t made_ = 0;  // slots handed out at least once
    uint32_t free_head_ = kNone;
    SlabPool small_;
    AddressIndex large_;
};

}  // namespace qz::posix

#endif
