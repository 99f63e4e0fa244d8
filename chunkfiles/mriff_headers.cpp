// mriff_*: chunk, list and file headers in an image, read and written.
#include "chunkfiles/mriff_io.h"

using namespace qz::mriff;
using qz::chunks::RiffLayout;

namespace {

// "LIST" or "RIFF" header, then the type; every part written as far as it fits.
HRESULT write_typed_header(_tMRIFF* m, DWORD id, DWORD type, DWORD size) {
    if (!m) return E_POINTER;
    const HRESULT hr = mriff_WriteChunkHeader(m, id, size);
    MemorySource image(*m);
    const bool type_fits = write_word(image, type);
    return SUCCEEDED(hr) && type_fits ? S_OK : QZE_FILE_WRITE;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL mriff_WriteChunkHeader(_tMRIFF* m, DWORD id, DWORD size) {
    if (!m) return E_POINTER;
    MemorySource image(*m);
    const bool id_fits = write_word(image, id);
    const bool size_fits = write_word(image, size);
    return id_fits && size_fits ? S_OK : QZE_FILE_WRITE;
}

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
    DWORD riff_size = 0;
    DWORD form = 0;
    const HRESULT hr = read_file_header(image, &riff_size, &form);
    if (FAILED(hr)) return hr;
    // The size counts the form type; the top-level budget starts after it.
    if (remaining) *remaining = riff_size - 4;
    if (formType) *formType = form;
    return S_OK;
}
