// tQZLIST: owned item blocks (the pending item, reallocation, sizes), their
// transfer between lists and moving a header into caller storage.
#include <cstring>

#include "kernel/list_internal.h"

using namespace qz::list;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_AllocItem(tQZLIST* list, UINT size, void** item) {
    if (!item) return E_POINTER;
    *item = nullptr;
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (!owns_items(list) || list->pending_item) return E_FAIL;
    void* block = alloc_block(list, size);
    if (!block) return E_OUTOFMEMORY;
    list->pending_item = block;
    *item = block;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_AllocAndInsertItem(tQZLIST* list, const void* source,
                                                                UINT size, int index,
                                                                int* inserted_at) {
    if (inserted_at) *inserted_at = -1;
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (index < 0 || index >= list->count) index = list->count;
    void* block = nullptr;
    HRESULT hr = QzList_AllocItem(list, size, &block);
    if (FAILED(hr)) return hr;
    if (source && size) std::memcpy(block, source, size);
    hr = QzList_InsertList(list, index, nullptr, -1);
    if (FAILED(hr)) {
        free_block(list, block);
        list->pending_item = nullptr;
        return hr;
    }
    if (inserted_at) *inserted_at = index;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_ReAllocItem(tQZLIST* list, int index, UINT size) {
    Entry entry(list);
    if (!entry.ok()) return entry.refusal();
    if (!owns_items(list) || index < 0 || index >= list->count) return E_FAIL;
    void** slots = static_cast<void**>(list->items);
    void* block = realloc_block(list, slots[index], size);
    if (!block) return E_OUTOFMEMORY;
    slots[index] = block;
    return S_OK;
}

QZ_EXTERN_C QZ_API LONG_PTR QZ_STDCALL QzList_AllocSize(tQZLIST* list, int index) {
    Entry entry(list);
    if (!entry.ok()) return -1;
    void* const* slots = static_cast<void* const*>(list->items);
    if (index >= 0) {
        if (index >= list->count) return -1;
        if (!owns_items(list)) return LONG_PTR(list->item_size);
        return LONG_PTR(block_size(list, slots[index]));
    }
    SIZE_T total = 0;
    if (owns_items(list))
        for (LONG i = 0; i < list->count; ++i) total += block_size(list, slots[i]);
    // The slot block counts as allocated x item size, whatever spare room
    // the memory under it has.
    total += SIZE_T(list->allocated) * list->item_size + sizeof(tQZLIST);
    return LONG_PTR(total);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzList_MoveItemsBetweenHeapLists(
    tQZLIST* destination, int destination_index, tQZLIST* source, int source_start, int count) {
    if (destination == source) return E_INVALIDARG;
    PairEntry entry(destination, source);
    if (!entry.ok()) return entry.refusal();
    if (!owns_items(destination) || !owns_items(source) || destination->pending_item) return E_FAIL;
    // A block must be freed by the allocator it came from.
    if (destination->item_heap != source->item_heap) return E_FAIL;
    if (count < 0) count = source->count;
    if (count == 0) return S_OK;
    if (source_start < 0 || std::int64_t(source_start) + count > source->count) return E_FAIL;
    // Every block goes in at one fixed position, last first, so the run
    // keeps its order; an index past the end is the end.
    if (destination_index < 0 || destination_index > destination->count)
        destination_index = destination->count;

    // Each block leaves the source without being freed. The source's options
    // stay as they are: other threads read them before taking its lock.
    HRESULT hr = S_OK;
    void** slots = static_cast<void**>(source->items);
    for (int i = source_start + count - 1; i >= source_start && SUCCEEDED(hr); --i) {
        destination->pending_item = slots[i];
        hr = QzList_InsertList(destination, destination_index, nullptr, -1);
        if (SUCCEEDED(hr)) remove_slots(source, i, 1);
    }
    destination->pending_item = nullptr;
    return hr;
}

QZ_API HRESULT QZ_STDCALL QzList_ConvertToInPlace(tQZLIST** list, tQZLIST* storage) {
    if (!list || !storage || !is_live(*list)) return E_INVALIDARG;
    tQZLIST* heap_header = *list;
    if (has(heap_header, QZLIST_INPLACE)) return E_FAIL;
    const bool thread_safe = has(heap_header, QZLIST_THREADSAFE);
    if (thread_safe) EnterCriticalSection(&heap_header->lock);
    std::memcpy(storage, heap_header, sizeof(tQZLIST));
    storage->create_options |= QZLIST_INPLACE;
    if (thread_safe) {
        // A lock belongs to its address: the storage gets a fresh one.
        InitializeCriticalSection(&storage->lock);
        LeaveCriticalSection(&heap_header->lock);
        DeleteCriticalSection(&heap_header->lock);
    }
    heap_header->signature = 0;
    std_free(heap_header);
    *list = nullptr;
    return S_OK;
}
