// mriff_*: the memory-image cursor, its moves and its raw reads and writes.
#include <algorithm>

#include "chunkfiles/mriff_io.h"
#include "platform/win32api.h"

using namespace qz::mriff;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_Init(_tMRIFF* m, LPVOID base, DWORD dataSize,
                                                 DWORD capacity) {
    if (!m || (!base && capacity)) return E_POINTER;
    if (dataSize > capacity) return E_INVALIDARG;
    BYTE* bytes = static_cast<BYTE*>(base);
    m->pBase = bytes;
    m->pCurrent = bytes;
    m->pDataEnd = bytes + dataSize;
    m->pCapacityEnd = bytes + capacity;
    m->dwInitialSize = dataSize;
    m->dwCapacity = capacity;
    return S_OK;
}

QZ_EXTERN_C QZ_API LPBYTE QZ_STDCALL mriff_GetFilePointer(_tMRIFF* m) {
    return m ? m->pCurrent : nullptr;
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL mriff_SetFilePointer(_tMRIFF* m, DWORD distance, PLONG,
                                                         DWORD method) {
    if (!m) return 0;
    MemorySource image(*m);
    // Relative moves are signed, as a 32-bit pointer sum would make them.
    const int64_t step = int32_t(distance);
    switch (method) {
        case FILE_BEGIN:
            image.move_to(int64_t(distance));
            break;
        case FILE_CURRENT:
            image.move_to(int64_t(image.offset()) + step);
            break;
        case FILE_END:
            image.move_to(int64_t(image.data_size()) + step);
            break;
        default:
            break;  // the constructor has clamped the position
    }
    return image.offset();
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL mriff_QzSetFilePointer(_tMRIFF* m, DWORD distance,
                                                           DWORD method) {
    return mriff_SetFilePointer(m, distance, nullptr, method);
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL mriff_ReadFile(_tMRIFF* m, LPVOID buffer, DWORD count,
                                                  LPDWORD read, LPOVERLAPPED) {
    if (read) *read = 0;
    if (!m || (!buffer && count)) return FALSE;
    MemorySource image(*m);
    const DWORD got = image.read_some(buffer, count);
    if (read) *read = got;
    return got == count ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL mriff_WriteFile(_tMRIFF* m, LPCVOID data, DWORD count,
                                                   LPDWORD written, LPOVERLAPPED) {
    if (written) *written = 0;
    if (!m || (!data && count)) return FALSE;
    MemorySource image(*m);
    const DWORD put = image.write_some(data, count);
    if (written) *written = put;
    // A write cut short at the capacity is not a failure of the call: the
    // header writers check the count.
    return TRUE;
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL mriff_UpdateDataSize(_tMRIFF* m, DWORD count) {
    if (!m) return 0;
    MemorySource image(*m);  // puts the ends in order first
    const DWORD added = std::min<DWORD>(count, DWORD(m->pCapacityEnd - m->pDataEnd));
    m->pDataEnd += added;
    return added;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_SaveLocation(_tMRIFF* m, DWORD* offset) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    if (offset) *offset = image.offset();
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_RestoreLocation(_tMRIFF* m, DWORD offset) {
    if (!m) return E_POINTER;
    MemorySource(*m).move_to(offset);
    return S_OK;
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL mriff_SkipChunk(_tMRIFF* m, DWORD size) {
    if (!m) return 0;
    const uint64_t body = qz::chunks::padded(size);
    MemorySource(*m).skip(int64_t(body));
    return DWORD(body);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_SeekDataStart(_tMRIFF* m) {
    if (!m) return E_POINTER;
    MemorySource(*m).move_to(kFileHeaderBytes);
    return S_OK;
}
