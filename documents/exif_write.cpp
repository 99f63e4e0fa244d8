// Writing: a new EXIF segment built from a summary list, put into a JPEG
// file in place of its APP0, APP1 and APP2 segments.
#include <algorithm>
#include <cstring>
#include <vector>

#include "base/byteorder.h"
#include "base/guard.h"
#include "documents/exif_internal.h"
#include "platform/win32api.h"

using qz::base::store_be16;
using qz::base::store_le16;
using qz::base::store_le32;
using namespace qz::exif;

namespace {

// The length field of a segment is 16 bits and counts itself, so at most
// 65,533 bytes follow it: the identifier and the TIFF data.
constexpr DWORD kMaxSegmentPayload = 65533;
constexpr DWORD kMaxTiffBytes = kMaxSegmentPayload - sizeof kExifIdentifier;
constexpr DWORD kMaxIfdIndex = QZEXIF_IFD_INTEROPERABILITY;

int QZ_STDCALL compare_ids(LONG_PTR, const void* a, const void* b) {
    const DWORD x = static_cast<const QZMETA_SUM_TAG*>(a)->id;
    const DWORD y = static_cast<const QZMETA_SUM_TAG*>(b)->id;
    return x < y ? -1 : (x > y ? 1 : 0);
}

class FileHandle {
public:
    explicit FileHandle(HANDLE h) : h_(h) {}
    ~FileHandle() {
        if (h_ != INVALID_HANDLE_VALUE) CloseHandle(h_);
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    HANDLE get() const { return h_; }

private:
    HANDLE h_;
};

bool read_exactly(HANDLE file, void* buffer, DWORD bytes) {
    DWORD read = 0;
    return ReadFile(file, buffer, bytes, &read, nullptr) && read == bytes;
}

bool write_exactly(HANDLE file, const void* buffer, DWORD bytes) {
    DWORD written = 0;
    return WriteFile(file, buffer, bytes, &written, nullptr) && written == bytes;
}

bool seek(HANDLE file, LONGLONG distance, DWORD method) {
    LARGE_INTEGER to{};
    to.QuadPart = distance;
    return SetFilePointerEx(file, to, nullptr, method) != FALSE;
}

}  // namespace

// The value of one entry as the file holds it: little-endian bytes and
// the entry's count.
struct CQzExifMetaDataHelper::EntryData {
    DWORD count = 0;
    std::vector<BYTE> bytes;
};

// The APP1 segment being built. `running` is where the next IFD or value
// goes, as an offset from the TIFF header; the items come grouped by IFD.
struct CQzExifMetaDataHelper::Segment {
    std::vector<BYTE> bytes;
    DWORD running = kTiffHeaderSize;
    QZMETA_SUM_TAG* const* group[kMaxIfdIndex + 1] = {};
    DWORD group_count[kMaxIfdIndex + 1] = {};

    void put16(uint16_t v) {
        bytes.resize(bytes.size() + 2);
        store_le16(&bytes[bytes.size() - 2], v);
    }
    void put32(DWORD v) {
        bytes.resize(bytes.size() + 4);
        store_le32(&bytes[bytes.size() - 4], v);
    }
    // Moves the running offset on by `bytes`, refusing to pass the room
    // of one segment (which also keeps every sum far from wrapping).
    bool advance(uint64_t by) {
        if (running + by > kMaxTiffBytes) return false;
        running = DWORD(running + by);
        return true;
    }

    // One IFD: the entry count, the entries in list order, the entry
    // pointing to the next IFD (when `pointer_tag` is not 0), a zero
    // next-IFD offset (no thumbnail IFD), then the values that did not fit
    // their entries, each padded to an even size.
    HRESULT write_ifd(CQzExifMetaDataHelper& helper, QZMETA_SUM_TAG* const* items, DWORD count,
                      WORD pointer_tag) {
        const DWORD entries = count + (pointer_tag ? 1 : 0);
        if (!advance(uint64_t(kIfdEntrySize) * entries + 6)) return E_FAIL;
        put16(uint16_t(entries));
        std::vector<EntryData> values(count);
        for (DWORD i = 0; i < count; ++i) {
            HRESULT hr = helper.CreateIFDEntryData(items[i], &values[i]);
            if (SUCCEEDED(hr)) hr = helper.WriteIFDEntry(this, items[i], &values[i]);
            if (FAILED(hr)) return hr;
        }
        if (pointer_tag) {
            put16(pointer_tag);
            put16(QZEXIF_TYPE_LONG);
            put32(1);
            put32(running);
        }
        put32(0);
        for (const EntryData& value : values) {
            if (value.bytes.size() <= 4) continue;
            bytes.insert(bytes.end(), value.bytes.begin(), value.bytes.end());
            if (value.bytes.size() % 2) bytes.push_back(0);
        }
        return S_OK;
    }
};

HRESULT CQzExifMetaDataHelper::CreateIFDEntryData(const QZMETA_SUM_TAG* item, EntryData* entry) {
    const DWORD size = item->data_size;
    const BYTE* data = item->data;
    if (size > kMaxTiffBytes) return E_FAIL;  // could never fit the segment
    entry->bytes.clear();
    switch (QZEXIF_ID_TYPE(item->id)) {
        case QZEXIF_TYPE_ASCII: {
            // Narrowed up to the first zero character, then terminated.
            const auto* text = reinterpret_cast<const WCHAR*>(data);
            int length = 0;
            while (DWORD(length) < size / sizeof(WCHAR) && text[length]) ++length;
            if (length) {
                const int bytes =
                    WideCharToMultiByte(CP_ACP, 0, text, length, nullptr, 0, nullptr, nullptr);
                if (bytes <= 0) return E_FAIL;
                entry->bytes.resize(size_t(bytes));
                WideCharToMultiByte(CP_ACP, 0, text, length,
                                    reinterpret_cast<LPSTR>(entry->bytes.data()), bytes, nullptr,
                                    nullptr);
            }
            entry->bytes.push_back(0);
            entry->count = DWORD(entry->bytes.size());
            return S_OK;
        }
        case QZEXIF_TYPE_SHORT: {
            if (size != 2) return E_FAIL;
            WORD value = 0;
            std::memcpy(&value, data, 2);
            entry->bytes.resize(2);
            store_le16(entry->bytes.data(), value);
            entry->count = 1;
            return S_OK;
        }
        case QZEXIF_TYPE_LONG:
        case QZEXIF_TYPE_RATIONAL: {
            if (size != (QZEXIF_ID_TYPE(item->id) == QZEXIF_TYPE_LONG ? 4u : 8u)) return E_FAIL;
            entry->bytes.resize(size);
            for (DWORD at = 0; at < size; at += 4) {
                DWORD word = 0;
                std::memcpy(&word, data + at, 4);
                store_le32(entry->bytes.data() + at, word);
            }
            entry->count = 1;
            return S_OK;
        }
        case QZEXIF_TYPE_UNDEFINED:
            entry->bytes.assign(data, data + size);
            entry->count = size;
            return S_OK;
        default:
            return E_FAIL;
    }
}

HRESULT CQzExifMetaDataHelper::WriteIFDEntry(Segment* segment, const QZMETA_SUM_TAG* item,
                                             const EntryData* entry) {
    segment->put16(QZEXIF_ID_TAG(item->id));
    segment->put16(QZEXIF_ID_TYPE(item->id));
    segment->put32(entry->count);
    const size_t size = entry->bytes.size();
    if (size <= 4) {
        BYTE field[4] = {};
        std::copy(entry->bytes.begin(), entry->bytes.end(), field);
        segment->bytes.insert(segment->bytes.end(), field, field + 4);
        return S_OK;
    }
    segment->put32(segment->running);
    return segment->advance((uint64_t(size) + 1) / 2 * 2) ? S_OK : E_FAIL;
}

HRESULT CQzExifMetaDataHelper::Write0thIFD(Segment* segment, QZMETA_SUM_TAG* const* items,
                                           DWORD count) {
    const bool next =
        segment->group_count[QZEXIF_IFD_EXIF] + segment->group_count[QZEXIF_IFD_INTEROPERABILITY] >
        0;
    HRESULT hr = segment->write_ifd(*this, items, count, next ? kTagExifIfdPointer : 0);
    if (SUCCEEDED(hr) && next) {
        hr = WriteExifIFD(segment, segment->group[QZEXIF_IFD_EXIF],
                          segment->group_count[QZEXIF_IFD_EXIF]);
    }
    return hr;
}

HRESULT CQzExifMetaDataHelper::WriteExifIFD(Segment* segment, QZMETA_SUM_TAG* const* items,
                                            DWORD count) {
    const bool next = segment->group_count[QZEXIF_IFD_INTEROPERABILITY] > 0;
    HRESULT hr = segment->write_ifd(*this, items, count, next ? kTagInteroperabilityIfdPointer : 0);
    if (SUCCEEDED(hr) && next) {
        hr = WriteInteroperabilityIFD(segment, segment->group[QZEXIF_IFD_INTEROPERABILITY],
                                      segment->group_count[QZEXIF_IFD_INTEROPERABILITY]);
    }
    return hr;
}

HRESULT CQzExifMetaDataHelper::WriteInteroperabilityIFD(Segment* segment,
                                                        QZMETA_SUM_TAG* const* items, DWORD count) {
    return segment->write_ifd(*this, items, count, 0);
}

HRESULT CQzExifMetaDataHelper::WriteExifTagsFromSummaryList(Segment* segment, tQZLIST* list) {
    if (!(QzList_GetCreateOptions(list) & QZLIST_HEAPITEMS)) return E_FAIL;
    // Every item must be whole and belong to one of the three IFDs.
    for (LONG i = 0; i < list->count; ++i) {
        const QZMETA_SUM_TAG* item = item_at(list, i);
        const LONG_PTR block = QzList_AllocSize(list, i);
        if (!item || block < LONG_PTR(kItemHeaderSize) || item->header_size != kItemHeaderSize ||
            uint64_t(item->data_size) + kItemHeaderSize > uint64_t(block) ||
            (item->id & 0xFF000000u) != kIdSignature ||
            !(IsOthIFDEntry(item->id) || IsExifIFDEntry(item->id) ||
              IsInteroperabilityIFDEntry(item->id))) {
            return E_FAIL;
        }
    }
    QzList_HeapSort(list, 0, compare_ids);
    auto* const items = static_cast<QZMETA_SUM_TAG* const*>(list->items);
    for (LONG i = list->count - 1; i >= 0; --i) {  // sorted: the groups follow one another
        const DWORD ifd = QZEXIF_ID_IFD(items[i]->id);
        segment->group[ifd] = items + i;
        ++segment->group_count[ifd];
    }

    static constexpr BYTE kHeader[] = {
        0xFF, 0xE1,                  // APP1
        0x00, 0x00,                  // length, set when the segment is complete
        'E',  'x',  'i', 'f', 0, 0,  // identifier
        'I',  'I',  42,  0,          // TIFF header: little-endian, 42
        8,    0,    0,   0,          // the 0th IFD follows at once
    };
    segment->bytes.assign(kHeader, kHeader + sizeof kHeader);
    segment->running = kTiffHeaderSize;
    const HRESULT hr =
        Write0thIFD(segment, segment->group[QZEXIF_IFD_0TH], segment->group_count[QZEXIF_IFD_0TH]);
    if (FAILED(hr)) return hr;
    const size_t length = segment->bytes.size() - 2;  // from the length field on
    if (length > 2 + kMaxSegmentPayload) return E_FAIL;
    store_be16(&segment->bytes[2], uint16_t(length));
    return S_OK;
}

HRESULT CQzExifMetaDataHelper::FindStartOfNonExifData(HANDLE file, DWORD* start) {
    BYTE field[2];
    if (!seek(file, 0, FILE_BEGIN) || !read_exactly(file, field, 2)) return QZE_FILE_READ;
    if (qz::base::load_be16(field) != kMarkerSoi) return E_FAIL;
    uint64_t pos = 2;
    for (;;) {
        if (!read_exactly(file, field, 2)) return QZE_FILE_READ;
        const uint16_t marker = qz::base::load_be16(field);
        if (marker != kMarkerApp0 && marker != kMarkerApp1 && marker != kMarkerApp2) break;
        if (!read_exactly(file, field, 2)) return QZE_FILE_READ;
        const uint16_t length = qz::base::load_be16(field);
        if (length < 3) return E_FAIL;
        if (!seek(file, length - 2, FILE_CURRENT)) return QZE_FILE_READ;
        pos += 2 + length;
    }
    if (pos > UINT32_MAX) return E_FAIL;
    *start = DWORD(pos);
    return S_OK;
}

HRESULT CQzExifMetaDataHelper::UpdateExifTagsFromSummaryList(LPCWSTR path, tQZLIST* list) {
    if (!path || !list) return E_INVALIDARG;
    return qz::base::guarded([&]() -> HRESULT {
        const FileHandle file(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file.get() == INVALID_HANDLE_VALUE) return QZE_FILE_OPEN;
        LARGE_INTEGER size{};
        if (!GetFileSizeEx(file.get(), &size)) return QZE_FILE_READ;
        if (size.QuadPart >= LONGLONG(UINT32_MAX)) return E_FAIL;
        DWORD start = 0;
        HRESULT hr = FindStartOfNonExifData(file.get(), &start);
        if (FAILED(hr)) return hr;
        // The image data and everything after it, kept byte for byte.
        std::vector<BYTE> rest(size_t(size.QuadPart - start));
        if (!seek(file.get(), start, FILE_BEGIN) ||
            !read_exactly(file.get(), rest.data(), DWORD(rest.size()))) {
            return QZE_FILE_READ;
        }
        // The whole segment is built before the file is touched, so a list
        // that cannot be written leaves the file as it was.
        Segment segment;
        hr = WriteExifTagsFromSummaryList(&segment, list);
        if (FAILED(hr)) return hr;
        const BYTE soi[2] = {0xFF, 0xD8};
        if (!seek(file.get(), 0, FILE_BEGIN) || !write_exactly(file.get(), soi, 2) ||
            !write_exactly(file.get(), segment.bytes.data(), DWORD(segment.bytes.size())) ||
            !write_exactly(file.get(), rest.data(), DWORD(rest.size())) ||
            !SetEndOfFile(file.get())) {
            return QZE_FILE_WRITE;
        }
        return S_OK;
    });
}
