// CQzExifMetaDataHelper: reading TIFF data and JPEG segments, writing the
// EXIF segment, and the date-time texts.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "platform/posix/fault_plan.h"
#include "tests/documents/exif_support.h"

using namespace exif_test;
using qz::testing::FaultOp;
using qz::testing::FaultPlan;
using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::ScratchDir;

namespace {

// An IFD entry for the TIFF builder: a text (count 0: its size) or a number.
struct Entry {
    unsigned tag, type, count;
    std::string text;
    unsigned number = 0;
};
constexpr unsigned kAscii = 2, kShort = 3, kLong = 4;

struct Tiff {
    bool big;
    std::string u16(unsigned v) const {
        return big ? std::string{char(v >> 8), char(v)} : std::string{char(v), char(v >> 8)};
    }
    std::string u32(unsigned v) const {
        return big ? u16(v >> 16) + u16(v & 0xFFFF) : u16(v & 0xFFFF) + u16(v >> 16);
    }
    // The header, the 0th IFD at 8, the Exif IFD right after it (an Exif
    // pointer with number 0 points there), the values over 4 bytes, and a
    // byte of image data (a text running up to the very end is not read).
    std::string build(const std::vector<Entry>& ifd0, const std::vector<Entry>& exif = {}) const {
        const unsigned exif_at = unsigned(8 + 6 + 12 * ifd0.size());
        unsigned data_at = exif_at + (exif.empty() ? 0 : unsigned(6 + 12 * exif.size()));
        std::string ifds, data;
        for (const auto* list : {&ifd0, &exif}) {
            if (list->empty()) continue;
            ifds += u16(unsigned(list->size()));
            for (Entry e : *list) {
                if (e.tag == 34665 && e.number == 0) e.number = exif_at;
                const unsigned count = e.count ? e.count : unsigned(e.text.size());
                ifds += u16(e.tag) + u16(e.type) + u32(count);
                if (e.text.empty()) {
                    ifds += e.type == kShort ? u16(e.number) + u16(0) : u32(e.number);
                } else if (e.text.size() <= 4) {
                    ifds += e.text + std::string(4 - e.text.size(), '\0');
                } else {
                    ifds += u32(data_at + unsigned(data.size()));
                    data += e.text;
                }
            }
            ifds += u32(0);
        }
        return (big ? "MM" : "II") + u16(42) + u32(8) + ifds + data + "\x80";
    }
};

std::string jpeg_with(const std::string& segments) {
    return std::string("\xFF\xD8", 2) + segments + baseline_jpeg_image();
}

std::string app1(const std::string& content) {
    const size_t n = content.size() + 2;
    return std::string("\xFF\xE1", 2) + char(n >> 8) + char(n & 0xFF) + content;
}

std::string exif_app1(const std::string& tiff) {
    return app1(std::string("Exif\0\0", 6) + tiff);
}

const std::vector<Entry> kCamera = {
    {271, kAscii, 0, std::string("Abc\0", 4)},       // in the value field
    {272, kAscii, 0, std::string("Model X\0", 8)},   // at an offset
    {270, kAscii, 0, std::string("ignored\0", 8)},   // not a tag that is read
    {315, kAscii, 0, std::string("Artist\0", 7)},
    {33432, kAscii, 0, std::string("(c) Me\0", 7)},  // filed under IFD 1
    {34665, kLong, 1, ""},
};
const std::vector<Entry> kExif = {
    {271, kAscii, 0, std::string("Other\0", 6)},  // a second Make: the first wins
    {36867, kAscii, 0, std::string("2024:01:02 03:04:05\0", 20)},
    {37385, kShort, 1, "", 0x19},  // fired, auto mode: only "fired" is kept
};
const Lines kCameraItems = {"0.271.2 Abc", "0.272.2 Model X", "0.315.2 Artist",
                            "1.33432.2 (c) Me", "1.36867.2 2024:01:02 03:04:05",
                            "1.37385.3 1"};

TEST(ExifRead, TiffInEitherByteOrderGivesTheSameItems) {
    ScratchDir dir;
    for (bool big : {false, true}) {
        SCOPED_TRACE(big ? "MM" : "II");
        native_write(dir.native("t.tif"), Tiff{big}.build(kCamera, kExif));
        const ReadResult r = read_tags(dir.wide("t.tif"), true);
        EXPECT_EQ(r.hr, S_OK);  // Flash, the last tag handled
        EXPECT_EQ(r.items, kCameraItems);
    }
    // The identifier and size of the first item, as a host sees them.
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    ASSERT_EQ(helper.AddExifTagsToSummaryListFromTiff(dir.wide("t.tif").c_str(), list.get()), S_OK);
    const auto* make = static_cast<const QZMETA_SUM_TAG*>(QZLIST_ITEMPTR(list.get(), 0));
    EXPECT_EQ(make->header_size, 12u);
    EXPECT_EQ(make->id, 0x650010F2u);  // 0x65, IFD 0, tag 0x010F, type 2
    EXPECT_EQ(make->data_size, 10u);   // count 4, plus one wide terminator
}

// An IFD at `at` holding one entry and a zero next-IFD offset.
std::string one_entry_ifd(const Tiff& t, unsigned tag, unsigned type, unsigned count,
                          unsigned value) {
    return t.u16(1) + t.u16(tag) + t.u16(type) + t.u32(count) + t.u32(value) + t.u32(0);
}

// A chain of `depth` IFDs, each pointing to the next; the last holds a Make.
std::string exif_chain(int depth) {
    const Tiff t{false};
    std::string out = "II" + t.u16(42) + t.u32(8);
    for (int i = 0; i + 1 < depth; ++i)
        out += one_entry_ifd(t, 34665, kLong, 1, unsigned(out.size() + 18));
    return out + one_entry_ifd(t, 271, kAscii, 3, 0x004241);  // "AB"
}

TEST(ExifRead, DamagedTiffDataIsRefusedOrSkipped) {
    const Tiff le{false};
    const std::string header = "II" + le.u16(42);
    const std::string text_past_end = header + le.u32(8) + one_entry_ifd(le, 271, kAscii, 100, 0xFFFFFFF0);
    // A text of 9 bytes at offset 26 of a 35-byte file ends at its last byte.
    const std::string text_to_last_byte = header + le.u32(8) + one_entry_ifd(le, 271, kAscii, 9, 26) +
                                          std::string("Make\0\0\0\0\0", 9);
    struct Case {
        const char* name;
        std::string bytes;
        HRESULT hr;
        Lines items;
    } cases[] = {
        {"eight bytes", header + le.u32(8), QZE_UNSUPPORTED_FORMAT, {}},
        {"mixed order mark", "IM" + le.u16(42) + le.u32(8) + le.u16(0), QZE_UNSUPPORTED_FORMAT, {}},
        {"magic 43", "II" + le.u16(43) + le.u32(8) + le.u16(0), QZE_UNSUPPORTED_FORMAT, {}},
        {"0th IFD past the end", header + le.u32(0xFFFFFFFF) + le.u16(1), E_FAIL, {}},
        {"no entries", header + le.u32(8) + le.u16(0) + le.u32(0), E_FAIL, {}},
        {"count past the entries", header + le.u32(8) + le.u16(900) + le.u16(271) + le.u16(2) +
                                       le.u32(2) + std::string("A\0\0\0", 4), S_OK, {"0.271.2 A"}},
        {"Make as SHORT", header + le.u32(8) + one_entry_ifd(le, 271, kShort, 1, 5),
         QZE_UNSUPPORTED_FORMAT, {}},
        {"text past the end", text_past_end, S_OK, {}},
        {"text to the last byte", text_to_last_byte, S_OK, {}},
        {"Flash twice in one", header + le.u32(8) + one_entry_ifd(le, 37385, kShort, 2, 1),
         QZE_UNSUPPORTED_FORMAT, {}},
        {"Exif pointer as SHORT", header + le.u32(8) + one_entry_ifd(le, 34665, kShort, 1, 8),
         E_FAIL, {}},
        {"Exif IFD is the 0th IFD", header + le.u32(8) + one_entry_ifd(le, 34665, kLong, 1, 8),
         E_FAIL, {}},
        {"Exif IFD inside the 0th", header + le.u32(8) + one_entry_ifd(le, 34665, kLong, 1, 12),
         E_FAIL, {}},
        {"four levels", exif_chain(4), S_OK, {"0.271.2 AB"}},
        {"five levels", exif_chain(5), E_FAIL, {}},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        native_write(dir.native("t.tif"), c.bytes);
        const ReadResult r = read_tags(dir.wide("t.tif"), true);
        EXPECT_EQ(r.hr, c.hr);
        EXPECT_EQ(r.items, c.items);
    }
}

TEST(ExifRead, JpegSegmentWalk) {
    const std::string tiff = Tiff{false}.build({{271, kAscii, 0, std::string("Abc\0", 4)}});
    const std::string xmp_text = app1("http://ns.adobe.com/xap/1.0/\0<x:xmpmeta/>");
    struct Case {
        const char* name;
        std::string bytes;
        HRESULT hr;
    } cases[] = {
        {"no SOI", "\xFF\xD9" + exif_app1(tiff), E_FAIL},
        {"SOI only", "\xFF\xD8", E_FAIL},
        {"EXIF after JFIF", jpeg_with(jfif_app0() + exif_app1(tiff)), S_OK},
        {"no EXIF", baseline_jpeg(true), E_FAIL},
        {"APP1 cut before its identifier", std::string("\xFF\xD8\xFF\xE1\x00\x08" "Exif\0", 11),
         E_FAIL},
        // The walk steps into a non-EXIF APP1: here its content reads as a
        // comment marker of length 2, which ends where the EXIF APP1 starts.
        {"APP1 stepped through", jpeg_with(app1(std::string("\xFF\xFE\x00\x02", 4)) + exif_app1(tiff)),
         S_OK},
        // XMP text read as markers jumps past the EXIF segment.
        {"XMP before EXIF", jpeg_with(xmp_text + exif_app1(tiff)), E_FAIL},
        {"bad TIFF header", jpeg_with(exif_app1("XX" + tiff.substr(2))), QZE_UNSUPPORTED_FORMAT},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        native_write(dir.native("t.jpg"), c.bytes);
        EXPECT_EQ(read_tags(dir.wide("t.jpg")).hr, c.hr);
    }
    EXPECT_EQ(read_tags(dir.wide("missing.jpg")).hr, QZE_FILE_OPEN);
}

// The segment written for the default thumbnail tags, field by field.
const std::string kThumbnailSegment(
    "\xFF\xE1" "\x00\xDA"              // APP1, length 218
    "Exif\0\0"                         // identifier
    "II" "\x2A\x00" "\x08\0\0\0"       // TIFF header, 0th IFD at 8
    "\x05\x00"                         // 0th IFD at 8: 5 entries
    "\x1A\x01" "\x05\x00" "\x01\0\0\0" "\x4A\0\0\0"  // XResolution, RATIONAL, 1, at 74
    "\x1B\x01" "\x05\x00" "\x01\0\0\0" "\x52\0\0\0"  // YResolution, RATIONAL, 1, at 82
    "\x28\x01" "\x03\x00" "\x01\0\0\0" "\x02\0\0\0"  // ResolutionUnit, SHORT, 1, 2
    "\x13\x02" "\x03\x00" "\x01\0\0\0" "\x02\0\0\0"  // YCbCrPositioning, SHORT, 1, 2
    "\x69\x87" "\x04\x00" "\x01\0\0\0" "\x5A\0\0\0"  // Exif IFD pointer, LONG, 1, at 90
    "\0\0\0\0"                                       // no next IFD
    "\x00\xDD\x6D\x00" "\xA0\x86\x01\x00"            // at 74: 7200000 / 100000
    "\x00\xDD\x6D\x00" "\xA0\x86\x01\x00"            // at 82: 7200000 / 100000
    "\x07\x00"                                       // Exif IFD at 90: 7 entries
    "\x00\x90" "\x07\x00" "\x04\0\0\0" "0221"              // ExifVersion, UNDEFINED, 4
    "\x01\x91" "\x07\x00" "\x04\0\0\0" "\x01\x02\x03\x00"  // ComponentsConfiguration
    "\x00\xA0" "\x07\x00" "\x04\0\0\0" "0100"              // FlashpixVersion
    "\x01\xA0" "\x03\x00" "\x01\0\0\0" "\x01\0\0\0"        // ColorSpace, SHORT, sRGB
    "\x02\xA0" "\x04\x00" "\x01\0\0\0" "\xA0\0\0\0"        // PixelXDimension, LONG, 160
    "\x03\xA0" "\x04\x00" "\x01\0\0\0" "\x78\0\0\0"        // PixelYDimension, LONG, 120
    "\x05\xA0" "\x04\x00" "\x01\0\0\0" "\xB4\0\0\0"        // Interop. pointer, LONG, at 180
    "\0\0\0\0"                                             // no next IFD
    "\x02\x00"                                             // Interop. IFD at 180: 2 entries
    "\x01\x00" "\x02\x00" "\x04\0\0\0" "THM\0"             // InteroperabilityIndex, ASCII, 4
    "\x02\x00" "\x07\x00" "\x04\0\0\0" "0100"              // InteroperabilityVersion
    "\0\0\0\0",                                            // no next IFD; 210 bytes of TIFF
    220);

TEST(ExifWrite, DefaultThumbnailTagsMakeThreeChainedIfds) {
    ScratchDir dir;
    native_write(dir.native("t.jpg"), baseline_jpeg(true));
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    ASSERT_EQ(helper.AddDefaultThumbnailExifTagsToSummaryList(list.get()), S_OK);
    ASSERT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), S_OK);
    // The JFIF APP0 is gone; the image after it is kept as it was.
    EXPECT_EQ(native_read(dir.native("t.jpg")),
              std::string("\xFF\xD8", 2) + kThumbnailSegment + baseline_jpeg_image());
}

TEST(ExifWrite, UpdateReplacesApp0ToApp2AndReadsBack) {
    ScratchDir dir;
    const std::string old_exif = exif_app1(Tiff{true}.build(kCamera, kExif));
    const std::string icc = "\xFF\xE2" + std::string("\x00\x0E" "ICC_PROFILE\0", 14);
    native_write(dir.native("t.jpg"), jpeg_with(jfif_app0() + old_exif + icc));
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    for (const auto& [tag, ifd, text] : {std::tuple{271, 0, u"Canon"}, {315, 0, u"Odd"},
                                         {33432, 1, u"(c) Me"}, {36867, 1, u"2024:01:02 03:04:05"}})
        ASSERT_EQ(helper.AddStringExifTagToSummaryList(list.get(), WORD(tag), WORD(ifd), text), S_OK);
    ASSERT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), S_OK);
    const std::string file = native_read(dir.native("t.jpg"));
    EXPECT_EQ(file.find("JFIF"), std::string::npos);
    EXPECT_EQ(file.find("ICC_PROFILE"), std::string::npos);
    EXPECT_EQ(file.substr(file.size() - baseline_jpeg_image().size()), baseline_jpeg_image());
    const ReadResult r = read_tags(dir.wide("t.jpg"));
    EXPECT_EQ(r.hr, S_OK);
    EXPECT_EQ(r.items, (Lines{"0.271.2 Canon", "0.315.2 Odd", "1.33432.2 (c) Me",
                              "1.36867.2 2024:01:02 03:04:05"}));
}

TEST(ExifWrite, RefusedListsLeaveTheFileAsItWas) {
    struct Case {
        const char* name;
        WORD tag, ifd, type;
        DWORD size;
        HRESULT hr;
    } cases[] = {
        {"Flash as read (a BOOL)", 37385, 1, kShort, 4, E_FAIL},
        {"RATIONAL of 4 bytes", 282, 0, 5, 4, E_FAIL},
        {"BYTE", 1, 0, 1, 1, E_FAIL},
        {"IFD 3", 1, 3, kLong, 4, E_FAIL},
        // One entry: 8 + 18 bytes of TIFF before the value, 6 of identifier.
        {"segment of 65,532 bytes", 700, 0, 7, 65500, S_OK},
        {"segment of 65,534 bytes", 700, 0, 7, 65501, E_FAIL},
    };
    ScratchDir dir;
    const std::string original = baseline_jpeg(true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        native_write(dir.native("t.jpg"), original);
        qz::test::TestList list(0, QZLIST_HEAPITEMS);
        CQzExifMetaDataHelper helper;
        const std::vector<BYTE> value(c.size);
        HRESULT hr = helper.AddExifTagToSummaryList(list.get(), c.tag, c.ifd, c.type, c.size,
                                                    value.data());
        if (SUCCEEDED(hr)) hr = helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get());
        EXPECT_EQ(hr, c.hr);
        if (FAILED(hr)) {
            EXPECT_EQ(native_read(dir.native("t.jpg")), original);
        }
    }
}

TEST(ExifWrite, BadFilesAndPlatformFailures) {
    struct Case {
        const char* name;
        std::string bytes;
        FaultOp fault;
        HRESULT hr;
    } cases[] = {
        {"not a JPEG", "\xFF\xD9" + baseline_jpeg_image(), FaultOp::kCount, E_FAIL},
        {"APP0 of length 2", std::string("\xFF\xD8\xFF\xE0\x00\x02", 6) + baseline_jpeg_image(),
         FaultOp::kCount, E_FAIL},
        {"APP1 past the end", std::string("\xFF\xD8\xFF\xE1\x01\x00", 6), FaultOp::kCount,
         QZE_FILE_READ},
        {"read fails", baseline_jpeg(true), FaultOp::Read, QZE_FILE_READ},
        {"write fails", baseline_jpeg(true), FaultOp::Write, QZE_FILE_WRITE},
    };
    ScratchDir dir;
    CQzExifMetaDataHelper helper;
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    ASSERT_EQ(helper.AddShortExifTagToSummaryList(list.get(), 296, 0, 2), S_OK);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        native_write(dir.native("t.jpg"), c.bytes);
        FaultPlan plan;
        if (c.fault != FaultOp::kCount) plan.fail(c.fault, 1);
        EXPECT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), c.hr);
    }
    EXPECT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("none.jpg").c_str(), list.get()),
              QZE_FILE_OPEN);
}

TEST(ExifDateTime, TextFromSystemTime) {
    CQzExifMetaDataHelper helper;
    WCHAR text[20];
    const SYSTEMTIME t{2024, 1, 2, 2, 3, 4, 5, 999};
    ASSERT_EQ(helper.SystemTimeToLocalDateTimeString(&t, text, 20), S_OK);
    EXPECT_EQ(std::u16string(text), u"2024:01:02 03:04:05");
    const SYSTEMTIME wide_year{10000, 1, 0, 1, 0, 0, 0, 0};
    EXPECT_EQ(helper.SystemTimeToLocalDateTimeString(&wide_year, text, 20), E_FAIL);
    EXPECT_EQ(helper.SystemTimeToLocalDateTimeString(&t, text, 19), E_FAIL);
    EXPECT_EQ(helper.SystemTimeToLocalDateTimeString(&t, nullptr, 20), E_INVALIDARG);
}

TEST(ExifDateTime, LocalTextToUtcTicksWithTheOffsetOfThatDate) {
    const char* old = std::getenv("TZ");
    const std::string saved = old ? old : "";
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    struct Case {
        const char16_t* text;
        HRESULT hr;
        LONGLONG ticks;
    } cases[] = {
        {u"2024:07:01 12:00:00", S_OK, 133643016000000000},  // 10:00 UTC (summer time)
        {u"2024:01:01 12:00:00", S_OK, 133485804000000000},  // 11:00 UTC
        {u"2024:07:01 12:00:0", E_INVALIDARG, 0},
        {u"2024:07:01 12:00:00Z", E_INVALIDARG, 0},
        {u"2024-07-01 12:00:00", E_INVALIDARG, 0},
        {u"    :  :     :  :  ", E_INVALIDARG, 0},
        {u"2023:02:29 12:00:00", E_INVALIDARG, 0},
        {u"2024:07:01 24:00:00", E_INVALIDARG, 0},
        {u"1601:01:01 00:30:00", E_INVALIDARG, 0},  // before 1601 in UTC
    };
    CQzExifMetaDataHelper helper;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text, c.text + std::char_traits<char16_t>::length(c.text)));
        LONGLONG ticks = -1;
        EXPECT_EQ(helper.ParseExifLocalDateTimeStringToUtc(c.text, &ticks), c.hr);
        EXPECT_EQ(ticks, c.ticks);
    }
    if (old) setenv("TZ", saved.c_str(), 1); else unsetenv("TZ");
}

}  // namespace
