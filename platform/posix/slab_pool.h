/*
 * slab_pool.h - small blocks for global memory and private heaps.
 *
 * Callers such as the XML tree make millions of blocks of a few dozen
 * bytes and look each one up by its address when they free it. Small
 * blocks therefore come from slabs: 64 KiB regions, aligned to their size,
 * each cut into objects of one size class (16 to 256 bytes in steps of 16).
 * A block's slab is its address with the low 16 bits cleared, found in a
 * small index of slabs that stays in the cache, and its object number is
 * its offset divided by the class size: no per-block hash entry, no
 * allocator header, and the records of neighbouring blocks lie side by
 * side. Each object carries one 32-bit word for its owner (the slot of the
 * block table), which is also what marks it live.
 *
 * An address that is not the start of a live object is never read: the
 * lookup works on the address value and the pool's own records only.
 *
 * Not thread-safe: each owner serialises its calls.
 */
#ifndef QZ_PLATFORM_POSIX_SLAB_POOL_H
#define QZ_PLATFORM_POSIX_SLAB_POOL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/posix/address_index.h"

#if defined(__SANITIZE_ADDRESS__)
#define QZ_SLABS_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QZ_SLABS_UNDER_ASAN 1
#endif
#endif

namespace qz::posix {

class SlabPool {
public:
    static constexpr size_t kLargest = 256;
    static constexpr uint32_t kNone = AddressIndex::kNone;

    SlabPool() = default;
    SlabPool(const SlabPool&) = delete;
    SlabPool& operator=(const SlabPool&) = delete;
    ~SlabPool() { clear(); }

    /*
     * Blocks of this many bytes or fewer come from the pool. Under
     * AddressSanitizer none do: every block is then the allocator's own,
     * with its red zones, so an overrun of a small block is still caught.
     */
    static bool takes(size_t bytes) {
#ifdef QZ_SLABS_UNDER_ASAN
        (void)bytes;
        return false;
#else
        return bytes <= kLargest;
#endif
    }

    /*
     * An object for `bytes` (at most kLargest) owned by `owner`; its
     * capacity is the class size and *slab the slab that holds it, which
     * stays the same while it lives. Zeroes `bytes` bytes when asked. Null
     * when out of memory; throws nothing.
     */
    void* allocate(size_t bytes, bool zero, uint32_t owner, size_t* capacity, uint32_t* slab);

    /* The owner of the live object starting at `address`, or kNone. */
    uint32_t find(const void* address) const;

    /* Gives back a live object, in the slab allocate() named. */
    void release(void* address, uint32_t slab);

    /* Gives every slab back. */
    void clear();

private:
    struct Slab {
        unsigned char* base = nullptr;
        uint32_t object_size = 0;
        uint32_t objects = 0;
        uint32_t used = 0;      // live objects
        uint32_t fresh = 0;     // objects below this were handed out at least once
        uint32_t free_head = kNone;  // freed objects, linked through their first word
        uint32_t partial_at = kNone; // position in its class's list of slabs with room
        std::unique_ptr<uint32_t[]> owners;  // kNone for a free object
    };

    uint32_t new_slab(size_t size_class);
    void free_slab(uint32_t slab);
    void leave_partial(Slab& slab, size_t size_class);

    std::vector<Slab> slabs_;
    std::vector<uint32_t> spare_slabs_;  // unused records in slabs_
    std::vector<uint32_t> partial_[kLargest / 16];  // per class: slabs with room
    uint32_t class_slabs_[kLargest / 16] = {};      // per class: slabs made
    AddressIndex by_base_;
};

}  // namespace qz::posix

#endif
