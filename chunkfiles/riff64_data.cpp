// riff64_*: chunk bodies, read and written, and their padding.
#include <algorithm>

#include "base/caller_memory.h"
#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

namespace qz::riff64 {

bool write_zeros(FileSource& file, DWORD count) {
    // One byte a call, as the family has always padded; never more than 7.
    static constexpr BYTE kZero = 0;
    for (DWORD i = 0; i < count; ++i)
        if (!file.write(&kZero, 1)) return false;
    return true;
}

}  // namespace qz::riff64

using namespace qz::riff64;

namespace {

/* Body bytes and their padding; *written gets the sum on success. */
HRESULT write_body(FileSource& sink, LPCVOID data, ULONGLONG count, ULONGLONG* written) {
    // A single write carries at most a 32-bit count: the low word is written.
    const auto bytes = DWORD(count);
    if (!data && bytes) return E_INVALIDARG;
    if (bytes && !sink.write(data, bytes)) return QZE_FILE_WRITE;
    const DWORD padding = padding_after(bytes);
    if (!write_zeros(sink, padding)) return QZE_FILE_WRITE;
    *written = ULONGLONG(bytes) + padding;
    return S_OK;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ReadData(HANDLE file, LPVOID buffer, ULONGLONG count) {
    const auto bytes = DWORD(count);
    if (!buffer && bytes) return E_INVALIDARG;
    FileSource source(file);
    if (bytes && !source.read(buffer, bytes)) return QZE_FILE_READ;
    const DWORD padding = padding_after(bytes);
    if (padding && !source.skip(padding)) return QZE_FILE_READ;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ReadDataBounded(HANDLE file, LPVOID buffer,
                                                             DWORD chunk_size, DWORD buffer_size) {
    const DWORD n = std::min(chunk_size, buffer_size);
    if (!buffer && n) return E_INVALIDARG;
    FileSource source(file);
    if (n && !source.read(buffer, n)) return QZE_FILE_READ;
    // The buffer size's remainder mod 8, not the chunk's padding: callers
    // depend on where this leaves the position, so the rule stays.
    const int64_t rest = int64_t(chunk_size - n) + (buffer_size % 8);
    if (rest && !source.skip(rest)) return QZE_FILE_READ;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ReadDataAlloc(HANDLE file, QZRIFFDATA* data) {
    return qz::base::read_into_caller_block(
        data, [file](void* bytes, DWORD count) { return riff64_ReadData(file, bytes, count); });
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteData(HANDLE file, LPCVOID data, ULONGLONG count,
                                                       ULONGLONG* written) {
    if (written) *written = 0;
    FileSource sink(file);
    ULONGLONG body = 0;
    const HRESULT hr = write_body(sink, data, count, &body);
    if (SUCCEEDED(hr) && written) *written = body;
    return hr;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteChunk(HANDLE file, GUID label, LPCVOID data,
                                                        ULONGLONG count, ULONGLONG* written) {
    if (written) *written = 0;
    if (!data && DWORD(count)) return E_INVALIDARG;
    FileSource sink(file);
    HRESULT hr = write_header(sink, label, count);
    ULONGLONG body = 0;
    if (SUCCEEDED(hr)) hr = write_body(sink, data, count, &body);
    if (SUCCEEDED(hr) && written) *written = body + kHeaderBytes;
    return hr;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteToFile(HANDLE file, LPCVOID data,
                                                         ULONGLONG count) {
    const auto bytes = DWORD(count);
    if (!data && bytes) return E_INVALIDARG;
    FileSource sink(file);
    return !bytes || sink.write(data, bytes) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteChunkToFile(HANDLE file, GUID label, LPCVOID data,
                                                              ULONGLONG count) {
    if (!data && DWORD(count)) return E_INVALIDARG;
    ULONGLONG start = 0;
    HRESULT hr = riff64_PrepareChunk(file, label, &start);
    if (SUCCEEDED(hr)) hr = riff64_WriteToFile(file, data, count);
    if (SUCCEEDED(hr)) hr = riff64_CompleteChunk(file, start);
    return hr;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_Pad(HANDLE file, ULONGLONG start) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_WRITE;
    // Counted from the chunk's start; taken mod 8, so a position before the
    // start still pads to the same grid.
    return write_zeros(sink, padding_after(position - start)) ? S_OK : QZE_FILE_WRITE;
}
