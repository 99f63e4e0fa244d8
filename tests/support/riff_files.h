// Test helpers of the riff_ suites: RIFF images built byte by byte, and
// temporary files opened as Win32 handles.
#ifndef QZ_TESTS_SUPPORT_RIFF_FILES_H
#define QZ_TESTS_SUPPORT_RIFF_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzkernel.h"
#include "tests/support/platform_testing.h"

namespace qz::testing {

using Bytes = std::vector<uint8_t>;

// A four-character code as the riff_ functions take it.
uint32_t cc(const char* code);

Bytes le32(uint32_t value);
Bytes be16(uint16_t value);
Bytes be32(uint32_t value);
Bytes operator+(Bytes a, const Bytes& b);
Bytes text(const std::string& characters);
// The first `count` bytes.
Bytes prefix(const Bytes& bytes, size_t count);
// `count` bytes 1, 2, 3, ... (mod 251), so moved bytes are recognisable.
Bytes pattern(size_t count, uint8_t seed = 1);
// Bytes from pairs of hex digits; spaces are for the reader.
Bytes hex(const std::string& digits);

// Header, body and the pad byte when the body is odd.
Bytes chunk(const char (&id)[5], const Bytes& body);
// Header with a size field of the caller's choosing and no body.
Bytes header(const char (&id)[5], uint32_t size);
// "LIST", size (type + body), type, body, pad.
Bytes list(const char (&type)[5], const Bytes& body);
// "RIFF", size (form + body), form type, body.
Bytes riff(const char (&form)[5], const Bytes& body);

// 64-bit RIFF (Wave64): the same, with GUID labels, 64-bit sizes that
// count the 24-byte header, and zero padding to a multiple of 8.
Bytes le64(uint64_t value);
// A Wave64 label from its four-character name,
// {NAME-ACF3-11D3-8CD1-00C04F8EDB8A}; "riff" and "list" give the structural
// labels {...-912E/912F-11CF-A5D6-28DB04C10000}.
GUID w64(const char (&name)[5]);
// A GUID's 16 bytes in file order.
Bytes guid(const GUID& label);
// Header with a stored size of the caller's choosing and no body.
Bytes header64(const GUID& label, uint64_t stored);
// Header (24 + body), body, padding.
Bytes chunk64(const GUID& label, const Bytes& body);
// "list" header (24 + 16 + body), type, body, padding.
Bytes list64(const GUID& type, const Bytes& body);
// "riff" header (24 + 16 + body), form type, body.
Bytes riff64(const GUID& form, const Bytes& body);

// Runs a ReadDataAlloc function (`read(&record)`) for `expected.size()`
// bytes and checks the block: there exactly when the read succeeded, holding
// `expected`, and freed back to the global heap. Returns the read's result.
template <class Read>
HRESULT read_alloc_checked(Read read, const Bytes& expected) {
    QZRIFFDATA data{DWORD(expected.size()), nullptr};
    const HRESULT hr = read(&data);
    EXPECT_EQ(FAILED(hr) || expected.empty(), data.pData == nullptr);
    if (!data.pData) return hr;
    EXPECT_EQ(
        Bytes(static_cast<uint8_t*>(data.pData), static_cast<uint8_t*>(data.pData) + data.cbData),
        expected);
    GlobalUnlock(GlobalHandle(data.pData));
    EXPECT_EQ(GlobalFree(GlobalHandle(data.pData)), nullptr);
    return hr;
}

Bytes read_file(const std::string& path);
void write_file(const std::string& path, const Bytes& bytes);

// A temporary file holding `bytes`, open for reading and writing.
class TempFile {
public:
    explicit TempFile(const Bytes& bytes, const std::string& name = "riff.bin");
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    HANDLE handle() const { return handle_; }
    const std::string& path() const { return path_; }
    Bytes contents() const { return read_file(path_); }
    uint64_t position() const;
    void seek(uint64_t position) const;

private:
    TempDir dir_;
    std::string path_;
    HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// Interop: runs a shell command; its output (standard error too unless the
// command redirects it) and, when asked, its exit status.
std::string run_tool(const std::string& command, int* status = nullptr);
std::string quoted(const std::string& path);
// `sox --i FLAG FILE`: one header field as sox reads it.
std::string sox_info(const char* flag, const std::string& path);
// Whether every tool of the space-separated `names` is on the PATH.
bool have_tools(const std::string& names);
// `path` as a handle, shared for reading and writing.
HANDLE open_path(const std::string& path, DWORD access = GENERIC_READ,
                 DWORD disposition = OPEN_EXISTING);
// 4410 frames of a 440 Hz tone, 16-bit stereo at 44100 Hz.
Bytes tone_samples();
// The samples of `path` as sox decodes them to raw bytes.
Bytes sox_raw(const std::string& path);

}  // namespace qz::testing

#endif
