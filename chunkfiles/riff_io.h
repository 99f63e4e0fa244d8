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
 * the size field as stored.
 */
HRESULT read_file_header(FileSource& file, DWORD* riff_size, DWORD* form_type);

/* Rewinds and reads the file header; *remaining is the top-level budget. */
HRESULT rewind_to_top_level(FileSource& file, DWORD* remaining, DWORD* form_type);

}  // namespace qz::riff

#endif
