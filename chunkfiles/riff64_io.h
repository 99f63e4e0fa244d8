/*
 * riff64_io.h - what the riff64_ family shares between its files: the
 * 64-bit RIFF vocabulary, the file-header reader and the checked size sums
 * over a file handle (file_source.h).
 */
#ifndef QZ_CHUNKFILES_RIFF64_IO_H
#define QZ_CHUNKFILES_RIFF64_IO_H

#include <algorithm>
#include <cstdint>

#include "chunkfiles/file_source.h"

namespace qz::riff64 {

using chunks::FileSource;
using chunks::kRiff64FileLabel;
using chunks::kRiff64ListLabel;
using chunks::Riff64Layout;

inline constexpr DWORD kHeaderBytes = Riff64Layout::header_bytes;
inline constexpr DWORD kTypeBytes = Riff64Layout::type_bytes;
/* "riff", size, form type. */
inline constexpr DWORD kFileHeaderBytes = kHeaderBytes + kTypeBytes;
/* The file's size field sits after the 16-byte label. */
inline constexpr DWORD kSizeOffset = Riff64Layout::id_bytes;

/*
 * The size field for `data` bytes after a header: data + 24. False when
 * that does not fit 64 bits, which no real chunk comes near.
 */
inline bool stored_size(ULONGLONG data, ULONGLONG* stored) {
    return !__builtin_add_overflow(data, ULONGLONG(kHeaderBytes), stored);
}

/*
 * Writes one chunk header (label, then data size + 24) as two writes.
 * E_INVALIDARG, writing nothing, when the sum does not fit.
 */
HRESULT write_header(FileSource& file, const GUID& label, ULONGLONG data);

/*
 * Reads the file header at the position as riff64_ReadFileID does: the
 * header read itself decides nothing; *remaining is always set to the
 * top-level budget (data size - 16), then the label and the form type are
 * judged (QZE_NO_RIFF_HEADER, QZE_FILE_READ). The position ends where
 * reading the header and then the form type would leave it.
 */
template <chunks::ChunkSource Source>
HRESULT read_file_id(Source& file, LONGLONG* remaining, GUID* form_type) {
    // One read of header and form type. A header that did not arrive whole
    // counts as an empty one without a label, which is what the family's
    // callers have always seen: its budget is -16 and the label test fails.
    const auto header = chunks::read_file_header<Riff64Layout>(file);
    const bool whole = header.arrived >= kHeaderBytes;
    const uint64_t data = whole ? chunks::data_size<Riff64Layout>(header.size) : 0;
    // The budget counts from the form type on; a size beyond any file
    // offset is held at the largest budget rather than turned negative.
    if (remaining) *remaining = LONGLONG(std::min<uint64_t>(data, INT64_MAX)) - kTypeBytes;
    if (!whole || !(header.id == kRiff64FileLabel)) {
        // Left after the 24 header bytes, as a reader that stops there is.
        if (whole) file.skip(int64_t(kHeaderBytes) - int64_t(header.arrived));
        return QZE_NO_RIFF_HEADER;
    }
    if (header.arrived < kFileHeaderBytes) return QZE_FILE_READ;
    if (form_type) *form_type = header.form;
    return S_OK;
}

/* Rewinds and reads the file header; *remaining is the top-level budget. */
template <chunks::ChunkSource Source>
HRESULT rewind_to_top_level(Source& file, LONGLONG* remaining) {
    if (!file.seek_to(uint64_t(0))) return QZE_FILE_READ;
    return read_file_id(file, remaining, nullptr);
}

/*
 * Writes `count` zero bytes, one at a time (at most 7 are ever asked
 * for). False when a write fails.
 */
bool write_zeros(FileSource& file, DWORD count);

/* The zero bytes that take `bytes` to a multiple of 8. */
constexpr DWORD padding_after(uint64_t bytes) {
    return DWORD((0 - bytes) & (Riff64Layout::alignment - 1));
}

}  // namespace qz::riff64

#endif
