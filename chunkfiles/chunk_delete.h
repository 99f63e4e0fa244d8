/*
 * chunk_delete.h - removing a chunk that a search has found from a file:
 * the measuring and the removal that the file families' deletions share
 * (riff_DeleteChunk, riff64_DeleteChunk, iff_DeleteChunk). Each family
 * finds the chunk with the shared walk, measures it here, and moves the
 * tail through a block (close_gap in file_source.h): a stack block for the
 * RIFF family, a heap block no larger than the tail for the others.
 */
#ifndef QZ_CHUNKFILES_CHUNK_DELETE_H
#define QZ_CHUNKFILES_CHUNK_DELETE_H

#include <algorithm>
#include <cstdint>

#include "chunkfiles/file_source.h"

namespace qz::chunks {

/*
 * A zeroed block from the process heap for a tail move: no larger than the
 * tail and at most 4096 bytes, so a short tail costs only its own size and
 * a file of any length the same memory. No block at all for no tail.
 */
class MoveBlock {
public:
    explicit MoveBlock(uint64_t tail) : bytes_(DWORD(std::min<uint64_t>(tail, 4096))) {
        if (bytes_)
            data_ = static_cast<unsigned char*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes_));
    }
    ~MoveBlock() {
        if (data_) HeapFree(GetProcessHeap(), 0, data_);
    }
    MoveBlock(const MoveBlock&) = delete;
    MoveBlock& operator=(const MoveBlock&) = delete;

    /* True when a block was needed and the heap had none. */
    bool failed() const { return bytes_ && !data_; }
    unsigned char* data() const { return data_; }
    DWORD size() const { return bytes_; }

private:
    DWORD bytes_;
    unsigned char* data_ = nullptr;
};

/* A found chunk in the file: from its header to the end of its pad, and the bytes after it. */
struct FoundSpan {
    uint64_t start = 0;
    uint64_t length = 0;
    uint64_t tail = 0;
};

/*
 * Measures the chunk whose first body byte is at the position, with
 * `header` bytes in front of its `size` data bytes (a group's type counts
 * as header). A chunk that claims more bytes than the file holds, or than
 * its container covers up to `container_end`, is refused with
 * QZE_CORRUPT_OR_UNKNOWN before anything moves: removing it would take
 * bytes that are not the container's and lower the container's size
 * below zero. A last chunk that lacks only its pad byte is measured up to
 * the end of the file. The position is left at the end of the file.
 */
template <class Layout>
HRESULT measure_found(FileSource& file, DWORD header, uint64_t size, uint64_t container_end,
                      FoundSpan* span) {
    uint64_t body = 0;
    uint64_t file_length = 0;
    if (!file.tell(&body) || !file.length(&file_length)) return QZE_FILE_READ;
    if (body + size > file_length || body + size > container_end) return QZE_CORRUPT_OR_UNKNOWN;
    span->start = body - header;
    span->length = std::min(aligned<Layout>(size) + header, file_length - span->start);
    span->tail = file_length - span->start - span->length;
    return S_OK;
}

/*
 * Removes a measured span: moves the tail down over it through `block`,
 * cuts the file at the new end and writes `new_size` as the container's
 * size field at `size_at`; the position ends at the new end of the file.
 * *removed (optional) becomes the span's length once the tail has moved.
 * The move's failures come back as close_gap gives them; a failed cut or
 * size write gives QZE_FILE_WRITE. A cut that fails leaves a copy of the
 * tail's last bytes behind the data: the size is lowered all the same,
 * which keeps the file a valid container with stray bytes after it, and
 * every reader skips those.
 */
template <class Layout, class Count>
HRESULT remove_span(FileSource& file, const FoundSpan& span, unsigned char* block,
                    DWORD block_bytes, uint64_t size_at, typename Layout::Size new_size,
                    Count* removed) {
    uint64_t end = span.start;
    if (span.tail) {
        const HRESULT hr = close_gap(file, span.start, span.length, block, block_bytes, &end);
        if (FAILED(hr)) return hr;
    }
    const bool cut = file.seek_to(end) && file.truncate_here();
    const bool resized =
        file.seek_to(size_at) && write_size<Layout>(file, new_size) && file.seek_to(end);
    if (removed) *removed = Count(span.length);
    return cut && resized ? S_OK : QZE_FILE_WRITE;
}

}  // namespace qz::chunks

#endif
