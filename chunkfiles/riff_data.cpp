// riff_*: chunk bodies, read and written.
#include <algorithm>

#include "base/caller_memory.h"
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;

namespace {

constexpr uint8_t kPad = 0;

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadData(HANDLE file, LPVOID buffer, DWORD count) {
    if (!buffer && count) return E_INVALIDARG;
    FileSource source(file);
    if (count && !source.read(buffer, count)) return QZE_FILE_READ;
    if ((count & 1) && !source.skip(1)) return QZE_FILE_READ;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadDataBounded(HANDLE file, LPVOID buffer,
                                                           DWORD chunk_size, DWORD buffer_size) {
    const DWORD n = chunk_size < buffer_size ? chunk_size : buffer_size;
    if (!buffer && n) return E_INVALIDARG;
    FileSource source(file);
    if (n && !source.read(buffer, n)) return QZE_FILE_READ;
    // The pad byte is decided by the buffer size, not the chunk size. A
    // caller reading a whole body passes its size for both and lands on the
    // next header; callers depend on where the other cases leave the
    // position, so the rule stays as it is.
    const int64_t rest = int64_t(chunk_size - n) + (buffer_size & 1);
    if (rest && !source.skip(rest)) return QZE_FILE_READ;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadDataAlloc(HANDLE file, QZRIFFDATA* data) {
    return qz::base::read_into_caller_block(
        data, [file](void* bytes, DWORD count) { return riff_ReadData(file, bytes, count); });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteChunk(HANDLE file, DWORD id, LPCVOID data,
                                                      DWORD size, DWORD* written) {
    if (written) *written = 0;
    if (!data && size) return E_INVALIDARG;
    FileSource sink(file);
    HRESULT hr = write_chunk_header(sink, id, size);
    if (FAILED(hr)) return hr;
    if (size && !sink.write(data, size)) return QZE_FILE_WRITE;
    if ((size & 1) && !sink.write(&kPad, 1)) return QZE_FILE_WRITE;
    // From 0xFFFFFFF7 bytes on, header and pad take the count past 32 bits;
    // it is held at the top rather than wrapped to a few bytes.
    const uint64_t on_disk = qz::chunks::padded(size) + qz::chunks::kChunkHeaderBytes;
    if (written) *written = DWORD(std::min<uint64_t>(on_disk, 0xFFFFFFFFu));
    return S_OK;
}
