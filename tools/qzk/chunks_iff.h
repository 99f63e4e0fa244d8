// The IFF side of `qzk chunks` and `qzk wavinfo`: big-endian "FORM" files
// and AIFF / AIFF-C formats, read with the iff_ functions.
#ifndef QZK_CHUNKS_IFF_H
#define QZK_CHUNKS_IFF_H

#include <string>

#include "tools/qzk/input.h"

namespace qzk {

// True when the image starts with an IFF "FORM" header.
bool is_iff(const InputImage& image);

// Prints the chunk tree of the IFF file at `path`, whose bytes (or first
// bytes) `image` holds. A damaged file prints what could be read and fails
// with QZE_CORRUPT_OR_UNKNOWN.
HRESULT show_iff_tree(const std::string& path, const InputImage& image, bool json);

// The format of an AIFF or AIFF-C file as a format record, and the bytes
// of its sample data.
HRESULT read_aiff_format(const std::string& path, const InputImage& image, _qzwaveformat* format,
                         ULONGLONG* data_size);

}  // namespace qzk

#endif
