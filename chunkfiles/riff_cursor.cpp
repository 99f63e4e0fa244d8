// riff_*: moves of the file pointer over chunks and to saved places.
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;

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
    // This family's offsets are 32-bit: the position's low word.
    uint64_t at = 0;
    FileSource(file).tell(&at);
    if (position) *position = DWORD(at);
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_RestoreLocation(HANDLE file, DWORD position) {
    FileSource(file).seek_to(uint64_t(position));
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
