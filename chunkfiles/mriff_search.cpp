// mriff_*: the chunk and list searches and list counts over an image,
// through the shared walk.
#include "chunkfiles/mriff_io.h"

using namespace qz::mriff;
using qz::chunks::RiffLayout;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_FindChunkHeader(_tMRIFF* m, DWORD id, DWORD* size,
                                                            DWORD* remaining) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    return qz::chunks::find_chunk<RiffLayout>(image, id, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_FindChunkHeaderInRIFF(_tMRIFF* m, DWORD id, DWORD* size,
                                                                  DWORD* remaining) {
    if (!m) return E_POINTER;
    // Unlike the file form this neither rewinds nor takes the header's
    // size: an image may hold a RIFF anywhere, and its size field is not
    // trusted to fit the buffer; the caller's budget bounds the walk.
    if (remaining && *remaining < kFileHeaderBytes) return QZE_NOT_FOUND;
    const HRESULT hr = mriff_ReadFileID(m, nullptr, nullptr);
    if (FAILED(hr)) return hr;
    if (remaining) *remaining -= kFileHeaderBytes;
    MemorySource image(*m);
    return qz::chunks::find_chunk<RiffLayout>(image, id, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_FindListChunk(_tMRIFF* m, DWORD listType, DWORD* size,
                                                          DWORD* remaining) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    return qz::chunks::find_list<RiffLayout>(image, listType, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_FindListChunkFromStart(_tMRIFF* m, DWORD listType,
                                                                   DWORD* size) {
    if (!m) return E_POINTER;
    MemorySource(*m).move_to(0);
    DWORD left = 0;
    const HRESULT hr = mriff_ReadFileID(m, &left, nullptr);
    if (FAILED(hr)) return hr;
    return mriff_FindListChunk(m, listType, size, &left);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_GetNumListEntries(_tMRIFF* m, DWORD* count,
                                                              DWORD* remaining) {
    if (!m) return E_POINTER;
    if (!count) return E_INVALIDARG;
    MemorySource image(*m);
    return qz::chunks::count_entries<RiffLayout>(image, count, remaining);
}
