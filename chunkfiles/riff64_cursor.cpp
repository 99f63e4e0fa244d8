// riff64_*: moves of the file pointer over chunks and to saved places.
#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

using namespace qz::riff64;

QZ_EXTERN_C QZ_API ULONGLONG QZ_STDCALL riff64_SkipChunk(HANDLE file, ULONGLONG size) {
    const uint64_t body = qz::chunks::aligned<Riff64Layout>(size);
    // No file offset reaches 2^63; such a skip is not tried at all.
    if (body <= uint64_t(INT64_MAX)) FileSource(file).skip(int64_t(body));
    return body;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_SeekDataStart(HANDLE file) {
    FileSource(file).seek_to(uint64_t(kFileHeaderBytes));
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_SaveLocation(HANDLE file, ULONGLONG* position) {
    uint64_t at = 0;
    FileSource(file).tell(&at);
    if (position) *position = at;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_RestoreLocation(HANDLE file, ULONGLONG position) {
    FileSource(file).seek_to(position);
    return S_OK;
}

QZ_EXTERN_C QZ_API ULONGLONG QZ_STDCALL riff64_AmountWritten(HANDLE file, ULONGLONG start) {
    uint64_t position = 0;
    if (!FileSource(file).tell(&position) || position < start) return 0;
    return position - start;
}
