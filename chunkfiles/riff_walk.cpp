// riff_*: file headers, positions and the chunk searches on a file handle.
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

namespace qz::riff {

HRESULT read_file_header(FileSource& file, DWORD* riff_size, DWORD* form_type) {
    // One 12-byte read. The outcome and the position afterwards are those
    // of reading the id first and stopping when it is not "RIFF": a file
    // that is not RIFF is told apart from one cut short, and is left just
    // after its first four bytes.
    unsigned char header[kFileHeaderBytes];
    DWORD got = 0;
    if (!file.read_some(header, sizeof header, &got) || got < 4) return QZE_FILE_READ;
    if (base::load_le32(header) != kRiffId) {
        file.skip(int64_t(4) - int64_t(got));
        return QZE_NO_RIFF_HEADER;
    }
    if (got < kFileHeaderBytes) return QZE_FILE_READ;
    *riff_size = base::load_le32(header + 4);
    *form_type = base::load_le32(header + 8);
    return S_OK;
}

HRESULT rewind_to_top_level(FileSource& file, DWORD* remaining, DWORD* form_type) {
    if (!file.seek_to(uint64_t(0))) return QZE_FILE_READ;
    DWORD riff_size = 0;
    const HRESULT hr = read_file_header(file, &riff_size, form_type);
    if (FAILED(hr)) return hr;
    // The size counts the form type; the walk's budget starts after it.
    *remaining = riff_size - 4;
    return S_OK;
}

}  // namespace qz::riff

using namespace qz::riff;
using qz::chunks::RiffLayout;

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

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL riff_SkipChunk(HANDLE file, DWORD size) {
    const uint64_t body = qz::chunks::padded(size);
    FileSource(file).skip(int64_t(body));
    return DWORD(body);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_SeekDataStart(HANDLE file) {
    FileSource(file).seek_to(uint64_t(kFileHeaderBytes));
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_SaveLocation(HANDLE file, DWORD* position) {
    DWORD at = 0;
    FileSource(file).tell(&at);
    if (position) *position = at;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_RestoreLocation(HANDLE file, DWORD position) {
    FileSource(file).seek_to(position);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_GetFileSize(HANDLE file, DWORD* size) {
    FileSource source(file);
    DWORD remaining = 0;
    DWORD form = 0;
    const HRESULT hr = rewind_to_top_level(source, &remaining, &form);
    if (FAILED(hr)) return hr;
    // The budget plus the 8 bytes of header in front of it: the RIFF size
    // field plus 4, the figure callers of this function have always used.
    if (size) *size = remaining + 8;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size,
                                                           DWORD* remaining) {
    FileSource source(file);
    return qz::chunks::find_chunk<RiffLayout>(source, id, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD* size,
                                                                 DWORD* remaining) {
    FileSource source(file);
    DWORD left = 0;
    DWORD form = 0;
    HRESULT hr = rewind_to_top_level(source, &left, &form);
    if (FAILED(hr)) return hr;
    hr = qz::chunks::find_chunk<RiffLayout>(source, id, size, &left);
    if (remaining && hr != QZE_FILE_READ) *remaining = left;
    return hr;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindListChunk(HANDLE file, DWORD list_type, DWORD* size,
                                                         DWORD* remaining) {
    FileSource source(file);
    return qz::chunks::find_list<RiffLayout>(source, list_type, size, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_FindListChunkFromStart(HANDLE file, DWORD list_type,
                                                                  DWORD* size) {
    FileSource source(file);
    DWORD left = 0;
    DWORD form = 0;
    const HRESULT hr = rewind_to_top_level(source, &left, &form);
    if (FAILED(hr)) return hr;
    return qz::chunks::find_list<RiffLayout>(source, list_type, size, &left);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_GetNumListEntries(HANDLE file, DWORD* count,
                                                             DWORD* remaining) {
    if (!count) return E_INVALIDARG;
    FileSource source(file);
    return qz::chunks::count_entries<RiffLayout>(source, count, remaining);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_SeekListEntry(HANDLE file, DWORD index,
                                                         DWORD* remaining) {
    FileSource source(file);
    return qz::chunks::seek_entry<RiffLayout>(source, index, remaining);
}
