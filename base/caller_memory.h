/*
 * caller_memory.h - the memory the library hands to its callers: zeroed,
 * movable global memory, locked on allocation. The caller releases it with
 * GlobalUnlock and GlobalFree(GlobalHandle(address)).
 */
#ifndef QZ_BASE_CALLER_MEMORY_H
#define QZ_BASE_CALLER_MEMORY_H

#include "platform/win32api.h"
#include "qz/qzresult.h"

namespace qz::base {

/* A locked block of `bytes` zero bytes, or null when memory is short. */
inline void* alloc_caller_block(SIZE_T bytes) {
    const HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
    if (!handle) return nullptr;
    void* address = GlobalLock(handle);
    if (!address) GlobalFree(handle);
    return address;
}

/* Releases a block of alloc_caller_block; null is ignored. */
inline void free_caller_block(void* address) {
    if (!address) return;
    const HGLOBAL handle = GlobalHandle(address);
    GlobalUnlock(handle);
    GlobalFree(handle);
}

/*
 * Fills a caller's data record {byte count in, pointer out}: allocates the
 * block, lets `read(bytes, count)` fill it, and hands it over only when the
 * read succeeded. The pointer is null on every failure; a null record is
 * E_INVALIDARG.
 */
template <class Record, class Read>
HRESULT read_into_caller_block(Record* data, Read read) {
    if (!data) return E_INVALIDARG;
    data->pData = nullptr;
    if (data->cbData == 0) return S_OK;
    void* bytes = alloc_caller_block(data->cbData);
    if (!bytes) return E_OUTOFMEMORY;
    const HRESULT hr = read(bytes, data->cbData);
    if (FAILED(hr)) {
        free_caller_block(bytes);
        return hr;
    }
    data->pData = bytes;
    return S_OK;
}

}  // namespace qz::base

#endif
