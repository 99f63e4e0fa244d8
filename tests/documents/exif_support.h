// Helpers of the EXIF suites: summary lists as readable lines, a minimal
// baseline JPEG and TIFF, and reading a file's tags.
#ifndef QZ_TESTS_DOCUMENTS_EXIF_SUPPORT_H
#define QZ_TESTS_DOCUMENTS_EXIF_SUPPORT_H

#include <cstdio>
#include <string>
#include <vector>

#include "qzkernel.h"
#include "tests/support/list_support.h"
#include "tests/support/platform_testing.h"

namespace exif_test {

using Lines = std::vector<std::string>;

// One line per item: "ifd.tag.type value", texts narrowed to ASCII,
// 4-byte values as numbers, anything else as hex bytes.
inline Lines dump(const tQZLIST* list) {
    Lines lines;
    for (LONG i = 0; i < list->count; ++i) {
        const auto* item = static_cast<const QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(list, i));
        char head[48];
        std::snprintf(head, sizeof head, "%u.%u.%u ", unsigned(QZEXIF_ID_IFD(item->id)),
                      unsigned(QZEXIF_ID_TAG(item->id)), unsigned(QZEXIF_ID_TYPE(item->id)));
        std::string line = head;
        if (QZEXIF_ID_TYPE(item->id) == QZEXIF_TYPE_ASCII) {
            for (DWORD c = 0; c + 1 < item->data_size / 2; c += 1) {
                const BYTE* unit = item->data + 2 * c;
                if (unit[0] | unit[1]) line += char(unit[0] | (unit[1] << 8));
            }
        } else if (item->data_size == 4) {
            line += std::to_string(item->data[0] | item->data[1] << 8 | item->data[2] << 16 |
                                   unsigned(item->data[3]) << 24);
        } else {
            for (DWORD b = 0; b < item->data_size; ++b) {
                char hex[4];
                std::snprintf(hex, sizeof hex, "%02X", item->data[b]);
                line += hex;
            }
        }
        lines.push_back(line);
    }
    return lines;
}

struct ReadResult {
    HRESULT hr;
    Lines items;
};

// The tags of `path`, read as a JPEG or as a TIFF file.
inline ReadResult read_tags(const std::u16string& path, bool tiff = false) {
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    const HRESULT hr = tiff ? helper.AddExifTagsToSummaryListFromTiff(path.c_str(), list.get())
                            : helper.AddExifTagsToSummaryListFromJpeg(path.c_str(), list.get());
    return {hr, dump(list.get())};
}

// An 8 x 8 grey baseline JPEG: one component, a one-code Huffman table for
// DC and for AC, and one block (DC difference 0, end of block).
inline std::string baseline_jpeg_image() {
    std::string q(64, '\x01');
    std::string dht = std::string("\x01", 1) + std::string(15, '\0') + std::string(1, '\0');
    return std::string("\xFF\xDB\x00\x43\x00", 5) + q +                            // DQT
           std::string("\xFF\xC0\x00\x0B\x08\x00\x08\x00\x08\x01\x01\x11\x00", 13) +  // SOF0
           std::string("\xFF\xC4\x00\x14\x00", 5) + dht +                          // DHT DC 0
           std::string("\xFF\xC4\x00\x14\x10", 5) + dht +                          // DHT AC 0
           std::string("\xFF\xDA\x00\x08\x01\x01\x00\x00\x3F\x00", 10) +           // SOS
           std::string("\x3F\xFF\xD9", 3);  // entropy-coded block (bits 00, ones), EOI
}

inline std::string jfif_app0() {
    return std::string("\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00", 18);
}

inline std::string baseline_jpeg(bool jfif) {
    return std::string("\xFF\xD8", 2) + (jfif ? jfif_app0() : "") + baseline_jpeg_image();
}

// A 1 x 1 grey uncompressed TIFF in either byte order: width, height,
// bits, compression, photometric, strip offset, rows, strip bytes.
inline std::string baseline_tiff(bool big_endian) {
    auto u16 = [&](unsigned v) {
        return big_endian ? std::string{char(v >> 8), char(v)} : std::string{char(v), char(v >> 8)};
    };
    auto u32 = [&](unsigned v) {
        return big_endian ? u16(v >> 16) + u16(v & 0xFFFF) : u16(v & 0xFFFF) + u16(v >> 16);
    };
    const unsigned tags[8][2] = {{256, 1}, {257, 1}, {258, 8}, {259, 1},
                                 {262, 1}, {273, 8 + 2 + 8 * 12 + 4}, {278, 1}, {279, 1}};
    std::string out = (big_endian ? "MM" : "II") + u16(42) + u32(8) + u16(8);
    for (const auto& t : tags) out += u16(t[0]) + u16(t[0] == 273 ? 4 : 3) + u32(1) +
                                      (t[0] == 273 ? u32(t[1]) : u16(t[1]) + u16(0));
    return out + u32(0) + std::string(1, '\x80');
}

}  // namespace exif_test

#endif
