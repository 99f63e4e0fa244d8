// Reading: the JPEG segment walk, the TIFF header and the IFD walk.
#include <cstring>
#include <vector>

#include "base/byteorder.h"
#include "base/guard.h"
#include "documents/exif_internal.h"
#include "platform/win32api.h"

using qz::base::ByteOrder;
using qz::base::load16;
using qz::base::load32;
using qz::base::load_be16;
using namespace qz::exif;

namespace {

// EXIF needs two levels (the 0th IFD and the Exif IFD it points to); the
// walk allows a little more and refuses anything deeper, so that pointers
// nesting without end cannot exhaust the stack.
constexpr DWORD kMaxIfdDepth = 4;
// No IFD is walked twice and at most this many are walked in all, so that a
// file whose pointers form a cycle, or fan out, ends its walk quickly.
constexpr DWORD kMaxIfds = 8;

// A whole file mapped read-only. An empty file has no view (data null).
class MappedFile {
public:
    explicit MappedFile(LPCWSTR path) {
        file_ = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file_ == INVALID_HANDLE_VALUE) {
            status_ = QZE_FILE_OPEN;
            return;
        }
        LARGE_INTEGER size{};
        if (!GetFileSizeEx(file_, &size)) {
            status_ = QZE_FILE_READ;
            return;
        }
        if (size.QuadPart >= LONGLONG(UINT32_MAX)) {
            status_ = E_FAIL;
            return;
        }
        size_ = DWORD(size.QuadPart);
        if (size_ == 0) return;
        mapping_ = CreateFileMappingW(file_, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (mapping_)
            data_ = static_cast<const BYTE*>(MapViewOfFile(mapping_, FILE_MAP_READ, 0, 0, 0));
        if (!data_) status_ = QZE_FILE_READ;
    }
    ~MappedFile() {
        if (data_) UnmapViewOfFile(data_);
        if (mapping_) CloseHandle(mapping_);
        if (file_ != INVALID_HANDLE_VALUE) CloseHandle(file_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    HRESULT status() const { return status_; }
    const BYTE* data() const { return data_; }
    DWORD size() const { return size_; }

private:
    HANDLE file_ = INVALID_HANDLE_VALUE;
    HANDLE mapping_ = nullptr;
    const BYTE* data_ = nullptr;
    DWORD size_ = 0;
    HRESULT status_ = S_OK;
};

ByteOrder order_of(DWORD state) {
    return state == 0 ? ByteOrder::Little : ByteOrder::Big;
}

}  // namespace

// The IFDs walked so far (their byte ranges) and the current nesting.
struct CQzExifMetaDataHelper::IfdWalk {
    DWORD depth = 0;
    DWORD count = 0;
    DWORD begin[kMaxIfds] = {};
    DWORD end[kMaxIfds] = {};
};

HRESULT CQzExifMetaDataHelper::AddExifTagsToSummaryListFromJpeg(LPCWSTR path, tQZLIST* list) {
    if (!path || !list) return E_INVALIDARG;
    return qz::base::guarded([&]() -> HRESULT {
        const MappedFile file(path);
        if (FAILED(file.status())) return file.status();
        const BYTE* data = file.data();
        const size_t size = file.size();
        if (size < 2 || load_be16(data) != kMarkerSoi) return E_FAIL;
        size_t pos = 2;
        while (pos + 4 <= size) {
            const uint16_t marker = load_be16(data + pos);
            const uint16_t length = load_be16(data + pos + 2);  // counts itself
            if (marker != kMarkerApp1) {
                pos += 2 + size_t(length);
                continue;
            }
            if (size - (pos + 4) < sizeof kExifIdentifier) break;
            const BYTE* identifier = data + pos + 4;
            if (std::memcmp(identifier, kExifIdentifier, sizeof kExifIdentifier) == 0) {
                return AddExifTagsToSummaryList(list, identifier + sizeof kExifIdentifier,
                                                data + size);
            }
            // Another APP1 (XMP, for one): the walk carries on at its first
            // content bytes and reads them as markers, rather than skipping
            // the segment by its length. Files written by the family's own
            // tools have always been read this way, so it stays.
            pos += 4;
        }
        return E_FAIL;
    });
}

HRESULT CQzExifMetaDataHelper::AddExifTagsToSummaryListFromTiff(LPCWSTR path, tQZLIST* list) {
    if (!path || !list) return E_INVALIDARG;
    return qz::base::guarded([&]() -> HRESULT {
        const MappedFile file(path);
        if (FAILED(file.status())) return file.status();
        return AddExifTagsToSummaryList(list, file.data(), file.data() + file.size());
    });
}

HRESULT CQzExifMetaDataHelper::AddExifTagsToSummaryList(tQZLIST* list, const BYTE* tiff,
                                                        const BYTE* end) {
    const size_t available = end > tiff ? size_t(end - tiff) : 0;
    // The header (8 bytes) and at least one byte of an IFD.
    if (available < kTiffHeaderSize + 1 || available > UINT32_MAX) return QZE_UNSUPPORTED_FORMAT;
    const DWORD size = DWORD(available);
    const uint16_t mark = load_be16(tiff);
    if (mark != kTiffLittle && mark != kTiffBig) return QZE_UNSUPPORTED_FORMAT;
    m_byte_order = mark == kTiffLittle ? 0 : 1;
    const ByteOrder order = order_of(m_byte_order);
    if (load16(tiff + 2, order) != kTiffMagic) return QZE_UNSUPPORTED_FORMAT;
    const DWORD first_ifd = load32(tiff + 4, order);
    IfdWalk walk;
    return ParseIFD(list, tiff, size, first_ifd, &walk);
}

HRESULT CQzExifMetaDataHelper::ParseIFD(tQZLIST* list, const BYTE* tiff, DWORD size, DWORD offset,
                                        IfdWalk* walk) {
    const ByteOrder order = order_of(m_byte_order);
    if (uint64_t(offset) + 2 > size) return E_FAIL;
    const DWORD entries = load16(tiff + offset, order);
    if (entries == 0) return E_FAIL;
    const uint64_t ifd_end = uint64_t(offset) + 2 + uint64_t(entries) * kIfdEntrySize;
    if (walk->depth >= kMaxIfdDepth || walk->count >= kMaxIfds) return E_FAIL;
    for (DWORD i = 0; i < walk->count; ++i) {
        if (offset < walk->end[i] && ifd_end > walk->begin[i]) return E_FAIL;  // overlaps
    }
    walk->begin[walk->count] = offset;
    walk->end[walk->count] = DWORD(ifd_end < size ? ifd_end : size);
    ++walk->count;

    HRESULT result = E_FAIL;  // until a tag is handled
    for (DWORD i = 0; i < entries; ++i) {
        const uint64_t at = uint64_t(offset) + 2 + uint64_t(i) * kIfdEntrySize;
        if (at + kIfdEntrySize > size) break;
        const BYTE* entry = tiff + at;
        const WORD tag = load16(entry, order);
        switch (tag) {
            case kTagMake:
            case kTagModel:
            case kTagDateTime:
            case kTagArtist:
                result = AddString(list, make_id(QZEXIF_IFD_0TH, tag, QZEXIF_TYPE_ASCII), tiff,
                                   size, entry);
                break;
            case kTagRightsNotice:  // held in IFD 0, filed with the Exif IFD's texts
            case kTagDateTimeOriginal:
            case kTagDateTimeDigitized:
                result = AddString(list, make_id(QZEXIF_IFD_EXIF, tag, QZEXIF_TYPE_ASCII), tiff,
                                   size, entry);
                break;
            case kTagFlash:
                result = AddBoolean(list, make_id(QZEXIF_IFD_EXIF, tag, QZEXIF_TYPE_SHORT), entry);
                break;
            case kTagExifIfdPointer:
                if (load16(entry + 2, order) != QZEXIF_TYPE_LONG || load32(entry + 4, order) != 1) {
                    break;  // not a pointer this walk can follow: ignored
                }
                ++walk->depth;
                result = ParseIFD(list, tiff, size, load32(entry + 8, order), walk);
                --walk->depth;
                break;
            default:
                break;
        }
        if (result == E_OUTOFMEMORY) return result;
    }
    return result;
}

HRESULT CQzExifMetaDataHelper::AddString(tQZLIST* list, DWORD id, const BYTE* tiff, DWORD size,
                                         const BYTE* entry) {
    const ByteOrder order = order_of(m_byte_order);
    if (load16(entry + 2, order) != QZEXIF_TYPE_ASCII) return QZE_UNSUPPORTED_FORMAT;
    const DWORD count = load32(entry + 4, order);
    const BYTE* bytes = entry + 8;  // up to four bytes sit in the value field
    if (count > 4) {
        const DWORD offset = load32(entry + 8, order);
        // A text must end before the last byte of the data; one that reaches
        // it or runs past it is left out without failing the walk.
        if (uint64_t(offset) + count >= size) return S_OK;
        bytes = tiff + offset;
    }
    if (find_item(list, id)) return S_OK;  // the first occurrence wins
    // count < size < 4 GiB, but the item must also fit a 32-bit block.
    if (count >= (UINT32_MAX - kItemHeaderSize) / sizeof(WCHAR) - 1) return E_OUTOFMEMORY;
    std::vector<WCHAR> text(size_t(count) + 1);  // zeroed: the terminator is in place
    if (count) {
        MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, reinterpret_cast<LPCSTR>(bytes), int(count),
                            text.data(), int(count));
    }
    return append_item(list, id, text.data(), DWORD(text.size() * sizeof(WCHAR)));
}

// Flash must be one SHORT; of its bits only "fired" (bit 0) is kept, as a
// BOOL. Another type or count is refused like a text of the wrong type.
HRESULT CQzExifMetaDataHelper::AddBoolean(tQZLIST* list, DWORD id, const BYTE* entry) {
    const ByteOrder order = order_of(m_byte_order);
    if (load16(entry + 2, order) != QZEXIF_TYPE_SHORT || load32(entry + 4, order) != 1) {
        return QZE_UNSUPPORTED_FORMAT;
    }
    if (find_item(list, id)) return S_OK;
    const BOOL fired = (load16(entry + 8, order) & 1) ? TRUE : FALSE;
    return append_item(list, id, &fired, sizeof fired);
}
