// mriff_*: chunk bodies read from an image.
#include <algorithm>

#include "base/caller_memory.h"
#include "chunkfiles/mriff_io.h"

using namespace qz::mriff;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_ReadData(_tMRIFF* m, LPVOID buffer, DWORD count) {
    if (!m) return E_POINTER;
    if (!buffer && count) return E_INVALIDARG;
    MemorySource image(*m);
    if (!image.read(buffer, count)) return QZE_FILE_READ;
    if (count & 1) image.skip(1);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_ReadDataBounded(_tMRIFF* m, LPVOID buffer, DWORD limit,
                                                            DWORD chunkSize) {
    if (!m) return E_POINTER;
    const DWORD n = std::min(limit, chunkSize);
    if (!buffer && n) return E_INVALIDARG;
    MemorySource image(*m);
    if (!image.read(buffer, n)) return QZE_FILE_READ;
    // Here the fourth argument is the chunk size for both the rest and the
    // pad, unlike the file form, whose callers pass the two sizes the other
    // way round; both orders are relied on by their callers.
    image.skip(int64_t(chunkSize - n) + (chunkSize & 1));
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_ReadDataAlloc(_tMRIFF* m, QZRIFFDATA* data) {
    if (!m) return E_POINTER;
    return qz::base::read_into_caller_block(
        data, [m](void* bytes, DWORD count) { return mriff_ReadData(m, bytes, count); });
}
