/*
 * iff_io.h - what the iff_ family shares between its files: the IFF and
 * AIFF vocabulary, the file-header rules and the AIFF classification.
 * Everything moves through FileSource (file_source.h) and the shared walk
 * with IffLayout; fields are big-endian.
 */
#ifndef QZ_CHUNKFILES_IFF_IO_H
#define QZ_CHUNKFILES_IFF_IO_H

#include <cstdint>

#include "chunkfiles/file_source.h"

namespace qz::iff {

using base::fourcc_be;
using chunks::FileSource;
using chunks::IffLayout;

inline constexpr DWORD kFormId = fourcc_be("FORM");
inline constexpr DWORD kAiffForm = fourcc_be("AIFF");
inline constexpr DWORD kAifcForm = fourcc_be("AIFC");
inline constexpr DWORD kCommId = fourcc_be("COMM");
inline constexpr DWORD kSsndId = fourcc_be("SSND");
inline constexpr DWORD kMarkId = fourcc_be("MARK");
/* AIFF-C compression types this library reads as plain PCM. */
inline constexpr DWORD kNoCompression = fourcc_be("NONE");
inline constexpr DWORD kSwappedCompression = fourcc_be("sowt");

/* "FORM", size, form type. */
inline constexpr DWORD kFileHeaderBytes = IffLayout::header_bytes + IffLayout::type_bytes;
/* The FORM size sits after the id. */
inline constexpr DWORD kFormSizeOffset = 4;

/* Rewinds and reads the file header in one read, as far as it arrived. */
template <class Source>
chunks::FileHeader<IffLayout> rewind_to_form(Source& file) {
    if (!file.seek_to(uint64_t(0))) return {};
    return chunks::read_file_header<IffLayout>(file);
}

/* What iff_IsAIFFFileEx tells of a file. */
struct AiffKind {
    DWORD form_size = 0;
    bool compressed = false;     // AIFF-C
    bool little_endian = false;  // AIFF-C "sowt"
};

/*
 * The AIFF classification: true for an AIFF file or an AIFF-C file whose
 * compression type this library reads. On true the position is at offset
 * 12; *kind holds what was learnt even on false.
 */
bool classify(FileSource& file, AiffKind* kind);

}  // namespace qz::iff

#endif
