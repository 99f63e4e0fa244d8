// The bytes of a file named on the command line, as one image in memory.
//
// A file that can seek is mapped read-only; a pipe, a FIFO or a terminal
// (`cat song.wav | qzk chunks /dev/stdin`) cannot be walked on its handle,
// so it is read to its end into memory first. Either way the subcommands
// inspect the image with the library's memory-image readers, and both
// kinds of input give the same answers.
#ifndef QZK_INPUT_H
#define QZK_INPUT_H

#include <string>
#include <vector>

#include "qzkernel.h"

namespace qzk {

class InputImage {
public:
    // Opens and loads `path`; status() tells how that went. With a head
    // size, a file that can seek and is longer than that loads only its
    // first `head` bytes (is_head() then says so), for readers that need
    // just the headers at the front.
    explicit InputImage(const std::string& path, DWORD head = 0);
    ~InputImage();
    InputImage(const InputImage&) = delete;
    InputImage& operator=(const InputImage&) = delete;

    // S_OK, or the code to report: QZE_FILE_OPEN, QZE_FILE_READ, or
    // QZE_UNSUPPORTED_FORMAT for input of 4 GiB or more (no RIFF file is).
    HRESULT status() const { return status_; }
    const BYTE* data() const { return data_; }
    DWORD size() const { return size_; }
    bool is_head() const { return is_head_; }

private:
    HRESULT map_file(DWORD head);
    HRESULT read_head(DWORD head);
    HRESULT read_stream();

    HANDLE file_ = INVALID_HANDLE_VALUE;
    HANDLE mapping_ = nullptr;
    LPVOID view_ = nullptr;
    std::vector<BYTE> buffer_;  // what a stream held
    const BYTE* data_ = nullptr;
    DWORD size_ = 0;
    HRESULT status_ = S_OK;
    bool is_head_ = false;
};

}  // namespace qzk

#endif
