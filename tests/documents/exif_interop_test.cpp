// EXIF files made by exiftool and exiv2 read with the library's values, and
// JPEGs the library updated read back by both tools, their image unchanged.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/documents/exif_support.h"

using namespace exif_test;
using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::ScratchDir;

namespace {

bool have(const char* tool) {
    return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

std::string output_of(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    pclose(pipe);
    // Runs of blanks (exiv2 pads its columns) become one.
    std::string collapsed;
    for (char c : out)
        if (c != ' ' || collapsed.empty() || collapsed.back() != ' ') collapsed += c;
    return collapsed;
}

const char* const kExiftoolTags =
    "exiftool -q -overwrite_original -Make=Canon '-Model=EOS 5' -Artist=Me '-Copyright=(c) Me'"
    " '-DateTimeOriginal=2024:01:02 03:04:05' '-CreateDate=2024:01:02 03:04:06' ";
const char* const kExiv2Tags =
    "exiv2 -M'set Exif.Image.Make Canon' -M'set Exif.Image.Model EOS 5' -M'set Exif.Image.Artist Me'"
    " -M'set Exif.Image.Copyright (c) Me' -M'set Exif.Photo.DateTimeOriginal 2024:01:02 03:04:05'"
    " -M'set Exif.Photo.DateTimeDigitized 2024:01:02 03:04:06' ";

Lines expected_items(bool fired) {
    return {"0.271.2 Canon",    "0.272.2 EOS 5",
            "0.315.2 Me",       "1.33432.2 (c) Me",
            "1.36867.2 2024:01:02 03:04:05", "1.36868.2 2024:01:02 03:04:06",
            fired ? "1.37385.3 1" : "1.37385.3 0"};
}

TEST(ExifInterop, ToolTaggedFilesReadWithTheirValues) {
    struct Case {
        const char* tool;
        bool tiff, big, jfif, fired;
        const char* extra;
    } cases[] = {
        {"exiftool", false, false, true, true, "-ExifByteOrder=II -EXIF:Flash#=25"},
        {"exiftool", false, true, false, false, "-ExifByteOrder=MM -EXIF:Flash#=24 -XMP-dc:Title=T"},
        {"exiftool", false, true, true, true, "-ExifByteOrder=MM -EXIF:Flash#=1 -XMP-dc:Title=T"},
        {"exiftool", true, false, false, true, "-EXIF:Flash#=25"},
        {"exiftool", true, true, false, false, "-EXIF:Flash#=16"},
        {"exiv2", false, false, true, true, "-M'set Exif.Photo.Flash Short 25'"},
        {"exiv2", false, false, false, false,
         "-M'set Exif.Photo.Flash Short 24' -M'set Xmp.dc.title T'"},
        {"exiv2", true, false, false, true, "-M'set Exif.Photo.Flash Short 9'"},
        {"exiv2", true, true, false, false, "-M'set Exif.Photo.Flash Short 0'"},
    };
    ScratchDir dir;
    for (const Case& c : cases) {
        const std::string trace = std::string(c.tool) + (c.tiff ? " tiff " : " jpeg ") + c.extra;
        SCOPED_TRACE(trace);
        if (!have(c.tool)) {
            std::printf("skipped without %s: %s\n", c.tool, trace.c_str());
            continue;
        }
        const std::string path = dir.native(c.tiff ? "t.tif" : "t.jpg");
        native_write(path, c.tiff ? baseline_tiff(c.big) : baseline_jpeg(c.jfif));
        const std::string tags = std::string(c.tool) == "exiftool" ? kExiftoolTags : kExiv2Tags;
        ASSERT_EQ(std::system((tags + c.extra + " '" + path + "' >/dev/null").c_str()), 0);
        const ReadResult r = read_tags(dir.wide(c.tiff ? "t.tif" : "t.jpg"), c.tiff);
        EXPECT_EQ(r.hr, S_OK);
        EXPECT_EQ(r.items, expected_items(c.fired));
    }
    if (!have("exiftool") || !have("exiv2")) GTEST_SKIP() << "some cases need exiftool and exiv2";
}

// The tags of a written file as "key=value" lines of each tool, in the
// tools' own names.
struct ToolCheck {
    const char* tool;
    const char* command;
    std::vector<std::string> lines;
};

TEST(ExifInterop, LibraryUpdatedJpegsReadByTheTools) {
    if (!have("exiftool") && !have("exiv2")) GTEST_SKIP() << "needs exiftool or exiv2";
    ScratchDir dir;
    const std::string path = dir.native("t.jpg");
    native_write(path, baseline_jpeg(true));
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    ASSERT_EQ(helper.AddDefaultThumbnailExifTagsToSummaryList(list.get()), S_OK);
    for (const auto& [tag, ifd, text] :
         {std::tuple{271, 0, u"Canon"}, {272, 0, u"EOS 5"}, {315, 0, u"M\u00e9"},
          {33432, 1, u"(c) Me"}, {36867, 1, u"2024:01:02 03:04:05"}})
        ASSERT_EQ(helper.AddStringExifTagToSummaryList(list.get(), WORD(tag), WORD(ifd), text), S_OK);
    ASSERT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), S_OK);
    const std::string file = native_read(path);
    EXPECT_EQ(file.substr(file.size() - baseline_jpeg_image().size()), baseline_jpeg_image());

    const ToolCheck checks[] = {
        {"exiftool",
         "exiftool -m -s -s -n -charset exif=latin -Make -Model -Artist -Copyright "
         "-DateTimeOriginal -XResolution -YCbCrPositioning -ExifVersion -ComponentsConfiguration "
         "-ColorSpace -ExifImageWidth -InteropIndex -InteropVersion ",
         {"Make: Canon", "Model: EOS 5", "Artist: M\xC3\xA9", "Copyright: (c) Me",
          "DateTimeOriginal: 2024:01:02 03:04:05", "XResolution: 72", "YCbCrPositioning: 2",
          "ExifVersion: 0221", "ComponentsConfiguration: 1 2 3 0", "ColorSpace: 1",
          "ExifImageWidth: 160", "InteropIndex: THM", "InteropVersion: 0100"}},
        // exiv2 knows no rights notice in the Exif IFD, where the list files it.
        {"exiv2", "exiv2 -q -Pkv ",
         {"Exif.Image.Make Canon", "Exif.Image.Model EOS 5", "Exif.Image.Artist M\xE9",
          "Exif.Photo.DateTimeOriginal 2024:01:02 03:04:05",
          "Exif.Image.XResolution 7200000/100000", "Exif.Image.ResolutionUnit 2",
          "Exif.Photo.ComponentsConfiguration 1 2 3 0", "Exif.Photo.PixelYDimension 120",
          "Exif.Iop.InteroperabilityIndex THM", "Exif.Iop.InteroperabilityVersion 48 49 48 48"}},
    };
    for (const ToolCheck& check : checks) {
        if (!have(check.tool)) continue;
        SCOPED_TRACE(check.tool);
        const std::string out = output_of(std::string(check.command) + "'" + path + "' 2>&1");
        for (const std::string& line : check.lines) {
            EXPECT_NE(out.find(line + "\n"), std::string::npos) << line << " in\n" << out;
        }
    }
}

// exiftool's validation (entry order, offsets, alignment, the tags a JPEG
// needs) passes for the thumbnail tags alone.
TEST(ExifInterop, ThumbnailTagsPassExiftoolValidation) {
    if (!have("exiftool")) GTEST_SKIP() << "needs exiftool";
    ScratchDir dir;
    native_write(dir.native("t.jpg"), baseline_jpeg(false));
    qz::test::TestList list(0, QZLIST_HEAPITEMS);
    CQzExifMetaDataHelper helper;
    ASSERT_EQ(helper.AddDefaultThumbnailExifTagsToSummaryList(list.get()), S_OK);
    ASSERT_EQ(helper.UpdateExifTagsFromSummaryList(dir.wide("t.jpg").c_str(), list.get()), S_OK);
    EXPECT_EQ(output_of("exiftool -validate -warning -error -a '" + dir.native("t.jpg") + "'"),
              "Validate : OK\n");
}

}  // namespace
