// riff_* benchmarks, each against the plain system calls doing the same work.
//
//   FindLast/riff     riff_FindChunkHeader (with a budget) finding the last of
//                     10,000 chunks, through the search's look-ahead block.
//   FindLast/pread    the same headers visited with one 8-byte pread each.
//
//   Delete/riff       riff_DeleteChunk of the first chunk of a 256 MiB file:
//                     the tail moves down through one 4096-byte buffer.
//   Delete/copy       the same move done with 4096-byte pread/pwrite pairs
//                     and an ftruncate.
//
// The files live in the temporary folder and are removed at the end.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/byteorder.h"
#include "qzkernel.h"

namespace {

constexpr int kChunks = 10000;
constexpr uint64_t kBigBytes = 256ull << 20;
constexpr uint32_t kJunkBody = 10;  // each leading "junk" chunk: 18 bytes
constexpr int kJunkChunks = 64;     // one deleted per iteration
constexpr uint32_t kBlock = 4096;

std::string g_walk_path, g_big_path;

void put32(std::vector<uint8_t>& out, uint32_t v) {
    uint8_t b[4];
    qz::base::store_le32(b, v);
    out.insert(out.end(), b, b + 4);
}

// RIFF "WAVE" with 10,000 chunks of 1 to 31 bytes (odd ones padded); the
// last is "last".
void make_walk_file(const std::string& path) {
    std::vector<uint8_t> body;
    for (int i = 0; i < kChunks; ++i) {
        const uint32_t size = 1 + uint32_t(i % 31);
        put32(body, i == kChunks - 1 ? qz::base::fourcc("last") : qz::base::fourcc("junk"));
        put32(body, size);
        body.insert(body.end(), size + (size & 1), uint8_t(i));
    }
    std::vector<uint8_t> file;
    put32(file, qz::base::fourcc("RIFF"));
    put32(file, uint32_t(body.size() + 4));
    put32(file, qz::base::fourcc("WAVE"));
    file.insert(file.end(), body.begin(), body.end());
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(file.data(), 1, file.size(), f);
    std::fclose(f);
}

// A real (not sparse) 256 MiB RIFF: 64 small "junk" chunks, then "data".
void make_big_file(const std::string& path) {
    std::vector<uint8_t> head;
    put32(head, qz::base::fourcc("RIFF"));
    put32(head, uint32_t(kBigBytes - 8));
    put32(head, qz::base::fourcc("WAVE"));
    for (int i = 0; i < kJunkChunks; ++i) {
        put32(head, qz::base::fourcc("junk"));
        put32(head, kJunkBody);
        head.insert(head.end(), kJunkBody, uint8_t(i));
    }
    put32(head, qz::base::fourcc("data"));
    put32(head, uint32_t(kBigBytes - head.size() - 4));
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(head.data(), 1, head.size(), f);
    std::vector<uint8_t> block(1 << 20, 0x5A);
    for (uint64_t left = kBigBytes - head.size(); left;) {
        const size_t n = left < block.size() ? size_t(left) : block.size();
        std::fwrite(block.data(), 1, n, f);
        left -= n;
    }
    std::fclose(f);
}

HANDLE open_handle(const std::string& path) {
    std::u16string wide(path.begin(), path.end());
    return CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

void FindLast_riff(benchmark::State& state) {
    const HANDLE h = open_handle(g_walk_path);
    DWORD budget = 0;
    riff_ReadFileID(h, &budget, nullptr);
    for (auto _ : state) {
        riff_SeekDataStart(h);
        DWORD remaining = budget, size = 0;
        if (riff_FindChunkHeader(h, qz::base::fourcc("last"), &size, &remaining) != S_OK)
            state.SkipWithError("not found");
        benchmark::DoNotOptimize(size);
    }
    CloseHandle(h);
}

void FindLast_pread(benchmark::State& state) {
    const int fd = open(g_walk_path.c_str(), O_RDONLY);
    for (auto _ : state) {
        off_t at = 12;
        uint32_t size = 0;
        for (;;) {
            uint8_t header[8];
            if (pread(fd, header, 8, at) != 8) {
                state.SkipWithError("short read");
                break;
            }
            size = qz::base::load_le32(header + 4);
            if (qz::base::load_le32(header) == qz::base::fourcc("last")) break;
            at += 8 + size + (size & 1);
        }
        benchmark::DoNotOptimize(size);
    }
    close(fd);
}

void Delete_riff(benchmark::State& state) {
    const HANDLE h = open_handle(g_big_path);
    for (auto _ : state) {
        DWORD removed = 0;
        if (riff_DeleteChunk(h, qz::base::fourcc("junk"), &removed, FALSE) != S_OK)
            state.SkipWithError("delete failed");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBigBytes));
    CloseHandle(h);
}

// The same move as one deletion: the tail after the first junk chunk comes
// down by its 18 bytes in 4096-byte reads and writes, then the file is cut.
void Delete_copy(benchmark::State& state) {
    const int fd = open(g_big_path.c_str(), O_RDWR);
    constexpr off_t kSpan = 8 + kJunkBody;
    for (auto _ : state) {
        uint8_t block[kBlock];
        off_t read_at = 12 + kSpan, write_at = 12;
        for (;;) {
            const ssize_t got = pread(fd, block, kBlock, read_at);
            if (got < 0 || pwrite(fd, block, size_t(got), write_at) != got) {
                state.SkipWithError("copy failed");
                break;
            }
            read_at += got;
            write_at += got;
            if (got < ssize_t(kBlock)) break;
        }
        if (ftruncate(fd, write_at) != 0) state.SkipWithError("truncate failed");
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kBigBytes));
    close(fd);
}

}  // namespace

BENCHMARK(FindLast_riff)->Unit(benchmark::kMicrosecond);
BENCHMARK(FindLast_pread)->Unit(benchmark::kMicrosecond);
// Each iteration moves 256 MiB; a few are enough, and the file keeps its
// leading junk chunks for every deletion.
BENCHMARK(Delete_riff)->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(Delete_copy)->Unit(benchmark::kMillisecond)->Iterations(8);

int main(int argc, char** argv) {
    const auto tmp = std::filesystem::temp_directory_path();
    g_walk_path = (tmp / ("qz_riff_bench_walk_" + std::to_string(getpid()) + ".wav")).string();
    g_big_path = (tmp / ("qz_riff_bench_big_" + std::to_string(getpid()) + ".wav")).string();
    make_walk_file(g_walk_path);
    make_big_file(g_big_path);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove(g_walk_path);
    std::filesystem::remove(g_big_path);
    return 0;
}
