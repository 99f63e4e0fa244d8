// riff_DeleteChunk: spans, the tail move, the RIFF size, large files, faults.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>

#include "platform/posix/fault_plan.h"
#include "tests/support/riff_files.h"

using namespace qz::testing;
using qz::testing::FaultOp;
using qz::testing::FaultPlan;

namespace {

struct Part {
    const char* label;
    Bytes bytes;
};

// The top level of a wave file whose parts have every kind of size.
std::vector<Part> parts() {
    return {
        {"fmt ", chunk("fmt ", pattern(16))},
        {"odd ", chunk("odd ", pattern(5, 3))},                             // odd chunk
        {"adtl", list("adtl", chunk("labl", pattern(4)) + pattern(3, 9))},  // odd list body
        {"INFO", list("INFO", chunk("INAM", text("x") + Bytes{0}))},        // even list
        {"data", chunk("data", pattern(7, 5))},                             // odd, at the end
    };
}

Bytes join(const std::vector<Part>& ps, int skip = -1) {
    Bytes out;
    for (int i = 0; i < int(ps.size()); ++i)
        if (i != skip) out = out + ps[size_t(i)].bytes;
    return out;
}

}  // namespace

TEST(RiffDelete, FailedSearchesChangeNothing) {
    const Bytes file = riff("WAVE", join(parts()));
    struct Case {
        Bytes bytes;
        DWORD id;
        BOOL is_list;
        HRESULT expected;
    } cases[] = {
        {file, cc("cue "), FALSE, QZE_NOT_FOUND},
        {file, cc("INAM"), FALSE, QZE_NOT_FOUND},  // only the top level is searched
        {file, cc("fmt "), TRUE, QZE_NOT_FOUND},   // no list of that type
        {header("RIFX", 4) + text("WAVE"), cc("fmt "), FALSE, QZE_NO_RIFF_HEADER},
        // A chunk claiming more bytes than the file holds is refused whole.
        {header("RIFF", 4 + 12 + 108) + text("WAVE") + chunk("fmt ", pattern(4)) +
             header("data", 100) + pattern(20),
         cc("data"), FALSE, QZE_CORRUPT_OR_UNKNOWN},
        // So is one past the RIFF size, though the file holds it: removing
        // 108 bytes from a size of 20 would leave 0xFFFFFFA8.
        {header("RIFF", 20) + text("WAVE") + chunk("junk", pattern(100)), cc("junk"), FALSE,
         QZE_CORRUPT_OR_UNKNOWN},
        {header("RIFF", 4 + 12 + 7) + text("WAVE") + list("INFO", chunk("INAM", pattern(8))),
         cc("INFO"), TRUE, QZE_CORRUPT_OR_UNKNOWN},
        // A size below 4 does not even cover the form type.
        {header("RIFF", 2) + text("WAVE") + chunk("junk", pattern(4)), cc("junk"), FALSE,
         QZE_CORRUPT_OR_UNKNOWN},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        DWORD removed = 99;
        EXPECT_EQ(riff_DeleteChunk(f.handle(), c.id, &removed, c.is_list), c.expected);
        EXPECT_EQ(removed, 0u);
        EXPECT_EQ(f.contents(), c.bytes);
    }
}

TEST(RiffDelete, LastChunkWithoutItsPadIsRemovedToTheEnd) {
    // Some writers leave out the pad byte after an odd last chunk.
    const Bytes kept = chunk("fmt ", pattern(4));
    TempFile f(header("RIFF", 4 + 12 + 13) + text("WAVE") + kept + header("data", 5) + pattern(5));
    DWORD removed = 0;
    ASSERT_EQ(riff_DeleteChunk(f.handle(), cc("data"), &removed, FALSE), S_OK);
    EXPECT_EQ(removed, 13u);
    EXPECT_EQ(f.contents(), riff("WAVE", kept));
}

TEST(RiffDelete, TailsAroundTheBlockSizeMoveWhole) {
    // The tail moves in 4096-byte blocks until one comes back short.
    for (size_t tail : {size_t(0), size_t(4096 - 8), size_t(4096), size_t(10001)}) {
        const Bytes head = chunk("junk", pattern(11));
        const Bytes rest = chunk("data", pattern(tail, 7));
        TempFile f(riff("WAVE", head + rest));
        ASSERT_EQ(riff_DeleteChunk(f.handle(), cc("junk"), nullptr, FALSE), S_OK) << tail;
        EXPECT_EQ(f.contents(), riff("WAVE", rest)) << tail;
    }
}

TEST(RiffDelete, FaultsAfterTheMoveStillReportTheRemovedLength) {
    // The move of a tail shorter than a block writes once; the second write is
    // the new RIFF size. A failed cut leaves the moved file, with its lowered
    // size, and the old last bytes behind it.
    const Bytes file = riff("WAVE", join(parts()));
    struct Case {
        FaultOp op;
        unsigned nth;
        int part;
        Bytes after;
    } cases[] = {
        {FaultOp::Truncate, 1, 0,
         riff("WAVE", join(parts(), 0)) + Bytes(file.end() - 24, file.end())},
        {FaultOp::Write, 2, 1, {}},
    };
    for (const Case& c : cases) {
        TempFile f(file);
        DWORD removed = 0;
        {
            FaultPlan plan;
            plan.fail(c.op, c.nth);
            EXPECT_EQ(riff_DeleteChunk(f.handle(), cc(parts()[c.part].label), &removed, FALSE),
                      QZE_FILE_WRITE);
        }
        EXPECT_EQ(removed, parts()[c.part].bytes.size());
        if (!c.after.empty()) {
            EXPECT_EQ(f.contents(), c.after);
        }
    }
}

namespace {

long max_rss_kib() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

Bytes get_at(const std::string& path, uint64_t offset, size_t count) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(std::streamoff(offset));
    Bytes out(count);
    in.read(reinterpret_cast<char*>(out.data()), std::streamsize(count));
    out.resize(size_t(in.gcount()));
    return out;
}

}  // namespace

TEST(RiffDelete, LargeSparseFileMovesInFixedMemory) {
    // 300 MiB, mostly a hole: "junk", a marked huge "data", a LIST at the end.
    constexpr uint32_t kData = 300u << 20;
    const Bytes junk = chunk("junk", pattern(100));
    const Bytes info = list("INFO", chunk("INAM", text("big") + Bytes{0}));
    const uint64_t data_at = 12 + junk.size();
    const uint64_t info_at = data_at + 8 + kData;
    const uint64_t total = info_at + info.size();
    const uint64_t marks[] = {data_at + 8, data_at + 8 + 4096 * 1000 + 3, data_at + 8 + kData - 5};

    TempDir dir;
    const std::string path = dir.file("big.wav");
    {
        std::fstream out(path, std::ios::binary | std::ios::out | std::ios::trunc);
        auto put_at = [&](uint64_t offset, const Bytes& bytes) {
            out.seekp(std::streamoff(offset));
            out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        };
        put_at(0, header("RIFF", uint32_t(total - 8)) + text("WAVE") + junk);
        put_at(data_at, header("data", kData));
        for (uint64_t m : marks) put_at(m, text("MARK"));
        put_at(info_at, info);
    }
    ASSERT_EQ(std::filesystem::file_size(path), total);

    const HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    const long rss_before = max_rss_kib();
    DWORD removed = 0;
    ASSERT_EQ(riff_DeleteChunk(h, cc("junk"), &removed, FALSE), S_OK);
    EXPECT_EQ(removed, junk.size());
    EXPECT_LT(max_rss_kib() - rss_before, 16 * 1024);

    const uint64_t shift = junk.size();
    EXPECT_EQ(std::filesystem::file_size(path), total - shift);
    for (uint64_t m : marks) EXPECT_EQ(get_at(path, m - shift, 4), text("MARK")) << m;
    EXPECT_EQ(get_at(path, 0, 8), header("RIFF", uint32_t(total - 8 - shift)));

    // Past 300 MiB the last chunk goes too, cutting the file at the data's end.
    ASSERT_EQ(riff_DeleteChunk(h, cc("INFO"), &removed, TRUE), S_OK);
    EXPECT_EQ(removed, info.size());
    EXPECT_EQ(std::filesystem::file_size(path), info_at - shift);
    CloseHandle(h);
}
