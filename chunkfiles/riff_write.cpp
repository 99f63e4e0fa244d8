// riff_*: writing headers and chunks, and keeping the RIFF size current.
#include <algorithm>

#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;

namespace {

/* The RIFF size may grow up to this; at it, size plus header would be 4 GiB. */
constexpr int64_t kRiffSizeLimit = 0xFFFFFFF8;
constexpr uint8_t kPad = 0;

HRESULT write_header(FileSource& file, DWORD id, DWORD size) {
    if (!file.write_u32(id)) return QZE_FILE_WRITE;
    if (!file.write_u32(size)) return QZE_FILE_WRITE;
    return S_OK;
}

/*
 * Cuts the file back to the extent `riff_size` gives it, for a size update
 * that would pass the limit: whatever the caller appended beyond the old
 * RIFF body goes, so the file stays a valid RIFF of its old size.
 */
HRESULT cut_back(FileSource& file, DWORD riff_size) {
    if (!file.seek_to(uint64_t(riff_size) + 8) || !file.truncate_here()) return QZE_FILE_WRITE;
    return QZE_SIZE_LIMIT;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size) {
    FileSource sink(file);
    return write_header(sink, id, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteChunk(HANDLE file, DWORD id, LPCVOID data,
                                                      DWORD size, DWORD* written) {
    if (written) *written = 0;
    if (!data && size) return E_INVALIDARG;
    FileSource sink(file);
    HRESULT hr = write_header(sink, id, size);
    if (FAILED(hr)) return hr;
    if (size && !sink.write(data, size)) return QZE_FILE_WRITE;
    if ((size & 1) && !sink.write(&kPad, 1)) return QZE_FILE_WRITE;
    // From 0xFFFFFFF7 bytes on, header and pad take the count past 32 bits;
    // it is held at the top rather than wrapped to a few bytes.
    const uint64_t on_disk = qz::chunks::padded(size) + qz::chunks::kChunkHeaderBytes;
    if (written) *written = DWORD(std::min<uint64_t>(on_disk, 0xFFFFFFFFu));
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteListHeader(HANDLE file, DWORD list_type,
                                                           DWORD size) {
    FileSource sink(file);
    const HRESULT hr = write_header(sink, kListId, size);
    if (FAILED(hr)) return hr;
    return sink.write_u32(list_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteFileID(HANDLE file, DWORD form_type, DWORD size) {
    FileSource sink(file);
    // Only the form type's write decides the result; writers that patch the
    // size later with riff_SetRIFFSize have long relied on this leniency.
    if (sink.write_u32(kRiffId)) sink.write_u32(size);
    return sink.write_u32(form_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_SetRIFFSize(HANDLE file, DWORD size) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_WRITE;
    const bool written = sink.seek_to(uint64_t(kRiffSizeOffset)) && sink.write_u32(size);
    const bool restored = sink.seek_to(position);
    return written && restored ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_UpdateRIFFSize(HANDLE file, LONGLONG delta) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_READ;
    DWORD old_size = 0;
    if (!sink.seek_to(uint64_t(kRiffSizeOffset)) || !sink.read_u32(&old_size)) {
        sink.seek_to(position);
        return QZE_FILE_READ;
    }
    // Compared as delta >= limit - old so that no sum can overflow.
    HRESULT hr = S_OK;
    if (delta >= kRiffSizeLimit - int64_t(old_size)) {
        hr = cut_back(sink, old_size);
    } else {
        // A sum below zero is written as its low 32 bits, as it always was.
        const auto new_size = DWORD(uint64_t(int64_t(old_size) + delta));
        if (!sink.seek_to(uint64_t(kRiffSizeOffset)) || !sink.write_u32(new_size))
            hr = QZE_FILE_WRITE;
    }
    if (!sink.seek_to(position) && SUCCEEDED(hr)) hr = QZE_FILE_WRITE;
    return hr;
}
