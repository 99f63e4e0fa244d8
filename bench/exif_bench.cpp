// Reading the EXIF tags of JPEG files, per file, against libexif on the same
// files (when pkg-config finds it).
//
//   Exif/qz             a summary list, AddExifTagsToSummaryListFromJpeg,
//                       the list destroyed: the eight tags the library reads.
//   Exif/libexif        exif_data_new_from_file, the same tags as text
//                       (exif_entry_get_value), exif_data_unref: libexif
//                       with its default options (it also checks the data
//                       against the standard and reads maker notes).
//   Exif/libexif_lean   the same with those options cleared, loading the
//                       segment with ExifLoader and exif_data_load_data.
//
// The 1,000 files (24 tags in three IFDs, as the library writes them, and
// 16 KiB of image data) live in the temporary folder and are removed at the
// end; the page cache is warm after the first pass.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qzkernel.h"

#if defined(QZ_HAVE_LIBEXIF)
#include <libexif/exif-data.h>
#include <libexif/exif-loader.h>
#endif

namespace {

constexpr int kFiles = 1000;
std::vector<std::string> g_paths;
std::vector<std::u16string> g_wide_paths;

std::string image_bytes() {
    std::string q(64, '\x01');
    std::string dht = std::string("\x01", 1) + std::string(16, '\0');
    std::string out = std::string("\xFF\xDB\x00\x43\x00", 5) + q +
                      std::string("\xFF\xC0\x00\x0B\x08\x00\x08\x00\x08\x01\x01\x11\x00", 13) +
                      std::string("\xFF\xC4\x00\x14\x00", 5) + dht +
                      std::string("\xFF\xC4\x00\x14\x10", 5) + dht +
                      std::string("\xFF\xDA\x00\x08\x01\x01\x00\x00\x3F\x00", 10);
    return out + std::string(16384, '\x3F') + "\xFF\xD9";
}

HRESULT tag_file(const std::u16string& path, int i) {
    tQZLIST* list = nullptr;
    QzList_CreateExZ(&list, 0, 0, 0, QZLIST_HEAPITEMS, 0, 0, 0);
    CQzExifMetaDataHelper h;
    const std::u16string n(std::u16string(u"Camera ") + char16_t(u'A' + i % 26));
    HRESULT hr = h.AddDefaultThumbnailExifTagsToSummaryList(list);
    h.AddStringExifTagToSummaryList(list, 271, 0, n.c_str());
    h.AddStringExifTagToSummaryList(list, 272, 0, u"Model 5 Mark IV");
    h.AddStringExifTagToSummaryList(list, 306, 0, u"2024:01:02 03:04:05");
    h.AddStringExifTagToSummaryList(list, 315, 0, u"A. Photographer");
    h.AddStringExifTagToSummaryList(list, 33432, 1, u"(c) 2024 A. Photographer");
    h.AddStringExifTagToSummaryList(list, 36867, 1, u"2024:01:02 03:04:05");
    h.AddStringExifTagToSummaryList(list, 36868, 1, u"2024:01:02 03:04:06");
    h.AddShortExifTagToSummaryList(list, 37385, 1, WORD(i & 1 ? 0x19 : 0x10));
    h.AddRationalExifTagToSummaryList(list, 33434, 1, 1, 125);   // ExposureTime
    h.AddRationalExifTagToSummaryList(list, 33437, 1, 28, 10);   // FNumber
    h.AddShortExifTagToSummaryList(list, 34855, 1, 400);         // ISO
    h.AddRationalExifTagToSummaryList(list, 37386, 1, 500, 10);  // FocalLength
    if (SUCCEEDED(hr)) hr = h.UpdateExifTagsFromSummaryList(path.c_str(), list);
    QzList_Destroy(list);
    return hr;
}

void make_files() {
    if (!g_paths.empty()) return;
    const auto dir = std::filesystem::temp_directory_path() /
                     ("qz_exif_bench_" +
                      std::to_string(std::filesystem::hash_value(std::filesystem::current_path())));
    std::filesystem::create_directories(dir);
    const std::string image = std::string("\xFF\xD8", 2) + image_bytes();
    for (int i = 0; i < kFiles; ++i) {
        const std::string p = (dir / ("photo" + std::to_string(i) + ".jpg")).string();
        std::ofstream(p, std::ios::binary) << image;
        g_paths.push_back(p);
        g_wide_paths.emplace_back(p.begin(), p.end());
        if (FAILED(tag_file(g_wide_paths.back(), i)))
            std::fprintf(stderr, "cannot tag %s\n", p.c_str());
    }
}

void remove_files() {
    if (!g_paths.empty())
        std::filesystem::remove_all(std::filesystem::path(g_paths[0]).parent_path());
}

void Exif_qz(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        tQZLIST* list = nullptr;
        QzList_CreateExZ(&list, 0, 0, 0, QZLIST_HEAPITEMS, 0, 0, 0);
        CQzExifMetaDataHelper helper;
        const HRESULT hr =
            helper.AddExifTagsToSummaryListFromJpeg(g_wide_paths[i++ % kFiles].c_str(), list);
        if (FAILED(hr) || list->count != 8) state.SkipWithError("wrong answer");
        QzList_Destroy(list);
    }
}
BENCHMARK(Exif_qz)->Unit(benchmark::kMicrosecond);

#if defined(QZ_HAVE_LIBEXIF)
constexpr ExifTag kTags[] = {EXIF_TAG_MAKE,
                             EXIF_TAG_MODEL,
                             EXIF_TAG_DATE_TIME,
                             EXIF_TAG_ARTIST,
                             EXIF_TAG_COPYRIGHT,
                             EXIF_TAG_DATE_TIME_ORIGINAL,
                             EXIF_TAG_DATE_TIME_DIGITIZED,
                             EXIF_TAG_FLASH};

int read_values(ExifData* data) {
    int found = 0;
    char value[256];
    for (ExifTag tag : kTags) {
        ExifEntry* e = exif_data_get_entry(data, tag);
        if (e && exif_entry_get_value(e, value, sizeof value)) ++found;
    }
    return found;
}

void Exif_libexif(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        ExifData* data = exif_data_new_from_file(g_paths[i++ % kFiles].c_str());
        // Following the standard, libexif drops the rights notice that the
        // files hold in the Exif IFD: seven tags.
        if (!data || read_values(data) < 7) state.SkipWithError("wrong answer");
        if (data) exif_data_unref(data);
    }
}
BENCHMARK(Exif_libexif)->Unit(benchmark::kMicrosecond);

void Exif_libexif_lean(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        ExifLoader* loader = exif_loader_new();
        exif_loader_write_file(loader, g_paths[i++ % kFiles].c_str());
        const unsigned char* buf = nullptr;
        unsigned int size = 0;
        exif_loader_get_buf(loader, &buf, &size);
        ExifData* data = exif_data_new();
        exif_data_unset_option(data, EXIF_DATA_OPTION_FOLLOW_SPECIFICATION);
        exif_data_unset_option(data, EXIF_DATA_OPTION_IGNORE_UNKNOWN_TAGS);
        exif_data_set_option(data, EXIF_DATA_OPTION_DONT_CHANGE_MAKER_NOTE);
        exif_data_load_data(data, buf, size);
        if (read_values(data) != 8) state.SkipWithError("wrong answer");
        exif_data_unref(data);
        exif_loader_unref(loader);
    }
}
BENCHMARK(Exif_libexif_lean)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    remove_files();
    return 0;
}
