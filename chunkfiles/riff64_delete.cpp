// riff64_DeleteChunk: removing a top-level chunk and closing the gap.
#include <algorithm>
#include <memory>

#include "chunkfiles/riff64_io.h"
#include "qz/riff64.h"

using namespace qz::riff64;

namespace {

/* The tail moves through at most this much memory, whatever the file size. */
constexpr uint64_t kMoveBlockBytes = 4096;

struct HeapBlockFree {
    void operator()(unsigned char* p) const { HeapFree(GetProcessHeap(), 0, p); }
};
using MoveBlock = std::unique_ptr<unsigned char[], HeapBlockFree>;

struct Span {
    uint64_t start = 0;
    uint64_t length = 0;
    uint64_t file_length = 0;
};

/*
 * Finds the chunk among the top-level chunks and measures it: from its
 * header to the end of its padding. A chunk that claims more than the
 * file holds, or more than the file's size covers, is refused before
 * anything moves: removing it would take bytes that are not the file's and
 * lower its size below zero. A last chunk that lacks only its padding is
 * removed up to the end of the file.
 */
HRESULT locate(FileSource& file, const GUID& label, Span* span) {
    if (!file.length(&span->file_length)) return QZE_FILE_READ;
    LONGLONG left = 0;
    HRESULT hr = rewind_to_top_level(file, &left);
    if (FAILED(hr)) return hr;
    ULONGLONG size = 0;
    hr = qz::chunks::find_chunk<Riff64Layout>(file, label, &size, &left);
    if (FAILED(hr)) return hr;
    uint64_t body_start = 0;
    ULONGLONG riff_size = 0;
    if (!file.tell(&body_start) || !file.seek_to(uint64_t(kSizeOffset)) ||
        !qz::chunks::read_size<Riff64Layout>(file, &riff_size))
        return QZE_FILE_READ;
    // The file's size counts from offset 0, header included.
    const uint64_t body_end_limit = std::min<uint64_t>(span->file_length, riff_size);
    if (body_start > body_end_limit || size > body_end_limit - body_start)
        return QZE_CORRUPT_OR_UNKNOWN;
    span->start = body_start - kHeaderBytes;
    const uint64_t in_file = span->file_length - span->start;
    span->length =
        std::min<uint64_t>(qz::chunks::aligned<Riff64Layout>(size) + kHeaderBytes, in_file);
    return S_OK;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff64_DeleteChunk(HANDLE file, GUID label,
                                                         ULONGLONG* removed) {
    if (removed) *removed = 0;
    FileSource source(file);
    Span span;
    HRESULT hr = locate(source, label, &span);
    if (FAILED(hr)) return hr;
    uint64_t end = span.start;
    const uint64_t tail = span.file_length - (span.start + span.length);
    if (tail > 0) {
        // A block no larger than the tail: a short tail costs only its size.
        const auto block_bytes = DWORD(std::min(tail, kMoveBlockBytes));
        const MoveBlock block(static_cast<unsigned char*>(
            HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block_bytes)));
        if (!block) return E_OUTOFMEMORY;
        hr = qz::chunks::close_gap(source, span.start, span.length, block.get(), block_bytes, &end);
        if (FAILED(hr)) return hr;
    }
    // A cut that fails leaves a copy of the tail's last bytes behind the
    // data; the size is lowered all the same, so readers that follow it
    // stop before them.
    const bool cut = source.seek_to(end) && source.truncate_here();
    hr = riff64_UpdateRIFFSize(file, -LONGLONG(span.length));
    if (removed) *removed = span.length;
    if (FAILED(hr)) return hr;
    return cut ? S_OK : QZE_FILE_WRITE;
}
