/*
 * sized_block.h - the storage behind global-memory and private-heap blocks.
 *
 * A block reports the size its owner asked for and keeps a capacity behind
 * it. Growth beyond the capacity reserves half as much again, so a caller
 * that grows a block in small steps (the dynamic list adds sixteen slots at
 * a time) pays for a copy only a logarithmic number of times, and growing
 * within the capacity only zeroes the new bytes when asked to.
 */
#ifndef QZ_PLATFORM_POSIX_SIZED_BLOCK_H
#define QZ_PLATFORM_POSIX_SIZED_BLOCK_H

#include "platform/posix/win32_internal.h"

namespace qz::posix {

struct SizedBlock {
    void* data = nullptr;
    SIZE_T size = 0;     /* what the owner asked for */
    SIZE_T capacity = 0; /* what is reserved; never below size */
};

/*
 * Reserves exactly `bytes` (at least one byte, so that even an empty block
 * has an address of its own). False when out of memory; `block` is then
 * untouched.
 */
bool allocate_block(SizedBlock& block, SIZE_T bytes, bool zero);

/*
 * Changes the size to `bytes`, zeroing the grown part when `zero` is set.
 * Growth past the capacity moves the data unless `may_move` is false, in
 * which case the call fails. False leaves the block as it was.
 */
bool resize_block(SizedBlock& block, SIZE_T bytes, bool zero, bool may_move);

void free_block(SizedBlock& block);

}  // namespace qz::posix

#endif
