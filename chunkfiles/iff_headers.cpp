// iff_*: chunk and file headers, read and written.
#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_ReadChunkHdr(HANDLE file, QZIFFCHUNK* header) {
    if (!header) return E_INVALIDARG;
    FileSource source(file);
    return qz::chunks::read_chunk_header<IffLayout>(source, &header->ckID, &header->ckSize);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_WriteChunk(HANDLE file, const QZIFFCHUNK* header) {
    if (!header) return E_INVALIDARG;
    FileSource sink(file);
    return qz::chunks::write_chunk_header<IffLayout>(sink, header->ckID, header->ckSize);
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_ReadFormType(HANDLE file, QZIFFCHUNK* header,
                                                       DWORD* form_type) {
    if (!header || !form_type) return E_INVALIDARG;
    FileSource source(file);
    // One read of the whole file header; a file that is not "FORM" is left
    // after its chunk header, as reading the header alone would leave it.
    const auto form = qz::chunks::read_file_header<IffLayout>(source);
    if (form.arrived < IffLayout::header_bytes) return QZE_FILE_READ;
    header->ckID = form.id;
    header->ckSize = form.size;
    if (form.id != kFormId) {
        source.skip(int64_t(IffLayout::header_bytes) - int64_t(form.arrived));
        return QZE_CORRUPT_OR_UNKNOWN;
    }
    if (form.arrived < kFileHeaderBytes) return QZE_FILE_READ;
    *form_type = form.form;
    return S_OK;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_WriteFileID(HANDLE file, DWORD form_type, DWORD size) {
    FileSource sink(file);
    const HRESULT hr = qz::chunks::write_chunk_header<IffLayout>(sink, kFormId, size);
    if (FAILED(hr)) return hr;
    return qz::chunks::write_id<IffLayout>(sink, form_type) ? S_OK : QZE_FILE_WRITE;
}
