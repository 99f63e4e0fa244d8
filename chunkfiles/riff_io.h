/*
 * riff_io.h - what the riff_ family shares between its files: the RIFF
 * vocabulary, the file-header reader and the header writers over a file
 * handle (file_source.h).
 */
#ifndef QZ_CHUNKFILES_RIFF_IO_H
#define QZ_CHUNKFILES_RIFF_IO_H

#include <cstdint>

#include "chunkfiles/file_source.h"

namespace qz::riff {

using chunks::FileSource;
using chunks::kFileHeaderBytes;
using chunks::kFmtId;
using chunks::kListId;
using chunks::kRiffId;
using chunks::read_word;
using chunks::RiffLayout;
using chunks::write_word;
inline constexpr DWORD kCddaForm = base::fourcc("CDDA");
/* The RIFF size field sits after the id. */
inline constexpr DWORD kRiffSizeOffset = 4;

/* A chunk header: the id, then the size, as two 4-byte writes. */
inline HRESULT write_chunk_header(FileSource& file, DWORD id, DWORD size) {
    return chunks::write_chunk_header<RiffLayout>(file, id, size);
}

/*
 * Reads the file header at the position: id, size and form type, in one
 * read. QZE_FILE_READ when short, QZE_NO_RIFF_HEADER when the id is not
 * "RIFF" (the position is then 4 bytes on, after the id); *riff_size is
 * the size field as stored. The outcome and the position are those of
 * reading the id first and stopping when it is not "RIFF": a file that is
 * not RIFF is told apart from one cut short.
 */
template <chunks::ChunkSource Source>
HRESULT read_file_header(Source& file, DWORD* riff_size, DWORD* form_type) {
    const auto header = chunks::read_file_header<RiffLayout>(file);
    if (header.arrived < 4) return QZE_FILE_READ;
    if (header.id != kRiffId) {
        file.skip(int64_t(4) - int64_t(header.arrived));
        return QZE_NO_RIFF_HEADER;
    }
    if (header.arrived < kFileHeaderBytes) return QZE_FILE_READ;
    *riff_size = header.size;
    *form_type = header.form;
    return S_OK;
}

/* Rewinds and reads the file header; *remaining is the top-level budget. */
template <chunks::ChunkSource Source>
HRESULT rewind_to_top_level(Source& file, DWORD* remaining, DWORD* form_type) {
    if (!file.seek_to(uint64_t(0))) return QZE_FILE_READ;
    DWORD riff_size = 0;
    const HRESULT hr = read_file_header(file, &riff_size, form_type);
    if (FAILED(hr)) return hr;
    // The size counts the form type; the walk's budget starts after it.
    *remaining = riff_size - 4;
    return S_OK;
}

}  // namespace qz::riff

#endif
