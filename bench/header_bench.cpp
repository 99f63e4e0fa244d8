// Reading the format and the data position of wave files, per file, each
// way against the bare system calls doing the same work and, where it has
// one, against libsndfile.
//
//   Header/riff      CreateFileW, riff_ReadFileID, find "fmt ", read it,
//                    _qzwaveformat::Init, find "data", CloseHandle.
//   Header/pread     open, one pread per header and of "fmt ", close: the
//                    floor for the same answers.
//   Header/sndfile   sf_open + sf_close (libsndfile, when it is installed).
//   Wavinfo/head     what `qzk wavinfo` does: CreateFileW, one read of the
//                    first 4096 bytes, mriff_GetWfx, find "data" there.
//   Wavinfo/mapped   the same over a read-only mapping of the whole file.
//   Image/mriff      mriff_GetWfx and the "data" position on an image that
//                    is already in memory.
//   Image/hand       the same bytes parsed by hand.
//
// The 2,000 files (plain PCM, a LIST/INFO before the data, extensible
// 24-bit, float with a "fact" chunk) live in the temporary folder and are
// removed at the end; the page cache is warm after the first pass.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/byteorder.h"
#include "qzkernel.h"

#if defined(QZ_HAVE_SNDFILE)
#include <sndfile.h>
#endif

namespace {

using Bytes = std::vector<uint8_t>;
using qz::base::fourcc;

constexpr int kFiles = 2000;
constexpr uint32_t kDataBytes = 4096;

std::vector<std::string> g_paths;
std::vector<std::u16string> g_wide_paths;
std::vector<Bytes> g_images;

// Byte by byte: GCC 12 at -O3 warns falsely about small range inserts.
void put_bytes(Bytes& out, const uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) out.push_back(bytes[i]);
}
void put16(Bytes& out, uint16_t v) {
    uint8_t b[2];
    qz::base::store_le16(b, v);
    put_bytes(out, b, 2);
}
void put32(Bytes& out, uint32_t v) {
    uint8_t b[4];
    qz::base::store_le32(b, v);
    put_bytes(out, b, 4);
}
void put_chunk(Bytes& out, const char (&id)[5], const Bytes& body) {
    put32(out, fourcc(id));
    put32(out, uint32_t(body.size()));
    put_bytes(out, body.data(), body.size());
    if (body.size() & 1) out.push_back(0);
}

Bytes format_body(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits, bool extensible) {
    Bytes fmt;
    const uint16_t block = uint16_t(channels * bits / 8);
    put16(fmt, extensible ? 0xFFFE : tag);
    put16(fmt, channels);
    put32(fmt, rate);
    put32(fmt, rate * block);
    put16(fmt, block);
    put16(fmt, bits);
    if (tag == 3 && !extensible) put16(fmt, 0);
    if (extensible) {
        put16(fmt, 22);
        put16(fmt, bits);                // valid bits
        put32(fmt, 3);                   // front left and right
        put32(fmt, tag);                 // sub-format GUID {tag-0000-0010-8000-00AA00389B71}
        const uint8_t rest[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                  0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        put_bytes(fmt, rest, 12);
    }
    return fmt;
}

Bytes make_wave(int kind) {
    Bytes body;
    put32(body, fourcc("WAVE"));
    switch (kind) {
        case 0:  // plain 16-bit stereo
            put_chunk(body, "fmt ", format_body(1, 2, 44100, 16, false));
            break;
        case 1: {  // a LIST/INFO between the format and the data
            put_chunk(body, "fmt ", format_body(1, 2, 48000, 16, false));
            Bytes info;
            put32(info, fourcc("INFO"));
            put_chunk(info, "INAM", Bytes(23, 'a'));
            put_chunk(info, "IART", Bytes(14, 'b'));
            put_chunk(body, "LIST", info);
            break;
        }
        case 2:  // extensible 24-bit
            put_chunk(body, "fmt ", format_body(1, 2, 96000, 24, true));
            break;
        default: {  // float with a "fact" chunk
            put_chunk(body, "fmt ", format_body(3, 2, 44100, 32, false));
            Bytes fact;
            put32(fact, kDataBytes / 8);
            put_chunk(body, "fact", fact);
            break;
        }
    }
    put_chunk(body, "data", Bytes(kDataBytes, 0));
    Bytes file;
    put32(file, fourcc("RIFF"));
    put32(file, uint32_t(body.size()));
    put_bytes(file, body.data(), body.size());
    return file;
}

std::u16string wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

void make_files() {
    if (!g_paths.empty()) return;
    const auto dir = std::filesystem::temp_directory_path() / "qz_header_bench";
    std::filesystem::create_directories(dir);
    for (int i = 0; i < kFiles; ++i) {
        const std::string path = (dir / std::to_string(i)).string().append(".wav");
        const Bytes bytes = make_wave(i % 4);
        FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        g_paths.push_back(path);
        g_wide_paths.push_back(wide(path));
        if (i < 4) g_images.push_back(bytes);
    }
}

void remove_files() {
    if (!g_paths.empty()) {
        std::filesystem::remove_all(std::filesystem::path(g_paths[0]).parent_path());
    }
}

struct Answer {
    uint32_t rate = 0;
    uint32_t data_at = 0;
};

Answer read_with_riff(const char16_t* path) {
    Answer a;
    const HANDLE h = CreateFileW(reinterpret_cast<LPCWSTR>(path), GENERIC_READ, FILE_SHARE_READ,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return a;
    DWORD remaining = 0, form = 0, size = 0;
    alignas(8) BYTE fmt[64];
    if (SUCCEEDED(riff_ReadFileID(h, &remaining, &form)) &&
        SUCCEEDED(riff_FindChunkHeader(h, fourcc("fmt "), &size, &remaining)) &&
        SUCCEEDED(riff_ReadDataBounded(h, fmt, size, sizeof fmt))) {
        remaining -= size + (size & 1);
        alignas(8) BYTE record[QZWAVEFORMAT_TEMP_SIZE];
        auto* format = reinterpret_cast<_qzwaveformat*>(record);
        format->Init(QZWAVEFORMAT_TEMP_SIZE, *reinterpret_cast<const WAVEFORMATEX*>(fmt));
        a.rate = format->samplesPerSec;
        if (SUCCEEDED(riff_FindChunkHeader(h, fourcc("data"), &size, &remaining))) {
            DWORD at = 0;
            riff_SaveLocation(h, &at);
            a.data_at = at;
        }
    }
    CloseHandle(h);
    return a;
}

Answer read_with_pread(const char* path) {
    Answer a;
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return a;
    uint8_t header[12];
    if (::pread(fd, header, 12, 0) == 12 && qz::base::load_le32(header) == fourcc("RIFF")) {
        off_t at = 12;
        uint8_t chunk[8];
        while (::pread(fd, chunk, 8, at) == 8) {
            const uint32_t id = qz::base::load_le32(chunk);
            const uint32_t size = qz::base::load_le32(chunk + 4);
            if (id == fourcc("fmt ")) {
                uint8_t fmt[64];
                const size_t want = size < sizeof fmt ? size : sizeof fmt;
                if (::pread(fd, fmt, want, at + 8) != ssize_t(want)) break;
                a.rate = qz::base::load_le32(fmt + 4);
            } else if (id == fourcc("data")) {
                a.data_at = uint32_t(at + 8);
                break;
            }
            at += 8 + size + (size & 1);
        }
    }
    ::close(fd);
    return a;
}

Answer read_mapped(const char16_t* path) {
    Answer a;
    const HANDLE h = CreateFileW(reinterpret_cast<LPCWSTR>(path), GENERIC_READ, FILE_SHARE_READ,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return a;
    const DWORD bytes = GetFileSize(h, nullptr);
    const HANDLE mapping = CreateFileMappingW(h, nullptr, PAGE_READONLY, 0, 0, nullptr);
    void* view = mapping ? MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
    if (view) {
        alignas(8) BYTE record[QZWAVEFORMAT_TEMP_SIZE];
        auto* format = reinterpret_cast<_qzwaveformat*>(record);
        DWORD data_size = 0, size = 0, remaining = bytes;
        if (SUCCEEDED(mriff_GetWfx(format, view, bytes, &data_size))) {
            a.rate = format->samplesPerSec;
            _tMRIFF m;
            mriff_Init(&m, view, bytes, bytes);
            if (SUCCEEDED(mriff_FindChunkHeaderInRIFF(&m, fourcc("data"), &size, &remaining))) {
                a.data_at = DWORD(m.pCurrent - m.pBase);
            }
        }
        UnmapViewOfFile(view);
    }
    if (mapping) CloseHandle(mapping);
    CloseHandle(h);
    return a;
}

Answer read_image_mriff(const BYTE* image, DWORD bytes);

Answer read_head(const char16_t* path) {
    Answer a;
    const HANDLE h = CreateFileW(reinterpret_cast<LPCWSTR>(path), GENERIC_READ, FILE_SHARE_READ,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return a;
    BYTE head[4096];
    DWORD got = 0;
    if (ReadFile(h, head, sizeof head, &got, nullptr)) a = read_image_mriff(head, got);
    CloseHandle(h);
    return a;
}

Answer read_image_mriff(const Bytes& image) {
    return read_image_mriff(image.data(), DWORD(image.size()));
}

Answer read_image_mriff(const BYTE* image, DWORD bytes) {
    Answer a;
    alignas(8) BYTE record[QZWAVEFORMAT_TEMP_SIZE];
    auto* format = reinterpret_cast<_qzwaveformat*>(record);
    DWORD data_size = 0, size = 0, remaining = bytes;
    if (SUCCEEDED(mriff_GetWfx(format, image, bytes, &data_size))) {
        a.rate = format->samplesPerSec;
        _tMRIFF m;
        mriff_Init(&m, const_cast<BYTE*>(image), bytes, bytes);
        if (SUCCEEDED(mriff_FindChunkHeaderInRIFF(&m, fourcc("data"), &size, &remaining))) {
            a.data_at = DWORD(m.pCurrent - m.pBase);
        }
    }
    return a;
}

Answer read_image_by_hand(const Bytes& image) {
    Answer a;
    const uint8_t* p = image.data();
    const size_t n = image.size();
    if (n < 12 || qz::base::load_le32(p) != fourcc("RIFF")) return a;
    for (size_t at = 12; at + 8 <= n;) {
        const uint32_t id = qz::base::load_le32(p + at);
        const uint32_t size = qz::base::load_le32(p + at + 4);
        if (id == fourcc("fmt ") && at + 16 <= n) a.rate = qz::base::load_le32(p + at + 12);
        if (id == fourcc("data")) {
            a.data_at = uint32_t(at + 8);
            break;
        }
        at += 8 + size_t(size) + (size & 1);
    }
    return a;
}

void check(benchmark::State& state, const Answer& a) {
    if (a.rate == 0 || a.data_at == 0) state.SkipWithError("wrong answer");
}

void Header_riff(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read_with_riff(g_wide_paths[i++ % kFiles].c_str());
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

void Header_pread(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read_with_pread(g_paths[i++ % kFiles].c_str());
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

#if defined(QZ_HAVE_SNDFILE)
void Header_sndfile(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        SF_INFO info{};
        SNDFILE* f = sf_open(g_paths[i++ % kFiles].c_str(), SFM_READ, &info);
        if (!f || info.samplerate == 0) state.SkipWithError("libsndfile failed");
        benchmark::DoNotOptimize(info);
        if (f) sf_close(f);
    }
}
BENCHMARK(Header_sndfile)->Unit(benchmark::kMicrosecond);
#endif

void Wavinfo_head(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read_head(g_wide_paths[i++ % kFiles].c_str());
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

void Wavinfo_mapped(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read_mapped(g_wide_paths[i++ % kFiles].c_str());
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

void Image_mriff(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read_image_mriff(g_images[i++ % g_images.size()]);
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

void Image_hand(benchmark::State& state) {
    make_files();
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read_image_by_hand(g_images[i++ % g_images.size()]);
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

BENCHMARK(Header_riff)->Unit(benchmark::kMicrosecond);
BENCHMARK(Header_pread)->Unit(benchmark::kMicrosecond);
BENCHMARK(Wavinfo_head)->Unit(benchmark::kMicrosecond);
BENCHMARK(Wavinfo_mapped)->Unit(benchmark::kMicrosecond);
BENCHMARK(Image_mriff);
BENCHMARK(Image_hand);

// ---- AIFF -------------------------------------------------------------------
//
//   Aiff/iff       CreateFileW, iff_GetAIFFWfx (format, frames and the
//                  first sample's offset), CloseHandle.
//   Aiff/pread     open, one pread of the FORM header, one per chunk header,
//                  one of "COMM" and one of the "SSND" fields, close: the
//                  floor for the same answers.
//   Aiff/sndfile   sf_open + sf_close (libsndfile, when it is installed).
//
// 2,000 files of 4096 sample bytes, written with the iff_ writers in their
// own folder: 16-bit AIFF, 24-bit AIFF with an annotation before "COMM",
// AIFF-C "NONE" with its "FVER", and AIFF-C "sowt".

namespace aiff {

using qz::base::fourcc_be;
using qz::base::load_be16;
using qz::base::load_be32;

struct Files {
    std::vector<std::string> paths;
    std::vector<std::u16string> wide;
    ~Files() {
        if (!paths.empty())
            std::filesystem::remove_all(std::filesystem::path(paths[0]).parent_path());
    }
};

// One file of the given kind (0 to 3), written at the handle's position.
void write_aiff(HANDLE h, int kind) {
    const bool aifc = kind >= 2;
    const WORD channels = 2, bits = kind == 1 ? 24 : 16;
    const QZIFFCHUNK fver = {fourcc_be("FVER"), 4}, anno = {fourcc_be("ANNO"), 26},
                     comm = {fourcc_be("COMM"), aifc ? 24u : 18u},
                     ssnd = {fourcc_be("SSND"), 8 + kDataBytes};
    WORD exponent = 0, mantissa[4] = {};
    aiff_CreateRate(kind == 1 ? 96000 : 44100, &exponent, mantissa);
    const DWORD body =
        4 + (aifc ? 12 : 0) + (kind == 1 ? 34 : 0) + 8 + comm.ckSize + 8 + ssnd.ckSize;
    iff_WriteFileID(h, fourcc_be(aifc ? "AIFC" : "AIFF"), body);
    if (aifc) {
        iff_WriteChunk(h, &fver);
        iff_WriteDWORD(h, 0xA2805140);
    }
    if (kind == 1) {
        iff_WriteChunk(h, &anno);
        WriteFile(h, Bytes(26, 'c').data(), 26, nullptr, nullptr);
    }
    iff_WriteChunk(h, &comm);
    for (WORD w : {channels, WORD(0), WORD(kDataBytes / (channels * bits / 8)), bits, exponent})
        iff_WriteWORD(h, w);
    for (WORD w : mantissa) iff_WriteWORD(h, w);
    if (aifc) {
        iff_WriteDWORD(h, fourcc_be(kind == 2 ? "NONE" : "sowt"));
        iff_WriteWORD(h, 0);  // an empty name, padded
    }
    iff_WriteChunk(h, &ssnd);
    const Bytes samples(8 + kDataBytes, 0);  // offset, block size, samples
    WriteFile(h, samples.data(), DWORD(samples.size()), nullptr, nullptr);
}

const Files& files() {
    static Files made = [] {
        Files f;
        const auto dir = std::filesystem::temp_directory_path() / "qz_header_bench_aiff";
        std::filesystem::create_directories(dir);
        for (int i = 0; i < kFiles; ++i) {
            f.paths.push_back((dir / std::to_string(i)).string().append(".aif"));
            f.wide.push_back(wide(f.paths.back()));
            const HANDLE h =
                CreateFileW(reinterpret_cast<LPCWSTR>(f.wide.back().c_str()), GENERIC_WRITE, 0,
                            nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
            write_aiff(h, i % 4);
            CloseHandle(h);
        }
        return f;
    }();
    return made;
}

Answer read_with_iff(size_t i) {
    Answer a;
    const HANDLE h =
        CreateFileW(reinterpret_cast<LPCWSTR>(files().wide[i].c_str()), GENERIC_READ,
                    FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    WAVEFORMATEX wfx{};
    DWORD frames = 0;
    if (SUCCEEDED(iff_GetAIFFWfx(h, &wfx, &frames, &a.data_at))) a.rate = wfx.nSamplesPerSec;
    CloseHandle(h);
    return a;
}

// The chunk headers from offset 12 with one pread each, and the fields of
// "COMM" (the integer part of its 80-bit rate) and "SSND" as they come.
Answer read_with_pread(size_t i) {
    Answer a;
    const int fd = ::open(files().paths[i].c_str(), O_RDONLY | O_CLOEXEC);
    uint8_t form[12], header[8], fields[22];
    const bool aifc = ::pread(fd, form, 12, 0) == 12 && load_be32(form + 8) == fourcc_be("AIFC");
    for (off_t at = 12; (!a.rate || !a.data_at) && ::pread(fd, header, 8, at) == 8;) {
        const uint32_t id = load_be32(header), size = load_be32(header + 4);
        if (id == fourcc_be("COMM") && ::pread(fd, fields, aifc ? 22 : 18, at + 8) > 0) {
            const int shift = 16383 + 31 - load_be16(fields + 8);
            a.rate = shift >= 0 && shift < 32 ? load_be32(fields + 10) >> shift : 0;
        }
        if (id == fourcc_be("SSND") && ::pread(fd, fields, 8, at + 8) == 8)
            a.data_at = uint32_t(at + 16 + load_be32(fields));
        at += 8 + size + (size & 1);
    }
    ::close(fd);
    return a;
}

// Each run reads the files in turn with `read`.
template <Answer (*read)(size_t)>
void Aiff(benchmark::State& state) {
    files();
    for (size_t i = 0; state.KeepRunning(); i = (i + 1) % kFiles) check(state, read(i));
}

#if defined(QZ_HAVE_SNDFILE)
Answer read_with_sndfile(size_t i) {
    SF_INFO info{};
    SNDFILE* f = sf_open(files().paths[i].c_str(), SFM_READ, &info);
    if (f) sf_close(f);
    Answer a;
    a.rate = uint32_t(info.samplerate);
    a.data_at = f ? 1 : 0;  // libsndfile does not say where the samples start
    return a;
}
BENCHMARK_TEMPLATE(Aiff, read_with_sndfile)->Name("Aiff/sndfile")->Unit(benchmark::kMicrosecond);
#endif
BENCHMARK_TEMPLATE(Aiff, read_with_iff)->Name("Aiff/iff")->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(Aiff, read_with_pread)->Name("Aiff/pread")->Unit(benchmark::kMicrosecond);

}  // namespace aiff

// ---- Wave64 ---------------------------------------------------------------
//
// The same work on Wave64 files (64-bit RIFF with GUID labels), in a folder
// of their own:
//
//   W64/riff64       CreateFileW, riff64_ReadFileID, find "fmt ", read it,
//                    _qzwaveformat::Init, find "data", CloseHandle.
//   W64/pread        open, one pread per header and of "fmt ", close.
//   W64/sndfile      sf_open + sf_close (libsndfile, when it is installed).
//
// 2,000 files of the four kinds above; the "list" of type "INFO" sits
// between the format and the data.

// Wave64 names its chunks {NAME-ACF3-11D3-8CD1-00C04F8EDB8A}.
constexpr uint8_t kW64NameTail[12] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1,
                                      0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
constexpr uint8_t kW64Riff[16] = {0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                                  0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
constexpr uint8_t kW64List[16] = {0x6C, 0x69, 0x73, 0x74, 0x2F, 0x91, 0xCF, 0x11,
                                  0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};

Bytes w64_label(const char (&name)[5]) {
    Bytes label;
    put32(label, fourcc(name));
    put_bytes(label, kW64NameTail, sizeof kW64NameTail);
    return label;
}

GUID w64_guid(const char (&name)[5]) {
    return {fourcc(name), 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
}

void put64(Bytes& out, uint64_t v) {
    put32(out, uint32_t(v));
    put32(out, uint32_t(v >> 32));
}

void put_chunk64(Bytes& out, const Bytes& label, const Bytes& body) {
    put_bytes(out, label.data(), label.size());
    put64(out, 24 + body.size());
    put_bytes(out, body.data(), body.size());
    out.resize(out.size() + (8 - body.size() % 8) % 8, 0);
}

Bytes make_wave64(int kind) {
    Bytes body = w64_label("wave");
    const Bytes fmt = w64_label("fmt ");
    switch (kind) {
        case 0:
            put_chunk64(body, fmt, format_body(1, 2, 44100, 16, false));
            break;
        case 1: {
            put_chunk64(body, fmt, format_body(1, 2, 48000, 16, false));
            Bytes info = w64_label("INFO");
            put_chunk64(info, w64_label("INAM"), Bytes(23, 'a'));
            put_chunk64(info, w64_label("IART"), Bytes(14, 'b'));
            put_chunk64(body, Bytes(kW64List, kW64List + 16), info);
            break;
        }
        case 2:
            put_chunk64(body, fmt, format_body(1, 2, 96000, 24, true));
            break;
        default: {
            put_chunk64(body, fmt, format_body(3, 2, 44100, 32, false));
            Bytes fact;
            put64(fact, kDataBytes / 8);
            put_chunk64(body, w64_label("fact"), fact);
            break;
        }
    }
    put_chunk64(body, w64_label("data"), Bytes(kDataBytes, 0));
    Bytes file(kW64Riff, kW64Riff + 16);
    put64(file, 24 + body.size());
    put_bytes(file, body.data(), body.size());
    return file;
}

struct W64Files {
    std::vector<std::string> paths;
    std::vector<std::u16string> wide_paths;
    W64Files() {
        const auto dir = std::filesystem::temp_directory_path() / "qz_header_bench_w64";
        std::filesystem::create_directories(dir);
        for (int i = 0; i < kFiles; ++i) {
            const std::string path = (dir / std::to_string(i)).string().append(".w64");
            const Bytes bytes = make_wave64(i % 4);
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
            paths.push_back(path);
            wide_paths.push_back(wide(path));
        }
    }
    ~W64Files() { std::filesystem::remove_all(std::filesystem::path(paths[0]).parent_path()); }
};

const W64Files& w64_files() {
    static const W64Files files;
    return files;
}

Answer read_with_riff64(const char16_t* path) {
    Answer a;
    const HANDLE h = CreateFileW(reinterpret_cast<LPCWSTR>(path), GENERIC_READ, FILE_SHARE_READ,
                                 nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return a;
    LONGLONG remaining = 0;
    GUID form{};
    ULONGLONG size = 0;
    alignas(8) BYTE fmt[64];
    if (SUCCEEDED(riff64_ReadFileID(h, &remaining, &form)) &&
        SUCCEEDED(riff64_FindChunkHeader(h, w64_guid("fmt "), &size, &remaining)) &&
        size <= sizeof fmt && SUCCEEDED(riff64_ReadData(h, fmt, size))) {
        remaining -= LONGLONG((size + 7) & ~7ull);
        alignas(8) BYTE record[QZWAVEFORMAT_TEMP_SIZE];
        auto* format = reinterpret_cast<_qzwaveformat*>(record);
        format->Init(QZWAVEFORMAT_TEMP_SIZE, *reinterpret_cast<const WAVEFORMATEX*>(fmt));
        a.rate = format->samplesPerSec;
        if (SUCCEEDED(riff64_FindChunkHeader(h, w64_guid("data"), &size, &remaining))) {
            ULONGLONG at = 0;
            riff64_SaveLocation(h, &at);
            a.data_at = uint32_t(at);
        }
    }
    CloseHandle(h);
    return a;
}

Answer read_w64_with_pread(const char* path) {
    static const Bytes fmt_label = w64_label("fmt "), data_label = w64_label("data");
    Answer a;
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return a;
    uint8_t header[40];
    if (::pread(fd, header, 40, 0) == 40 && std::memcmp(header, kW64Riff, 16) == 0) {
        off_t at = 40;
        uint8_t chunk[24];
        while (::pread(fd, chunk, 24, at) == 24) {
            const uint64_t size = qz::base::load_le64(chunk + 16);
            if (size < 24) break;
            if (std::memcmp(chunk, fmt_label.data(), 16) == 0) {
                uint8_t fmt[64];
                const size_t want = size - 24 < sizeof fmt ? size - 24 : sizeof fmt;
                if (::pread(fd, fmt, want, at + 24) != ssize_t(want)) break;
                a.rate = qz::base::load_le32(fmt + 4);
            } else if (std::memcmp(chunk, data_label.data(), 16) == 0) {
                a.data_at = uint32_t(at + 24);
                break;
            }
            at += off_t((size + 7) & ~7ull);
        }
    }
    ::close(fd);
    return a;
}

// Times `read(i)` on file after file; each call must find the format and the data.
template <class Read>
void time_files(benchmark::State& state, Read read) {
    size_t i = 0;
    for (auto _ : state) {
        const Answer a = read(i++ % kFiles);
        check(state, a);
        benchmark::DoNotOptimize(a);
    }
}

void W64_riff64(benchmark::State& state) {
    const W64Files& files = w64_files();
    time_files(state, [&](size_t i) { return read_with_riff64(files.wide_paths[i].c_str()); });
}

void W64_pread(benchmark::State& state) {
    const W64Files& files = w64_files();
    time_files(state, [&](size_t i) { return read_w64_with_pread(files.paths[i].c_str()); });
}

#if defined(QZ_HAVE_SNDFILE)
// libsndfile does not tell where the data starts; its open finds it all the same.
void W64_sndfile(benchmark::State& state) {
    const W64Files& files = w64_files();
    time_files(state, [&](size_t i) {
        SF_INFO info{};
        SNDFILE* f = sf_open(files.paths[i].c_str(), SFM_READ, &info);
        if (f) sf_close(f);
        return Answer{uint32_t(info.samplerate), f ? 1u : 0u};
    });
}
BENCHMARK(W64_sndfile)->Unit(benchmark::kMicrosecond);
#endif

BENCHMARK(W64_riff64)->Unit(benchmark::kMicrosecond);
BENCHMARK(W64_pread)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    remove_files();
    return 0;
}
