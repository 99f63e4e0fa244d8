#include "tools/qzk/input.h"

#include <new>

#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

// Images are addressed with 32-bit offsets, as RIFF files are.
constexpr ULONGLONG kLargestImage = 0xFFFFFFFFull;
constexpr DWORD kStreamPiece = 64 * 1024;

bool can_seek(HANDLE file) {
    LARGE_INTEGER zero{}, position{};
    return SetFilePointerEx(file, zero, &position, FILE_CURRENT) != FALSE;
}

}  // namespace

InputImage::InputImage(const std::string& path, DWORD head) {
    file_ = CreateFileW(utf16(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file_ == INVALID_HANDLE_VALUE) {
        status_ = QZE_FILE_OPEN;
        return;
    }
    status_ = can_seek(file_) ? map_file(head) : read_stream();
}

InputImage::~InputImage() {
    if (view_) UnmapViewOfFile(view_);
    if (mapping_) CloseHandle(mapping_);
    if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
}

HRESULT InputImage::map_file(DWORD head) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file_, &size)) return QZE_FILE_READ;
    if (head > 0 && ULONGLONG(size.QuadPart) > head) return read_head(head);
    if (ULONGLONG(size.QuadPart) > kLargestImage) return QZE_UNSUPPORTED_FORMAT;
    size_ = DWORD(size.QuadPart);
    if (size_ == 0) return S_OK;  // nothing to map; an empty image
    mapping_ = CreateFileMappingW(file_, nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (mapping_) view_ = MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0);
    if (!view_) return QZE_FILE_READ;
    data_ = static_cast<const BYTE*>(view_);
    return S_OK;
}

HRESULT InputImage::read_head(DWORD head) {
    try {
        buffer_.resize(head);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    DWORD got = 0;
    if (!ReadFile(file_, buffer_.data(), head, &got, nullptr)) return QZE_FILE_READ;
    size_ = got;
    data_ = buffer_.data();
    is_head_ = true;
    return S_OK;
}

HRESULT InputImage::read_stream() {
    try {
        for (;;) {
            const size_t held = buffer_.size();
            if (ULONGLONG(held) + kStreamPiece > kLargestImage + 1) return QZE_UNSUPPORTED_FORMAT;
            buffer_.resize(held + kStreamPiece);
            DWORD got = 0;
            const BOOL ok = ReadFile(file_, buffer_.data() + held, kStreamPiece, &got, nullptr);
            buffer_.resize(held + got);
            if (!ok) return QZE_FILE_READ;
            if (got == 0) break;  // the writer closed its end
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    size_ = DWORD(buffer_.size());
    data_ = buffer_.data();
    return S_OK;
}

}  // namespace qzk
