// riff_DeleteChunk: spans, the tail move, the RIFF size, large files (faults: riff_fault_test).
#include <gtest/gtest.h>
#if defined(_WIN32)
#include <windows.h>
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

#include <filesystem>
#include <fstream>
#include <tuple>

#include "tests/support/riff_files.h"

using namespace qz::testing;
using std::make_tuple;

namespace {

// The most memory the process has held, in KiB.
long long peak_memory_kib() {
#if defined(_WIN32)
    PROCESS_MEMORY_COUNTERS counters{};
    counters.cb = sizeof counters;
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return static_cast<long long>(counters.PeakWorkingSetSize / 1024);
#else
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
#endif
}

}  // namespace

TEST(RiffDelete, RefusalsChangeNothing) {
    const Bytes file = riff("WAVE", chunk("fmt ", pattern(16)) + list("INFO", chunk("INAM", {})));
    const std::tuple<Bytes, const char*, BOOL, HRESULT> cases[] = {
        {file, "cue ", FALSE, QZE_NOT_FOUND},
        {file, "INAM", FALSE, QZE_NOT_FOUND},  // only the top level is searched
        {file, "fmt ", TRUE, QZE_NOT_FOUND},   // no list of that type
        {header("RIFX", 4) + text("WAVE"), "fmt ", FALSE, QZE_NO_RIFF_HEADER},
        // A chunk claiming more bytes than the file holds is refused whole.
        {header("RIFF", 124) + text("WAVE") + header("data", 100) + pattern(20), "data", FALSE,
         QZE_CORRUPT_OR_UNKNOWN},
        // So is one past the RIFF size, though the file holds it: removing
        // 108 bytes from a size of 20 would leave 0xFFFFFFA8.
        {header("RIFF", 20) + text("WAVE") + chunk("junk", pattern(100)), "junk", FALSE,
         QZE_CORRUPT_OR_UNKNOWN},
        // A size below 4 does not even cover the form type.
        {header("RIFF", 2) + text("WAVE") + chunk("junk", pattern(4)), "junk", FALSE,
         QZE_CORRUPT_OR_UNKNOWN},
    };
    for (const auto& [bytes, id, is_list, expected] : cases) {
        TempFile f(bytes);
        DWORD removed = 99;
        EXPECT_EQ(riff_DeleteChunk(f.handle(), cc(id), &removed, is_list), expected) << id;
        EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(bytes, 0u)) << id;
    }
}

TEST(RiffDelete, AMissingLastPadIsNotAsked) {
    // Some writers leave out the pad byte after an odd last chunk; the tail
    // move in blocks is the shared one (iff_test).
    const Bytes kept = chunk("fmt ", pattern(4));
    TempFile f(header("RIFF", 4 + 12 + 13) + text("WAVE") + kept + header("data", 5) + pattern(5));
    DWORD removed = 0;
    ASSERT_EQ(riff_DeleteChunk(f.handle(), cc("data"), &removed, FALSE), S_OK);
    EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(riff("WAVE", kept), 13u));
}

TEST(RiffDelete, LargeSparseFileMovesInFixedMemory) {
    // 300 MiB, mostly a hole: "junk", a marked huge "data", a LIST at the end.
    constexpr uint32_t kData = 300u << 20;
    const Bytes junk = chunk("junk", pattern(100));
    const Bytes info = list("INFO", chunk("INAM", text("big") + Bytes{0}));
    const uint64_t data_at = 12 + junk.size(), info_at = data_at + 8 + kData;
    const uint64_t total = info_at + info.size(), shift = junk.size();
    const uint64_t marks[] = {data_at + 8, data_at + 8 + 4096 * 1000 + 3, info_at - 5};
    TempDir dir;
    const std::string path = dir.file("big.wav");
    {
        std::ofstream out(path, std::ios::binary);
        auto put_at = [&](uint64_t offset, const Bytes& bytes) {
            out.seekp(std::streamoff(offset));
            out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        };
        put_at(0, header("RIFF", uint32_t(total - 8)) + text("WAVE") + junk);
        put_at(data_at, header("data", kData));
        for (uint64_t m : marks) put_at(m, text("MARK"));
        put_at(info_at, info);
    }
    // Shared for reading: the checks read the file while it is open (Windows
    // enforces the share mode, POSIX does not).
    const HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                 nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    const long long before = peak_memory_kib();
    DWORD removed = 0;
    ASSERT_EQ(riff_DeleteChunk(h, cc("junk"), &removed, FALSE), S_OK);
    EXPECT_LT(peak_memory_kib() - before, 16 * 1024);
    EXPECT_EQ(make_tuple(removed, std::filesystem::file_size(path)),
              make_tuple(DWORD(shift), total - shift));
    std::ifstream in(path, std::ios::binary);
    auto get_at = [&](uint64_t offset, size_t count) {
        Bytes bytes(count);
        in.seekg(std::streamoff(offset))
            .read(reinterpret_cast<char*>(bytes.data()), std::streamsize(count));
        return bytes;
    };
    for (uint64_t m : marks) EXPECT_EQ(get_at(m - shift, 4), text("MARK")) << m;
    EXPECT_EQ(get_at(0, 8), header("RIFF", uint32_t(total - 8 - shift)));

    // Past 300 MiB the last chunk goes too, cutting the file at the data's end.
    ASSERT_EQ(riff_DeleteChunk(h, cc("INFO"), &removed, TRUE), S_OK);
    EXPECT_EQ(make_tuple(removed, std::filesystem::file_size(path)),
              make_tuple(DWORD(info.size()), info_at - shift));
    CloseHandle(h);
}
