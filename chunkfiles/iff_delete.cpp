// iff_DeleteChunk: removing a top-level chunk of an AIFF file and closing the gap.
#include <algorithm>

#include "chunkfiles/chunk_delete.h"
#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL iff_DeleteChunk(HANDLE file, DWORD id, DWORD* removed) {
    if (removed) *removed = 0;
    FileSource source(file);
    AiffKind kind;
    if (!classify(source, &kind)) return QZE_CORRUPT_OR_UNKNOWN;
    DWORD left = kind.form_size;
    DWORD size = 0;
    HRESULT hr = qz::chunks::find_chunk<IffLayout>(source, id, &size, &left);
    if (FAILED(hr)) return hr;
    qz::chunks::FoundSpan span;
    const uint64_t form_end = uint64_t(kind.form_size) + IffLayout::header_bytes;
    hr = qz::chunks::measure_found<IffLayout>(source, IffLayout::header_bytes, size, form_end,
                                              &span);
    if (FAILED(hr)) return hr;
    const qz::chunks::MoveBlock block(span.tail);
    if (block.failed()) return E_OUTOFMEMORY;
    // The body lies within the FORM size (measure_found checked it); only a
    // pad byte the size leaves out could pass it, and the size stops at 0.
    const DWORD new_size = kind.form_size - DWORD(std::min<uint64_t>(span.length, kind.form_size));
    return qz::chunks::remove_span<IffLayout>(source, span, block.data(), block.size(),
                                              kFormSizeOffset, new_size, removed);
}
