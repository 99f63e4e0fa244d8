// riff64_*: chunk, list and file headers, read and written, streamed
// chunks' headers, and the file's size.
#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

namespace qz::riff64 {

HRESULT write_header(FileSource& file, const GUID& label, ULONGLONG data) {
    ULONGLONG stored = 0;
    if (!stored_size(data, &stored)) return E_INVALIDARG;
    return chunks::write_chunk_header<Riff64Layout>(file, label, stored);
}

}  // namespace qz::riff64

using namespace qz::riff64;

namespace {

/*
 * Writes `value` at the file's size field and goes back to the position.
 * QZE_FILE_WRITE when the write or a move fails.
 */
HRESULT write_file_size(FileSource& file, ULONGLONG value) {
    uint64_t position = 0;
    if (!file.tell(&position)) return QZE_FILE_WRITE;
    const bool written =
        file.seek_to(uint64_t(kSizeOffset)) && qz::chunks::write_size<Riff64Layout>(file, value);
    const bool restored = file.seek_to(position);
    return written && restored ? S_OK : QZE_FILE_WRITE;
}

/* A streamed chunk's start and a header of data size 0. */
HRESULT prepare(FileSource& file, const GUID& label, ULONGLONG* start) {
    if (!start) return E_INVALIDARG;
    uint64_t position = 0;
    if (!file.tell(&position)) return QZE_FILE_WRITE;
    *start = position;
    return write_header(file, label, 0);
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ValidateChunkHeader(GUID /*label*/, ULONGLONG size) {
    // Bit 3 of the high word (bit 35 of the size), not its top bit: the
    // test as the family's callers have always had it.
    const auto low = DWORD(size);
    const auto high = DWORD(size >> 32);
    if ((low & 7) != 0 || (high & 8) != 0) return QZE_MISALIGNED_CHUNK;
    if (size == 0) return QZE_ZERO_LENGTH_CHUNK;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ReadChunkHeader(HANDLE file, GUID* label,
                                                             ULONGLONG* size) {
    FileSource source(file);
    return qz::chunks::read_chunk_header<Riff64Layout>(source, label, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ReadListHeader(HANDLE file, GUID* list_type,
                                                            ULONGLONG* size) {
    FileSource source(file);
    return qz::chunks::read_list_header<Riff64Layout>(source, list_type, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_ReadFileID(HANDLE file, LONGLONG* remaining,
                                                        GUID* form_type) {
    FileSource source(file);
    return read_file_id(source, remaining, form_type);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteChunkHeader(HANDLE file, GUID label,
                                                              ULONGLONG size) {
    FileSource sink(file);
    return write_header(sink, label, size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteListHeader(HANDLE file, GUID list_type,
                                                             ULONGLONG size) {
    FileSource sink(file);
    const HRESULT hr = write_header(sink, kRiff64ListLabel, size);
    if (FAILED(hr)) return hr;
    return qz::chunks::write_id<Riff64Layout>(sink, list_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_WriteFileID(HANDLE file, GUID form_type,
                                                         ULONGLONG size) {
    ULONGLONG stored = 0;
    if (!stored_size(size, &stored)) return E_INVALIDARG;
    FileSource sink(file);
    // Only the form type's write decides the result; writers that fix the
    // size later with riff64_SetRIFFSize have long relied on this leniency.
    qz::chunks::write_chunk_header<Riff64Layout>(sink, kRiff64FileLabel, stored);
    return qz::chunks::write_id<Riff64Layout>(sink, form_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_PrepareChunk(HANDLE file, GUID label,
                                                          ULONGLONG* start) {
    FileSource sink(file);
    return prepare(sink, label, start);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_PrepareList(HANDLE file, GUID list_type,
                                                         ULONGLONG* start) {
    FileSource sink(file);
    const HRESULT hr = prepare(sink, kRiff64ListLabel, start);
    if (FAILED(hr)) return hr;
    return qz::chunks::write_id<Riff64Layout>(sink, list_type) ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_CompleteChunk(HANDLE file, ULONGLONG start) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_WRITE;
    if (position < start) return E_INVALIDARG;
    // The stored size runs to the end of the padding: a streamed chunk
    // counts its header, its list type if any, and its padding.
    const DWORD padding = padding_after(position - start);
    if (!write_zeros(sink, padding)) return QZE_FILE_WRITE;
    const uint64_t end = position + padding;
    const bool written = sink.seek_to(start + kSizeOffset) &&
                         qz::chunks::write_size<Riff64Layout>(sink, end - start);
    const bool restored = sink.seek_to(end);
    return written && restored ? S_OK : QZE_FILE_WRITE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_SetRIFFSize(HANDLE file, ULONGLONG size) {
    ULONGLONG stored = 0;
    if (!stored_size(size, &stored)) return E_INVALIDARG;
    FileSource sink(file);
    return write_file_size(sink, stored);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_UpdateRIFFSize(HANDLE file, LONGLONG delta) {
    FileSource sink(file);
    uint64_t position = 0;
    if (!sink.tell(&position)) return QZE_FILE_READ;
    ULONGLONG old_size = 0;
    const bool read =
        sink.seek_to(uint64_t(kSizeOffset)) && qz::chunks::read_size<Riff64Layout>(sink, &old_size);
    if (!sink.seek_to(position) || !read) return QZE_FILE_READ;
    // Any sum that fits is written, whatever it says about the file; one
    // that would wrap below 0 or past 2^64 - 1 is refused.
    ULONGLONG new_size = 0;
    const bool wraps = delta < 0 ? __builtin_sub_overflow(old_size, 0 - ULONGLONG(delta), &new_size)
                                 : __builtin_add_overflow(old_size, ULONGLONG(delta), &new_size);
    if (wraps) return E_INVALIDARG;
    return write_file_size(sink, new_size);
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL riff64_getGUIDLabel(GUID /*label*/) {
    return 0;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_getGUIDLabelProperly(GUID /*label*/,
                                                                  DWORD* /*fourcc*/) {
    return S_OK;
}
