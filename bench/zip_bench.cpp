// Writing and extracting a zip archive of a generated tree, against the
// floor and against libzip.
//
//   Write/qz        CArchive::DoArchive of the tree at level 6.
//   Write/zlib      the floor: the same files read in 128 KiB pieces and
//                   raw-deflated at level 6 into one output file, with no
//                   records and no CRC.
//   Write/libzip    zip_open, zip_file_add of each file (deflate, level 6),
//                   zip_close (libzip, when pkg-config finds it).
//   Extract/qz      QzZip_Open and QzZip_ExtractAll of the archive Write/qz made.
//   Extract/libzip  zip_open, and each entry read with zip_fread and written
//                   to its file.
//
// The tree holds QZ_ZIP_BENCH_MB megabytes (100 by default) in 40 files of
// equal size, 60% text and 40% random bytes, in two folders under the
// temporary folder; it is removed at the end.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "qzkernel.h"

#if defined(QZ_HAVE_LIBZIP)
#include <zip.h>
#endif

namespace {

namespace fs = std::filesystem;

constexpr int kFiles = 40;
constexpr int kLevel = 6;
constexpr size_t kPiece = 131072;

fs::path g_root;
std::vector<fs::path> g_files;
size_t g_bytes = 0;

std::u16string wide(const std::string& text) {
    return std::u16string(text.begin(), text.end());  // the paths are ASCII
}

void make_tree() {
    if (!g_files.empty()) return;
    const char* mb = std::getenv("QZ_ZIP_BENCH_MB");
    const size_t total = size_t(mb ? std::atoi(mb) : 100) << 20;
    g_root = fs::temp_directory_path() / ("qz-zip-bench-" + std::to_string(::getpid()));
    fs::create_directories(g_root / "tree" / "text");
    fs::create_directories(g_root / "tree" / "noise");
    std::mt19937 random(1);
    const char* words[] = {"the ", "mixer ", "sends ", "audio ", "to ", "a ",   "track ",
                           "and ", "each ",  "bus\n",  "gain ",  "of ", "0.5 ", "dB "};
    const size_t each = total / kFiles;
    for (int i = 0; i < kFiles; ++i) {
        const bool text = i < kFiles * 6 / 10;
        // A path appended piece by piece: GCC 12 at -O3 warns falsely about
        // "f" + std::to_string(i).
        fs::path path = g_root / "tree" / (text ? "text" : "noise");
        path /= std::to_string(i);
        std::string bytes;
        bytes.reserve(each);
        while (bytes.size() < each) {
            if (text)
                bytes += words[random() % 14];
            else
                bytes += char(random());
        }
        bytes.resize(each);
        std::ofstream(path, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
        g_files.push_back(path);
        g_bytes += each;
    }
}

void report(benchmark::State& state) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(g_bytes));
}

void Write_qz(benchmark::State& state) {
    make_tree();
    const std::u16string tree = wide((g_root / "tree").string());
    const std::u16string archive = wide((g_root / "qz.zip").string());
    for (auto _ : state) {
        tQZLIST* list = nullptr;
        QzList_CreateExZ(&list, sizeof(void*), 0, 0, 0, 0, 0, 0);
        const char16_t* path = tree.c_str();
        QzList_InsertList(list, -1, &path, 1);
        CArchive writer;
        if (FAILED(writer.DoArchive(archive.c_str(), list, kLevel)))
            state.SkipWithError("DoArchive");
        QzList_Destroy(list);
    }
    report(state);
}

void Write_zlib(benchmark::State& state) {
    make_tree();
    std::vector<unsigned char> in(kPiece), out(kPiece + 4096);
    for (auto _ : state) {
        FILE* sink = std::fopen((g_root / "zlib.out").c_str(), "wb");
        for (const fs::path& file : g_files) {
            FILE* source = std::fopen(file.c_str(), "rb");
            z_stream z{};
            deflateInit2(&z, kLevel, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
            int flush = Z_NO_FLUSH;
            do {
                z.avail_in = uInt(std::fread(in.data(), 1, kPiece, source));
                z.next_in = in.data();
                flush = z.avail_in < kPiece ? Z_FINISH : Z_NO_FLUSH;
                do {
                    z.next_out = out.data();
                    z.avail_out = uInt(out.size());
                    deflate(&z, flush);
                    std::fwrite(out.data(), 1, out.size() - z.avail_out, sink);
                } while (z.avail_out == 0);
            } while (flush != Z_FINISH);
            deflateEnd(&z);
            std::fclose(source);
        }
        std::fclose(sink);
    }
    report(state);
}

void Extract_qz(benchmark::State& state) {
    make_tree();
    const std::u16string archive = wide((g_root / "qz.zip").string());
    const std::u16string target = wide((g_root / "out-qz").string());
    HQZZIP zip = nullptr;
    if (FAILED(QzZip_Open(archive.c_str(), 0, &zip))) {
        state.SkipWithError("run Write/qz first");
        return;
    }
    QzZip_Close(zip);
    for (auto _ : state) {
        QzZip_Open(archive.c_str(), 0, &zip);
        if (FAILED(QzZip_ExtractAll(zip, target.c_str(), 0, nullptr)))
            state.SkipWithError("extract");
        QzZip_Close(zip);
    }
    report(state);
}

#if defined(QZ_HAVE_LIBZIP)
void Write_libzip(benchmark::State& state) {
    make_tree();
    const std::string archive = (g_root / "libzip.zip").string();
    for (auto _ : state) {
        int error = 0;
        zip_t* z = zip_open(archive.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
        for (const fs::path& file : g_files) {
            const std::string name = fs::relative(file, g_root).string();
            zip_source_t* source = zip_source_file(z, file.c_str(), 0, -1);
            const zip_int64_t index = zip_file_add(z, name.c_str(), source, ZIP_FL_OVERWRITE);
            zip_set_file_compression(z, zip_uint64_t(index), ZIP_CM_DEFLATE, kLevel);
        }
        if (zip_close(z) != 0) state.SkipWithError("zip_close");
    }
    report(state);
}

void Extract_libzip(benchmark::State& state) {
    make_tree();
    const std::string archive = (g_root / "qz.zip").string();
    const fs::path target = g_root / "out-libzip";
    std::vector<char> buffer(1 << 18);
    for (auto _ : state) {
        int error = 0;
        zip_t* z = zip_open(archive.c_str(), ZIP_RDONLY, &error);
        if (!z) {
            state.SkipWithError("run Write/qz first");
            return;
        }
        const zip_int64_t count = zip_get_num_entries(z, 0);
        for (zip_int64_t i = 0; i < count; ++i) {
            std::string name = zip_get_name(z, zip_uint64_t(i), 0);
            for (char& c : name) c = c == '\\' ? '/' : c;
            const fs::path path = target / name;
            if (name.back() == '/') {
                fs::create_directories(path);
                continue;
            }
            fs::create_directories(path.parent_path());
            zip_file_t* entry = zip_fopen_index(z, zip_uint64_t(i), 0);
            FILE* out = std::fopen(path.c_str(), "wb");
            zip_int64_t got;
            while ((got = zip_fread(entry, buffer.data(), buffer.size())) > 0)
                std::fwrite(buffer.data(), 1, size_t(got), out);
            std::fclose(out);
            zip_fclose(entry);
        }
        zip_discard(z);
    }
    report(state);
}
#endif

}  // namespace

BENCHMARK(Write_zlib)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Write_qz)->Unit(benchmark::kMillisecond)->Iterations(3);
#if defined(QZ_HAVE_LIBZIP)
BENCHMARK(Write_libzip)->Unit(benchmark::kMillisecond)->Iterations(3);
#endif
BENCHMARK(Extract_qz)->Unit(benchmark::kMillisecond)->Iterations(5);
#if defined(QZ_HAVE_LIBZIP)
BENCHMARK(Extract_libzip)->Unit(benchmark::kMillisecond)->Iterations(5);
#endif

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    if (!g_root.empty()) fs::remove_all(g_root, ignored);
    return 0;
}
