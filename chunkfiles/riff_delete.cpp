// riff_DeleteChunk: removing a top-level chunk or list and closing the gap.
#include "chunkfiles/chunk_delete.h"
#include "chunkfiles/riff_io.h"
#include "qz/riff.h"

using namespace qz::riff;
using qz::chunks::RiffLayout;

namespace {

/*
 * The tail moves through this one stack buffer whatever the file size, so
 * deleting from a file of any length costs the same memory.
 */
constexpr DWORD kMoveBlockBytes = 4096;

/*
 * Finds the chunk (or list) to remove among the top-level chunks and
 * measures it, header and list type included; *riff_size is the file's
 * RIFF size before the removal.
 */
HRESULT locate(FileSource& file, DWORD id_or_type, bool is_list, qz::chunks::FoundSpan* span,
               DWORD* riff_size) {
    DWORD left = 0;
    DWORD form = 0;
    HRESULT hr = rewind_to_top_level(file, &left, &form);
    if (FAILED(hr)) return hr;
    // The budget is the RIFF size less the form type, in 32 bits, so this
    // gives the size field back exactly even when it was below 4.
    *riff_size = DWORD(left + 4);
    DWORD size = 0;
    hr = is_list ? qz::chunks::find_list<RiffLayout>(file, id_or_type, &size, &left)
                 : qz::chunks::find_chunk<RiffLayout>(file, id_or_type, &size, &left);
    if (FAILED(hr)) return hr;
    const DWORD header = qz::chunks::kChunkHeaderBytes + (is_list ? qz::chunks::kListTypeBytes : 0);
    const uint64_t riff_end = uint64_t(*riff_size) + qz::chunks::kChunkHeaderBytes;
    return qz::chunks::measure_found<RiffLayout>(file, header, size, riff_end, span);
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_DeleteChunk(HANDLE file, DWORD id_or_type,
                                                       DWORD* removed, BOOL is_list) {
    if (removed) *removed = 0;
    FileSource source(file);
    qz::chunks::FoundSpan span;
    DWORD riff_size = 0;
    const HRESULT hr = locate(source, id_or_type, is_list != FALSE, &span, &riff_size);
    if (FAILED(hr)) return hr;
    unsigned char block[kMoveBlockBytes];
    // The span lies within the RIFF size (locate checked it), so the new
    // size cannot fall below zero.
    return qz::chunks::remove_span<RiffLayout>(source, span, block, sizeof block, kRiffSizeOffset,
                                               riff_size - DWORD(span.length), removed);
}
