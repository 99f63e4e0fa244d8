// Helpers of the EXIF suites (unit and interop): summary lists as readable lines, TIFF fields
// in either byte order, a minimal baseline JPEG and TIFF.
#ifndef QZ_TESTS_SUPPORT_EXIF_FILES_H
#define QZ_TESTS_SUPPORT_EXIF_FILES_H

#include <cstdio>
#include <utility>
#include <string>
#include <vector>

#include "qzkernel.h"
#include "tests/support/list_support.h"
#include "tests/support/platform_testing.h"

namespace exif_test {

using Lines = std::vector<std::string>;

// One line per item: the identifier in hex, then a text as ASCII or any
// other value as its bytes in decimal.
inline Lines dump(const tQZLIST* list) {
    Lines lines;
    for (LONG i = 0; i < list->count; ++i) {
        const auto* item = static_cast<const QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(list, i));
        const bool text = QZEXIF_ID_TYPE(item->id) == QZEXIF_TYPE_ASCII;
        char id[16];
        std::snprintf(id, sizeof id, "%08X", unsigned(item->id));
        std::string line = std::string(id) + (text ? " " : "");
        for (DWORD b = 0; text && b + 1 < item->data_size && item->data[b]; b += 2)
            line += char(item->data[b]);
        for (DWORD b = 0; !text && b < item->data_size; ++b)
            line.append(1, ' ').append(std::to_string(item->data[b]));
        lines.push_back(line);
    }
    return lines;
}

// The tags of `path` read as a JPEG or as a TIFF file, and the result.
inline std::pair<HRESULT, Lines> read_tags(const qz::testing::WString& path, bool tiff = false) {
    qz::testing::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    const HRESULT hr = tiff ? helper.AddExifTagsToSummaryListFromTiff(path.c_str(), list.get())
                            : helper.AddExifTagsToSummaryListFromJpeg(path.c_str(), list.get());
    return {hr, dump(list.get())};
}

// Fields of TIFF data in one byte order.
struct Order {
    bool big;
    std::string u16(unsigned v) const {
        return big ? std::string{char(v >> 8), char(v)} : std::string{char(v), char(v >> 8)};
    }
    std::string u32(unsigned v) const {
        return big ? u16(v >> 16) + u16(v) : u16(v) + u16(v >> 16);
    }
    std::string head(unsigned ifd = 8) const { return (big ? "MM" : "II") + u16(42) + u32(ifd); }
    // An IFD of {tag, type, count, value field} entries and no next IFD.
    struct Entry {
        unsigned tag, type, count;
        std::string field;
    };
    std::string ifd(const std::vector<Entry>& entries) const {
        std::string out = u16(unsigned(entries.size()));
        for (const Entry& e : entries) out += u16(e.tag) + u16(e.type) + u32(e.count) + e.field;
        return out + u32(0);
    }
    std::string short_field(unsigned v) const { return u16(v) + u16(0); }
};

// A 1 x 1 grey uncompressed TIFF: 8 SHORT fields and the strip offset
// (LONG) of its pixel, which follows the 0th IFD at 110.
inline std::string baseline_tiff(const Order& o) {
    std::vector<Order::Entry> fields;
    for (unsigned tag : {256, 257, 258, 259, 262, 278, 279})
        fields.push_back({tag, 3, 1, o.short_field(tag == 258 ? 8 : 1)});
    fields.insert(fields.begin() + 5, {273, 4, 1, o.u32(110)});
    return o.head() + o.ifd(fields) + "\x80";
}

// An 8 x 8 grey baseline JPEG after its SOI: DQT, SOF0 (one component),
// one-code Huffman tables for DC and AC, SOS, one block (bits 00), EOI.
inline std::string baseline_jpeg_image() {
    const std::string dht = std::string("\x01", 1) + std::string(16, '\0');
    return std::string("\xFF\xDB\x00\x43\x00", 5) + std::string(64, '\x01') +
           std::string("\xFF\xC0\x00\x0B\x08\x00\x08\x00\x08\x01\x01\x11\x00", 13) +
           std::string("\xFF\xC4\x00\x14\x00", 5) + dht + std::string("\xFF\xC4\x00\x14\x10", 5) +
           dht + std::string("\xFF\xDA\x00\x08\x01\x01\x00\x00\x3F\x00", 10) + "\x3F\xFF\xD9";
}

inline const std::string kJfif("\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00", 18);

inline std::string baseline_jpeg(bool jfif) {
    return "\xFF\xD8" + (jfif ? kJfif : "") + baseline_jpeg_image();
}

}  // namespace exif_test

#endif
