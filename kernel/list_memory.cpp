// tQZLIST: the memory under lists. The standard allocator of headers and
// owned blocks, and the choice between it and a list's private heap. The
// rest of the list is built on these; they call nothing of the list back.
#include "kernel/list_internal.h"

namespace qz::list {

void* std_calloc(SIZE_T size) {
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
}

void* std_realloc(void* block, SIZE_T size) {
    if (!block) return std_calloc(size);
    return HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block, size);
}

void std_free(void* block) {
    if (block) HeapFree(GetProcessHeap(), 0, block);
}

SIZE_T std_block_size(const void* block) {
    return block ? HeapSize(GetProcessHeap(), 0, block) : 0;
}

void* alloc_block(const tQZLIST* list, SIZE_T size) {
    if (list->item_heap) return HeapAlloc(list->item_heap, list->heap_alloc_flags, size);
    return std_calloc(size);
}

void* realloc_block(const tQZLIST* list, void* block, SIZE_T size) {
    if (!block) return alloc_block(list, size);
    if (list->item_heap) return HeapReAlloc(list->item_heap, list->heap_alloc_flags, block, size);
    return std_realloc(block, size);
}

void free_block(const tQZLIST* list, void* block) {
    if (!block) return;
    if (list->item_heap)
        HeapFree(list->item_heap, list->heap_flags, block);
    else
        std_free(block);
}

SIZE_T block_size(const tQZLIST* list, const void* block) {
    if (!block) return 0;
    if (list->item_heap) return HeapSize(list->item_heap, list->heap_flags, block);
    return std_block_size(block);
}

}  // namespace qz::list
