// Storage with a geometric capacity for global memory and private heaps.
#include "platform/posix/sized_block.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace qz::posix {

namespace {

// Half as much again as the current capacity, at least what is needed.
SIZE_T grown_capacity(SIZE_T capacity, SIZE_T needed) {
    const SIZE_T step = capacity / 2;
    const SIZE_T geometric = capacity > SIZE_MAX - step ? SIZE_MAX : capacity + step;
    return geometric > needed ? geometric : needed;
}

bool reserve(SizedBlock& block, SIZE_T capacity) {
    void* moved = std::realloc(block.data, capacity ? capacity : 1);
    if (!moved) return false;
    block.data = moved;
    block.capacity = capacity;
    return true;
}

}  // namespace

bool allocate_block(SizedBlock& block, SIZE_T bytes, bool zero) {
    void* data = zero ? std::calloc(bytes ? bytes : 1, 1) : std::malloc(bytes ? bytes : 1);
    if (!data) return false;
    block.data = data;
    block.size = bytes;
    block.capacity = bytes;
    return true;
}

bool resize_block(SizedBlock& block, SIZE_T bytes, bool zero, bool may_move) {
    if (bytes > block.capacity) {
        if (!may_move) return false;
        // A request that cannot be met with the extra room may still fit
        // exactly: huge single steps should not fail for the reserve alone.
        if (!reserve(block, grown_capacity(block.capacity, bytes)) && !reserve(block, bytes)) {
            return false;
        }
    } else if (may_move && bytes < block.capacity / 4) {
        // Give most of the room back after a large shrink; a failure to
        // shrink is harmless, the old storage stays.
        reserve(block, bytes);
    }
    if (zero && bytes > block.size) {
        std::memset(static_cast<char*>(block.data) + block.size, 0, bytes - block.size);
    }
    block.size = bytes;
    return true;
}

void free_block(SizedBlock& block) {
    std::free(block.data);
    block = SizedBlock{};
}

}  // namespace qz::posix
