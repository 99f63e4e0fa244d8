// iff_DeleteChunk: removing a top-level chunk of an AIFF file and closing the gap.
#include <algorithm>
#include <memory>

#include "chunkfiles/chunk_delete.h"
#include "chunkfiles/iff_io.h"
#include "qz/iff.h"

using namespace qz::iff;

namespace {

/* The tail moves through one heap block of at most this many bytes. */
constexpr uint64_t kMoveBlockBytes = 4096;

struct HeapBlockFree {
    void operator()(unsigned char* p) const { HeapFree(GetProcessHeap(), 0, p); }
};
using HeapBlock = std::unique_ptr<unsigned char[], HeapBlockFree>;

}  // namespace

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
    // A block no larger than the tail: a small file's deletion takes only
    // what it moves.
    const auto block_bytes = DWORD(std::min(span.tail, kMoveBlockBytes));
    HeapBlock block;
    if (block_bytes) {
        block.reset(static_cast<unsigned char*>(
            HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block_bytes)));
        if (!block) return E_OUTOFMEMORY;
    }
    // The span lies within the FORM size (measure_found checked it), so the
    // new size cannot fall below zero.
    return qz::chunks::remove_span<IffLayout>(source, span, block.get(), block_bytes,
                                              kFormSizeOffset, kind.form_size - DWORD(span.length),
                                              removed);
}
