// riff_DeleteChunk: removing a top-level chunk or list and closing the gap.
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

struct Span {
    uint64_t start = 0;
    uint64_t length = 0;
    DWORD riff_size = 0;  // the file's RIFF size before the removal
};

/*
 * Finds the chunk (or list) to remove among the top-level chunks and
 * measures it: from its header to the end of its pad byte. A chunk that
 * claims more than the file holds, or more than the RIFF size covers, is
 * refused before anything moves: removing it would take bytes that are
 * not the RIFF's and lower its size below zero. A last chunk that lacks
 * only its pad byte is removed up to the end of the file.
 */
HRESULT locate(FileSource& file, DWORD id_or_type, bool is_list, Span* span) {
    DWORD left = 0;
    DWORD form = 0;
    HRESULT hr = rewind_to_top_level(file, &left, &form);
    if (FAILED(hr)) return hr;
    // The budget is the RIFF size less the form type, in 32 bits, so this
    // gives the size field back exactly even when it was below 4.
    const DWORD riff_size = DWORD(left + 4);
    const uint64_t riff_end = uint64_t(riff_size) + qz::chunks::kChunkHeaderBytes;
    DWORD size = 0;
    hr = is_list ? qz::chunks::find_list<RiffLayout>(file, id_or_type, &size, &left)
                 : qz::chunks::find_chunk<RiffLayout>(file, id_or_type, &size, &left);
    if (FAILED(hr)) return hr;
    const DWORD header = qz::chunks::kChunkHeaderBytes + (is_list ? qz::chunks::kListTypeBytes : 0);
    uint64_t body_start = 0;
    uint64_t file_length = 0;
    if (!file.tell(&body_start) || !file.length(&file_length)) return QZE_FILE_READ;
    if (body_start + size > file_length || body_start + size > riff_end)
        return QZE_CORRUPT_OR_UNKNOWN;
    span->riff_size = riff_size;
    span->start = body_start - header;
    span->length = qz::chunks::padded(size) + header;
    if (span->start + span->length > file_length) span->length = file_length - span->start;
    return S_OK;
}

}  // namespace

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL riff_DeleteChunk(HANDLE file, DWORD id_or_type,
                                                       DWORD* removed, BOOL is_list) {
    if (removed) *removed = 0;
    FileSource source(file);
    Span span;
    HRESULT hr = locate(source, id_or_type, is_list != FALSE, &span);
    if (FAILED(hr)) return hr;
    uint64_t end = 0;
    unsigned char block[kMoveBlockBytes];
    hr = qz::chunks::close_gap(source, span.start, span.length, block, sizeof block, &end);
    if (FAILED(hr)) return hr;
    // A cut that fails leaves a copy of the tail's last bytes behind the
    // data; lowering the RIFF size anyway keeps the file a valid RIFF with
    // stray bytes after it, which every reader skips.
    const bool cut = source.seek_to(end) && source.truncate_here();
    // The span lies within the RIFF size (locate checked it), so the new
    // size cannot fall below zero.
    const DWORD new_size = span.riff_size - DWORD(span.length);
    const bool resized = source.seek_to(uint64_t(kRiffSizeOffset)) &&
                         write_word(source, new_size) && source.seek_to(end);
    if (removed) *removed = DWORD(span.length);
    return cut && resized ? S_OK : QZE_FILE_WRITE;
}
