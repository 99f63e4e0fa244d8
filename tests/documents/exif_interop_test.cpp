// Files tagged by exiftool and exiv2 read with the library's values, and a
// JPEG the library updated read back by both tools, its image unchanged.
#include <gtest/gtest.h>

#include "tests/support/exif_files.h"

using namespace exif_test;

namespace {

// The command's output with runs of blanks (tools pad their columns) made one.
std::string output_of(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    for (int c; pipe && (c = std::fgetc(pipe)) != EOF;)
        if (c != ' ' || out.empty() || out.back() != ' ') out += char(c);
    if (pipe) pclose(pipe);
    return out;
}

TEST(ExifInterop, ToolsAndLibraryReadEachOthersFiles) {
    if (std::system("{ command -v exiftool && command -v exiv2; } >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "needs exiftool and exiv2";
    const std::string exiftool = "exiftool -q -overwrite_original -Make=Canon '-Copyright=(c) Me' ";
    const std::string exiv2 =
        "exiv2 -M'set Exif.Image.Make Canon' -M'set Exif.Image.Copyright (c) Me' ";
    const struct {
        bool by_exiftool, tiff, big, jfif;
        int flash;
        std::string extra;
    } cases[] = {
        {true, false, false, true, 25, "-ExifByteOrder=II"},
        {true, false, true, false, 24, "-ExifByteOrder=MM -XMP-dc:Title=T"},
        {true, true, true, false, 9, ""},
        {false, false, false, false, 1, ""},
        {false, true, false, false, 16, ""},
    };
    qz::testing::TempDir dir;
    for (const auto& c : cases) {
        const std::string name = c.tiff ? "t.tif" : "t.jpg", flash = std::to_string(c.flash);
        const std::string command =
            c.by_exiftool ? exiftool + "-EXIF:Flash#=" + flash + " " + c.extra
                          : exiv2 + "-M'set Exif.Photo.Flash Short " + flash + "' " + c.extra;
        SCOPED_TRACE(command);
        qz::testing::native_write(dir.file(name),
                                  c.tiff ? baseline_tiff(Order{c.big}) : baseline_jpeg(c.jfif));
        ASSERT_EQ(std::system((command + " " + dir.file(name) + " >/dev/null").c_str()), 0);
        EXPECT_EQ(
            read_tags(dir.wide(name), c.tiff),
            std::make_pair(S_OK, Lines{"650010F2 Canon", "65182982 (c) Me",
                                       "65192093 " + std::to_string(c.flash & 1) + " 0 0 0"}));
    }

    // A JPEG the library updated, read by the tools.
    const std::string path = dir.file("t.jpg");
    qz::testing::native_write(path, baseline_jpeg(true));
    qz::testing::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    ASSERT_EQ(helper.AddDefaultThumbnailExifTagsToSummaryList(list.get()), S_OK);
    ASSERT_EQ(helper.AddStringExifTagToSummaryList(list.get(), 315, 0, u"M\u00e9"), S_OK);
    ASSERT_EQ(helper.AddStringExifTagToSummaryList(list.get(), 33432, 1, u"(c) Me"), S_OK);
    ASSERT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), S_OK);
    const std::string file = qz::testing::native_read(path);
    EXPECT_EQ(file.substr(file.size() - baseline_jpeg_image().size()), baseline_jpeg_image());
    // exiftool finds every entry and offset in order (errors, warnings, minor
    // warnings: 0 1 0); its one complaint is the rights notice, which the
    // list files under the Exif IFD.
    EXPECT_EQ(
        output_of("exiftool -s -n -charset exif=latin -validate -warning -Artist -Copyright "
                  "-XResolution -InteropIndex " +
                  path),
        "Validate : 0 1 0\nWarning : Wrong IFD for 0x8298 Copyright (should be IFD0 not "
        "ExifIFD)\nArtist : M\xC3\xA9\nCopyright : (c) Me\nXResolution : 72\nInteropIndex : THM\n");
    // exiv2 follows the pointers to the Exif IFD at 102 (after the 0th IFD's 6
    // entries and 16 bytes of values) and on to the Interoperability IFD.
    EXPECT_EQ(output_of("exiv2 -q -Pkv -K Exif.Image.Artist -K Exif.Image.ExifTag -K "
                        "Exif.Photo.PixelYDimension -K Exif.Iop.InteroperabilityIndex " +
                        path),
              "Exif.Image.Artist M\xE9\nExif.Image.ExifTag 102\nExif.Photo.PixelYDimension 120\n"
              "Exif.Iop.InteroperabilityIndex THM\n");
}

}  // namespace
