// riff_*: chunk, list and file headers, read and written, and the RIFF size.
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;
using qz::chunks::RiffLayout;

namespace {

/* The RIFF size may grow up to this; at it, size plus header would be 4 GiB. */
constexpr int64_t kRiffSizeLimit = 0xFFFFFFF8;

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

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ValidateChunkHeader(DWORD /*id*/, LONG size) {
    if (size < 0) return QZE_MISALIGNED_CHUNK;
    if (size == 0) return QZE_ZERO_LENGTH_CHUNK;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadChunkHeader(HANDLE file, DWORD* id, DWORD* size) {
    FileSource source(file);
    return qz::chunks::read_chunk_header<RiffLayout>(source, id, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadListHeader(HANDLE file, DWORD* list_type,
                                                          DWORD* size) {
    FileSource source(file);
    return qz::chunks::read_list_header<RiffLayout>(source, list_type, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_ReadFileID(HANDLE file, DWORD* remaining,
                                                      DWORD* form_type) {
    FileSource source(file);
    DWORD riff_size = 0;
    DWORD form = 0;
    const HRESULT hr = read_file_header(source, &riff_size, &form);
    if (FAILED(hr)) return hr;
    if (remaining) *remaining = riff_size - 4;
    if (form_type) *form_type = form;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size) {
    FileSource sink(file);
    return write_chunk_header(sink, id, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteListHeader(HANDLE file, DWORD list_type,
                                                           DWORD size) {
    FileSource sink(file);
    const HRESULT hr = write_chunk_header(sink, kListId, size);
    if (FAILED(hr)) return hr;
    return write_word(sink, list_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_WriteFileID(HANDLE file, DWORD form_type, DWORD size) {
    FileSource sink(file);
    // Only the form type's write decides the result; writers that patch the
    // size later with riff_SetRIFFSize have long relied on this leniency.
    if (write_word(sink, kRiffId)) write_word(sink, size);
    return write_word(sink, form_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_SetRIFFSize(HANDLE file, DWORD size) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_WRITE;
    const bool written = sink.seek_to(uint64_t(kRiffSizeOffset)) && write_word(sink, size);
    const bool restored = sink.seek_to(position);
    return written && restored ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_UpdateRIFFSize(HANDLE file, LONGLONG delta) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_READ;
    DWORD old_size = 0;
    if (!sink.seek_to(uint64_t(kRiffSizeOffset)) || !read_word(sink, &old_size)) {
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
        if (!sink.seek_to(uint64_t(kRiffSizeOffset)) || !write_word(sink, new_size))
            hr = QZE_FILE_WRITE;
    }
    if (!sink.seek_to(position) && SUCCEEDED(hr)) hr = QZE_FILE_WRITE;
    return hr;
}
