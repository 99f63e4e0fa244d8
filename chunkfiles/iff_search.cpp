// iff_*: the chunk searches, through the shared walk and a look-ahead
// block.
#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;
using qz::chunks::walk_ahead;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_SeekChunkHeader(HANDLE file, DWORD id, DWORD* size) {
    return walk_ahead(
        file,
        [&](auto& source) { return qz::chunks::find_chunk<IffLayout>(source, id, size, nullptr); },
        size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_FindChunkFromStart(HANDLE file, DWORD id, DWORD* size) {
    if (size) *size = 0;
    return walk_ahead(
        file,
        [&](auto& source) {
            const auto form = rewind_to_form(source);
            if (form.arrived < IffLayout::header_bytes) return QZE_FILE_READ;
            if (form.id != kFormId || form.arrived < kFileHeaderBytes) return QZE_NO_RIFF_HEADER;
            // Without a budget the search may run past the FORM into whatever
            // follows it; whichever way it fails, the chunk is not there.
            const HRESULT hr = qz::chunks::find_chunk<IffLayout>(source, id, size, nullptr);
            return FAILED(hr) ? QZE_NOT_FOUND : S_OK;
        },
        size);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size,
                                                          DWORD* remaining) {
    if (!remaining) return E_INVALIDARG;
    DWORD left = *remaining;
    const HRESULT hr = walk_ahead(
        file,
        [&](auto& source) { return qz::chunks::find_chunk<IffLayout>(source, id, size, &left); },
        size, &left);
    // A find that leaves exactly 0 is not stored: the caller's count stays
    // as it was, a rule the callers of this search have always had.
    if (hr == QZE_FILE_READ || (hr == S_OK && left == 0)) return hr;
    *remaining = left;
    return hr;
}
