/*
 * address_index.h - block addresses to slot numbers, for the tables of
 * global memory and private heaps.
 *
 * Open addressing with linear probing; deletion moves the later entries of
 * a run back, so there are no tombstones; the table doubles at half load.
 * Callers make millions of small blocks, so an entry is just the address
 * and a 32-bit slot, with no allocation per block.
 */
#ifndef QZ_PLATFORM_POSIX_ADDRESS_INDEX_H
#define QZ_PLATFORM_POSIX_ADDRESS_INDEX_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace qz::posix {

class AddressIndex {
public:
    static constexpr uint32_t kNone = UINT32_MAX;

    uint32_t find(const void* address) const {
        if (keys_.empty()) return kNone;
        for (size_t i = home(address);; i = (i + 1) & mask_) {
            if (!keys_[i]) return kNone;
            if (keys_[i] == address) return values_[i];
        }
    }

    // Throws std::bad_alloc when growing fails; the index is then unchanged.
    void insert(const void* address, uint32_t slot) {
        if ((count_ + 1) * 2 > keys_.size()) grow();
        size_t i = home(address);
        while (keys_[i] && keys_[i] != address) i = (i + 1) & mask_;
        if (!keys_[i]) ++count_;
        keys_[i] = address;
        values_[i] = slot;
    }

    void erase(const void* address) {
        if (keys_.empty()) return;
        size_t i = home(address);
        while (keys_[i] != address) {
            if (!keys_[i]) return;
            i = (i + 1) & mask_;
        }
        // Close the gap: pull back every later entry of the run that may
        // live at or before it.
        for (size_t j = (i + 1) & mask_; keys_[j]; j = (j + 1) & mask_) {
            const size_t h = home(keys_[j]);
            const bool movable = i <= j ? (h <= i || h > j) : (h <= i && h > j);
            if (movable) {
                keys_[i] = keys_[j];
                values_[i] = values_[j];
                i = j;
            }
        }
        keys_[i] = nullptr;
        --count_;
    }

private:
    // Fibonacci hashing: the top bits of the product, which every bit of
    // the address reaches (heap addresses differ mostly in their low bits).
    size_t home(const void* address) const {
        const uint64_t x = uint64_t(reinterpret_cast<uintptr_t>(address));
        return size_t((x * 0x9E3779B97F4A7C15ull) >> shift_);
    }

    void grow() {
        const size_t size = keys_.empty() ? 1024 : keys_.size() * 2;
        std::vector<const void*> keys(size, nullptr);
        std::vector<uint32_t> values(size);
        std::swap(keys, keys_);
        std::swap(values, values_);
        mask_ = size - 1;
        shift_ = 64;
        for (size_t n = size; n > 1; n >>= 1) --shift_;
        count_ = 0;
        for (size_t k = 0; k < keys.size(); ++k)
            if (keys[k]) insert(keys[k], values[k]);
    }

    std::vector<const void*> keys_;
    std::vector<uint32_t> values_;
    size_t mask_ = 0;
    int shift_ = 64;
    size_t count_ = 0;
};

}  // namespace qz::posix

#endif
