// riff64_DeleteChunk: removing a top-level chunk and closing the gap.
#include <algorithm>

#include "chunkfiles/chunk_delete.h"
#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

using namespace qz::riff64;

namespace {

/*
 * Finds the chunk among the top-level chunks and measures it, from its
 * header to the end of its padding; *riff_size is the file's size field,
 * which counts from offset 0, header included.
 */
HRESULT locate(FileSource& file, const GUID& label, qz::chunks::FoundSpan* span,
               ULONGLONG* riff_size) {
    LONGLONG left = 0;
    HRESULT hr = rewind_to_top_level(file, &left);
    if (FAILED(hr)) return hr;
    ULONGLONG size = 0;
    hr = qz::chunks::find_chunk<Riff64Layout>(file, label, &size, &left);
    if (FAILED(hr)) return hr;
    uint64_t body_start = 0;
    if (!file.tell(&body_start) || !file.seek_to(uint64_t(kSizeOffset)) ||
        !qz::chunks::read_size<Riff64Layout>(file, riff_size) || !file.seek_to(body_start))
        return QZE_FILE_READ;
    return qz::chunks::measure_found<Riff64Layout>(file, kHeaderBytes, size, *riff_size, span);
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_DeleteChunk(HANDLE file, GUID label,
                                                         ULONGLONG* removed) {
    if (removed) *removed = 0;
    FileSource source(file);
    qz::chunks::FoundSpan span;
    ULONGLONG riff_size = 0;
    const HRESULT hr = locate(source, label, &span, &riff_size);
    if (FAILED(hr)) return hr;
    const qz::chunks::MoveBlock block(span.tail);
    if (block.failed()) return E_OUTOFMEMORY;
    // The body lies within the size (measure_found checked it); only padding
    // the size leaves out could pass it, and the size stops at 0.
    const ULONGLONG new_size = riff_size - std::min<uint64_t>(span.length, riff_size);
    return qz::chunks::remove_span<Riff64Layout>(source, span, block.data(), block.size(),
                                                 kSizeOffset, new_size, removed);
}
