// mriff_*: the memory-image cursor, its moves, headers and bodies.
#include <algorithm>
#include <cstring>

#include "chunkfiles/mriff_io.h"
#include "platform/win32api.h"
#include "base/caller_memory.h"

namespace qz::mriff {

namespace {

// Puts `p` within lo .. hi (addresses), keeping it a pointer into the image.
void clamp_pointer(BYTE*& p, BYTE* base, uintptr_t lo, uintptr_t hi) {
    const uintptr_t at = uintptr_t(p);
    if (at < lo) p = base + (lo - uintptr_t(base));
    if (at > hi) p = base + (hi - uintptr_t(base));
}

}  // namespace

MemorySource::MemorySource(_tMRIFF& cursor) : m_(cursor) {
    const uintptr_t base = uintptr_t(m_.pBase);
    // Offsets are 32-bit: an image never spans more than 4 GiB - 1.
    const uintptr_t most = base + std::min<uintptr_t>(UINTPTR_MAX - base, 0xFFFFFFFFu);
    clamp_pointer(m_.pCapacityEnd, m_.pBase, base, most);
    clamp_pointer(m_.pDataEnd, m_.pBase, base, uintptr_t(m_.pCapacityEnd));
    clamp_pointer(m_.pCurrent, m_.pBase, base, uintptr_t(m_.pDataEnd));
}

void MemorySource::move_to(int64_t to) {
    const int64_t clamped = std::clamp<int64_t>(to, 0, data_size());
    m_.pCurrent = m_.pBase + clamped;
}

DWORD MemorySource::read_some(void* buffer, DWORD count) {
    const DWORD n = std::min<DWORD>(count, DWORD(m_.pDataEnd - m_.pCurrent));
    if (n == 0) return 0;
    std::memcpy(buffer, m_.pCurrent, n);
    m_.pCurrent += n;
    return n;
}

DWORD MemorySource::write_some(const void* data, DWORD count) {
    const DWORD n = std::min<DWORD>(count, DWORD(m_.pCapacityEnd - m_.pCurrent));
    if (n == 0) return 0;
    // The data may come from the image itself.
    std::memmove(m_.pCurrent, data, n);
    m_.pCurrent += n;
    if (m_.pCurrent > m_.pDataEnd) m_.pDataEnd = m_.pCurrent;
    return n;
}

bool MemorySource::write_u32(DWORD value) {
    unsigned char bytes[4];
    base::store_le32(bytes, value);
    return write(bytes, sizeof bytes);
}

}  // namespace qz::mriff

using namespace qz::mriff;
using qz::chunks::RiffLayout;

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

// ---- headers ----------------------------------------------------------------------

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_WriteChunkHeader(_tMRIFF* m, DWORD id, DWORD size) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    const bool id_fits = image.write_u32(id);
    const bool size_fits = image.write_u32(size);
    return id_fits && size_fits ? S_OK : QZE_FILE_WRITE;
}

namespace {

// "LIST" or "RIFF" header, then the type; every part written as far as it fits.
HRESULT write_typed_header(_tMRIFF* m, DWORD id, DWORD type, DWORD size) {
    if (!m) return E_POINTER;
    const HRESULT hr = mriff_WriteChunkHeader(m, id, size);
    const bool type_fits = MemorySource(*m).write_u32(type);
    return SUCCEEDED(hr) && type_fits ? S_OK : QZE_FILE_WRITE;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_WriteListHeader(_tMRIFF* m, DWORD listType,
                                                            DWORD size) {
    return write_typed_header(m, kListId, listType, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_WriteFileID(_tMRIFF* m, DWORD formType, DWORD size) {
    return write_typed_header(m, kRiffId, formType, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_ReadChunkHeader(_tMRIFF* m, DWORD* id, DWORD* size) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    return qz::chunks::read_chunk_header<RiffLayout>(image, id, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_ReadListHeader(_tMRIFF* m, DWORD* listType,
                                                           DWORD* size) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    return qz::chunks::read_list_header<RiffLayout>(image, listType, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_ReadFileID(_tMRIFF* m, DWORD* remaining,
                                                       DWORD* formType) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    DWORD id = 0;
    DWORD riff_size = 0;
    // The header read's own result is not looked at: an image cut short in
    // its header leaves the id at 0, which is reported as not RIFF.
    qz::chunks::read_header<RiffLayout>(image, &id, &riff_size);
    if (id != kRiffId) return QZE_NO_RIFF_HEADER;
    DWORD form = 0;
    if (!qz::chunks::read_word<RiffLayout>(image, &form)) return QZE_FILE_READ;
    // The size counts the form type; the top-level budget starts after it.
    if (remaining) *remaining = riff_size - 4;
    if (formType) *formType = form;
    return S_OK;
}

// ---- bodies -----------------------------------------------------------------------

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
    if (!data) return E_INVALIDARG;
    return qz::base::read_into_caller_block(
        data, [m](void* bytes, DWORD count) { return mriff_ReadData(m, bytes, count); });
}
