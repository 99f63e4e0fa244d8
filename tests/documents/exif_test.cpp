// CQzExifMetaDataHelper: reading TIFF data and JPEG segments, writing the
// EXIF segment, and the date-time texts. Files of real tools are read in
// exif_interop_test.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <set>

#include "tests/support/faults.h"
#if QZ_TEST_FAULTS
#include "tests/support/fault_sweep.h"
#endif
#include "tests/support/exif_files.h"

using namespace exif_test;
using qz::testing::FaultOp;
using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::WString;

namespace {

const Order le{false}, be{true};
const std::string kAb("Ab\0\0", 4);

// The 0th IFD at 8 (3 entries, 42 bytes): Make and the rights notice in
// their value fields; the Exif IFD at 50 (3 entries): a second Make,
// Flash 0x18 (not fired, auto mode) and a date at 92.
std::string camera(const Order& o) {
    return o.head() +
           o.ifd({{271, 2, 4, std::string("Abc\0", 4)},
                  {33432, 2, 2, std::string("C\0\0\0", 4)},
                  {34665, 4, 1, o.u32(50)}}) +
           o.ifd({{271, 2, 3, std::string("Zz\0\0", 4)},
                  {37385, 3, 1, o.short_field(0x18)},
                  {36867, 2, 20, o.u32(92)}}) +
           std::string("2024:01:02 03:04:05\0\x80", 21);
}

// `depth` IFDs of one entry (18 bytes), each pointing to the next; the last holds a Make.
std::string chain(int depth) {
    std::string out = le.head();
    for (int i = 1; i < depth; ++i) out += le.ifd({{34665, 4, 1, le.u32(out.size() + 18)}});
    return out + le.ifd({{271, 2, 3, kAb}});
}

std::string app1(const std::string& content) {
    return "\xFF\xE1" + be.u16(unsigned(content.size()) + 2) + content;
}

// TIFF files, then JPEG files (names starting "jpeg").
TEST(ExifRead, Table) {
    const Lines kCamera = {"650010F2 Abc", "65182982 C", "65192093 0 0 0 0",
                           "65190032 2024:01:02 03:04:05"};
    const std::string make = le.ifd({{271, 2, 3, kAb}}), image = baseline_jpeg_image();
    const std::string exif = app1(std::string("Exif\0\0", 6) + le.head() + make);
    const std::string comment = app1(std::string("\xFF\xFE\0\x02", 4));
    const std::string xmp = app1("http://ns.adobe.com/xap/1.0/");
    const std::string inside = be.head() + be.ifd({{34665, 4, 1, be.u32(32)},
                                                   {271, 2, 3, std::string("AB\0\x01", 4)},
                                                   {315, 2, 3, std::string("Me\0\0", 4)}});
    const struct {
        std::string name, bytes;
        HRESULT hr;
        Lines items;
    } cases[] = {
        {"II", camera(le), S_OK, kCamera},
        {"MM", camera(be), S_OK, kCamera},
        {"magic 43", "II" + le.u16(43) + le.u32(8) + make, QZE_UNSUPPORTED_FORMAT, {}},
        {"0th IFD past the end", le.head(0xFFFFFFFF) + make, E_FAIL, {}},
        {"no entries", le.head() + le.ifd({}), E_FAIL, {}},
        {"count past entries", le.head() + le.u16(9) + make.substr(2, 12), S_OK, {"650010F2 Ab"}},
        {"Make as SHORT", le.head() + le.ifd({{271, 3, 1, kAb}}), QZE_UNSUPPORTED_FORMAT, {}},
        {"text past the end", le.head() + le.ifd({{271, 2, 99, le.u32(0xFFFFFFF0)}}), S_OK, {}},
        {"text to the last byte",
         le.head() + le.ifd({{271, 2, 5, le.u32(26)}}) + "Make!",
         S_OK,
         {}},
        // The count of an IFD at 32 would be the last bytes of the Make's value field.
        {"Exif IFD inside the 0th", inside, S_OK, {"650010F2 AB", "650013B2 Me"}},
        {"four levels", chain(4), S_OK, {"650010F2 Ab"}},
        {"five levels", chain(5), E_FAIL, {}},
        // Offset and count that wrap in 32 bits: to 0, and to the header.
        {"Exif IFD past 4 GiB", le.head() + le.ifd({{271, 2, 3, kAb}, {34665, 4, 1, le.u32(~1u)}}),
         E_FAIL, {"650010F2 Ab"}},
        {"text count past 4 GiB", le.head() + le.ifd({{271, 2, ~0u, le.u32(8)}}), S_OK, {}},
        // Each IFD is walked once: the second pointer to the same one fails
        // (a pointer back to itself or an earlier one the same way).
        {"Exif IFD twice",
         le.head() + le.ifd({{34665, 4, 1, le.u32(38)}, {34665, 4, 1, le.u32(38)}}) + make,
         E_FAIL, {"650010F2 Ab"}},
        {"jpeg without SOI", "\xFF\xD9" + exif + image, E_FAIL, {}},
        {"jpeg cut in the identifier", "\xFF\xD8" + exif.substr(0, 9), E_FAIL, {}},
        // A non-EXIF APP1 is stepped into: this one reads as a comment marker
        // of length 2 that ends where the EXIF APP1 starts, while XMP text
        // read as markers jumps past it.
        {"jpeg APP1 stepped through", "\xFF\xD8" + comment + exif + image, S_OK, {"650010F2 Ab"}},
        {"jpeg XMP first", "\xFF\xD8" + xmp + exif + image, E_FAIL, {}},
    };
    qz::testing::TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        native_write(dir.file("t"), c.bytes);
        EXPECT_EQ(read_tags(dir.wide("t"), c.name.rfind("jpeg", 0) != 0),
                  std::make_pair(c.hr, c.items));
    }
}

// clang-format off
// The segment written for the default thumbnail tags, field by field.
const std::string kThumbnailSegment(
    "\xFF\xE1" "\x00\xDA"                            // APP1, length 218
    "Exif\0\0"                                       // identifier
    "II" "\x2A\x00" "\x08\0\0\0"                     // TIFF header, 0th IFD at 8
    "\x05\x00"                                       // 0th IFD at 8: 5 entries
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
// clang-format on

TEST(ExifWrite, ThumbnailTagsReplaceApp0ToApp2WithThreeIfds) {
    qz::testing::TempDir dir;
    const std::string icc("\xFF\xE2\0\x0EICC_PROFILE\0", 16);
    native_write(dir.file("t.jpg"), "\xFF\xD8" + kJfif + app1("old") + icc + baseline_jpeg_image());
    qz::testing::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    ASSERT_EQ(helper.AddDefaultThumbnailExifTagsToSummaryList(list.get()), S_OK);
    ASSERT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), S_OK);
    EXPECT_EQ(native_read(dir.file("t.jpg")),
              "\xFF\xD8" + kThumbnailSegment + baseline_jpeg_image());
}

TEST(ExifWrite, RefusalsAndFailuresLeaveTheFileAsItWas) {
    const std::string jpeg = baseline_jpeg(true);
    const std::string app0_of_2 = std::string("\xFF\xD8\xFF\xE0\0\x02", 6) + baseline_jpeg_image();
    const struct {
        std::string file;
        WORD ifd, type;
        DWORD size;
        HRESULT hr;
    } cases[] = {
        {jpeg, 1, 3, 4, E_FAIL},  // a SHORT of 4 bytes (Flash as it is read)
        // One entry: 6 bytes of identifier and 8 + 18 of TIFF before the value.
        {jpeg, 0, 7, 65500, S_OK},    // 65,532 bytes after the length field
        {jpeg, 0, 7, 65501, E_FAIL},  // 65,534 (the value padded to even)
        {app0_of_2, 0, 3, 2, E_FAIL},
    };
    qz::testing::TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        native_write(dir.file("t.jpg"), c.file);
        qz::testing::TestList list(0, QZLIST_HEAPITEMS);
        CQzExifMetaDataHelper helper;
        const std::vector<BYTE> value(c.size);
        ASSERT_EQ(
            helper.AddExifTagToSummaryList(list.get(), 700, c.ifd, c.type, c.size, value.data()),
            S_OK);
        EXPECT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()),
                  c.hr);
        EXPECT_TRUE(c.hr == S_OK || native_read(dir.file("t.jpg")) == c.file);
    }
#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
    // Each platform call fails in turn; until the first write the file is as it was.
    const std::string file = "\xFF\xD8" + kJfif + app1("old") +
                             std::string("\xFF\xE2\0\x06ICC\0", 8) + baseline_jpeg_image();
    const std::set<HRESULT> codes[] = {{QZE_FILE_READ}, {QZE_FILE_WRITE},
                                       {QZE_FILE_READ, QZE_FILE_WRITE}, {QZE_FILE_WRITE},
                                       {E_OUTOFMEMORY}, {QZE_FILE_OPEN}, {}};
    std::unique_ptr<qz::testing::TestList> list;
    const unsigned runs = qz::testing::sweep_calls(
        [&]() -> qz::testing::FaultStep {
            native_write(dir.file("t.jpg"), file);
            list = std::make_unique<qz::testing::TestList>(0, QZLIST_HEAPITEMS);
            CQzExifMetaDataHelper().AddDefaultThumbnailExifTagsToSummaryList(list->get());
            return [&] {
                return CQzExifMetaDataHelper().UpdateExifTagsFromSummaryList(
                    dir.wide("t.jpg").c_str(), list->get());
            };
        },
        [&](FaultOp op, HRESULT hr) {
            EXPECT_TRUE(codes[int(op)].count(hr)) << std::hex << hr;
            const bool wrote = op == FaultOp::Write || op == FaultOp::Truncate;
            EXPECT_TRUE(wrote || native_read(dir.file("t.jpg")) == file);
        });
    EXPECT_GT(runs, 10u);
#endif
}

TEST(ExifDateTime, TextsBothWays) {
    CQzExifMetaDataHelper helper;
    WCHAR text[20];
    const SYSTEMTIME t{2024, 1, 2, 2, 3, 4, 5, 999};
    ASSERT_EQ(helper.SystemTimeToLocalDateTimeString(&t, text, 20), S_OK);
    EXPECT_EQ(WString(text), QZTEXT("2024:01:02 03:04:05"));
    EXPECT_EQ(helper.SystemTimeToLocalDateTimeString(&t, text, 19), E_FAIL);

    // Local times are those of Central Europe. POSIX takes the zone from TZ;
    // on Windows it is the machine's and cannot be set for one process, so
    // there the rows that depend on it are passed over.
    const qz::testing::ScopedEnvironment zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
#if defined(_WIN32)
    const bool zone_is_set = false;
#else
    const bool zone_is_set = true;
#endif
    const struct {
        const WCHAR* local;
        LONGLONG ticks;  // 0: refused
        bool zoned;      // the answer depends on the zone
    } cases[] = {
        {QZTEXT("2024:07:01 12:00:00"), 133643016000000000, true},  // 10:00 UTC, summer time
        {QZTEXT("2024:01:01 12:00:00"), 133485804000000000, true},  // 11:00 UTC
        {QZTEXT("2024:07:01 12:00:00Z"), 0, false},
        {QZTEXT("2024-07-01 12:00:00"), 0, false},
        {QZTEXT("2023:02:29 12:00:00"), 0, false},
        {QZTEXT("2024:01:01 24:00:00"), 0, false},
        {QZTEXT("1601:01:01 00:30:00"), 0, true},  // before 1601 in UTC
    };
    for (const auto& c : cases) {
        if (c.zoned && !zone_is_set) continue;
        LONGLONG utc = -1;
        EXPECT_EQ(helper.ParseExifLocalDateTimeStringToUtc(c.local, &utc),
                  c.ticks ? S_OK : E_INVALIDARG);
        EXPECT_EQ(utc, c.ticks) << &c - cases;
    }
}

}  // namespace
