// Wave64 files (the 64-bit RIFF form) in `qzk chunks` and `qzk wavinfo`,
// read with the riff64_ functions on a file handle.
#ifndef QZK_CHUNKS_W64_H
#define QZK_CHUNKS_W64_H

#include <string>

#include "tools/qzk/input.h"

namespace qzk {

// Prints the chunk tree of `path` when it is a Wave64 file, as `qzk chunks`
// prints a RIFF file's; S_FALSE (nothing printed) when it is not one.
// `input` is the command's image of the file: a pipe has been read into it
// already, and a file past 4 GiB has only its status.
HRESULT show_wave64_chunks(const std::string& path, const InputImage& input, bool json);

// The format and the data size of `path` when it is a Wave64 file;
// S_FALSE when it is not one.
HRESULT read_wave64_format(const std::string& path, const InputImage& input, _qzwaveformat* format,
                           ULONGLONG* data_size);

}  // namespace qzk

#endif
