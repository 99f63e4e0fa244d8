// riff_* against sox and libsndfile: files they write, and files they read.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/riff_files.h"

using namespace qz::testing;

namespace {

// The top level as "ID : size" lines, a LIST followed by its type: as the
// library walks it with the budget of the header, and as sndfile-info prints it.
std::string walk(const std::string& path) {
    std::string out;
    const HANDLE h = open_path(path);
    DWORD remaining = 0, form = 0, count = 0, id = 0, size = 0, type = 0;
    EXPECT_EQ(riff_ReadFileID(h, &remaining, &form), S_OK) << path;
    DWORD copy = remaining;
    EXPECT_EQ(riff_GetNumListEntries(h, &count, &copy), S_OK);
    for (; remaining >= 8 && riff_ReadChunkHeader(h, &id, &size) == S_OK; --count) {
        out += std::string(reinterpret_cast<const char*>(&id), 4) + " : " + std::to_string(size);
        DWORD at = 0;
        riff_SaveLocation(h, &at);
        riff_RestoreLocation(h, at - 8);
        if (riff_ReadListHeader(h, &type, nullptr) == S_OK)
            out.append(" ").append(reinterpret_cast<const char*>(&type), 4);
        riff_RestoreLocation(h, at);
        remaining -= 8 + riff_SkipChunk(h, size);
        out += "\n";
    }
    EXPECT_EQ(count, 0u) << path;
    CloseHandle(h);
    return out;
}

std::string sndfile_chunks(const std::string& path) {
    std::string out;
    std::istringstream lines(run_tool("sndfile-info " + quoted(path) + " 2>&1"));
    for (std::string line; std::getline(lines, line);) {
        if (line.size() < 8 || line.compare(4, 3, " : ") != 0 ||
            line.find_first_not_of("0123456789", 7) != std::string::npos ||
            line.starts_with("RIFF"))
            continue;
        out += line;
        if (line.starts_with("LIST") && std::getline(lines, line))
            out.append(" ").append(line, line.find_first_not_of(' '), 4);
        out += "\n";
    }
    return out;
}

}  // namespace

TEST(RiffInterop, WalksFilesThatSoxAndLibsndfileWrite) {
    if (!have_tools("sox sndfile-info")) GTEST_SKIP() << "needs sox and sndfile-info";
    TempDir dir;
    const std::string tone = dir.file("tone.wav"), info = dir.file("info.wav");
    // sox writes a bare tone; libsndfile's metadata tool adds a LIST "INFO" to it.
    ASSERT_EQ(
        system(("sox -n -r 48000 -c 1 -b 24 " + quoted(tone) + " synth 0.05 sine 440").c_str()), 0);
    ASSERT_EQ(system(("sndfile-metadata-set --str-title 'Demo tone' --str-artist qzk " +
                      quoted(tone) + " " + quoted(info) + " >/dev/null")
                         .c_str()),
              0);
    for (const std::string& path : {tone, info}) {
        const std::string ours = walk(path);
        EXPECT_EQ(ours, sndfile_chunks(path));
        EXPECT_TRUE(ours.starts_with("fmt  : ")) << ours;
        EXPECT_EQ(ours.find("LIST : ") != std::string::npos, path == info) << ours;
    }
}

namespace {

void expect_tools_read_the_tone(const std::string& path, bool with_info) {
    const std::pair<const char*, std::string> fields[] = {
        {"-r", "44100"}, {"-c", "2"}, {"-b", "16"}, {"-s", "4410"}, {"-e", "Signed Integer PCM"}};
    for (const auto& [flag, value] : fields) EXPECT_EQ(sox_info(flag, path), value) << flag;
    const std::string info = run_tool("sndfile-info " + quoted(path) + " 2>&1");
    EXPECT_EQ(info.find("Error"), std::string::npos) << info;
    EXPECT_NE(info.find("Frames      : 4410\n"), std::string::npos) << info;
    EXPECT_EQ(info.find("INAM : Demo tone") != std::string::npos, with_info) << info;
    EXPECT_EQ(walk(path), sndfile_chunks(path));
    EXPECT_EQ(sox_raw(path), tone_samples());  // the samples as written
}

}  // namespace

TEST(RiffInterop, ToolsReadWhatTheWritersWriteAndWhatDeletionLeaves) {
    if (!have_tools("sox sndfile-info")) GTEST_SKIP() << "needs sox and sndfile-info";
    TempDir dir;
    const std::string path = dir.file("written.wav");
    // A provisional size, "fmt ", "data", a LIST "INFO" of three strings
    // (10 bytes with the terminator, 8, 9 padded), then the real size.
    const HANDLE h = open_path(path, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    const Bytes fmt = Bytes{1, 0, 2, 0} + le32(44100) + le32(44100 * 4) + Bytes{4, 0, 16, 0};
    const Bytes data = tone_samples();
    ASSERT_EQ(riff_WriteFileID(h, cc("WAVE"), 0), S_OK);
    ASSERT_EQ(riff_WriteChunk(h, cc("fmt "), fmt.data(), DWORD(fmt.size()), nullptr), S_OK);
    ASSERT_EQ(riff_WriteChunk(h, cc("data"), data.data(), DWORD(data.size()), nullptr), S_OK);
    ASSERT_EQ(riff_WriteListHeader(h, cc("INFO"), 4 + 18 + 16 + 18), S_OK);
    const std::pair<const char*, std::u16string> texts[] = {
        {"INAM", u"Demo tone"}, {"ICMT", u"Caf\u00E9 qz"}, {"IART", u"qzkernel"}};
    for (const auto& [id, t] : texts) {
        ASSERT_EQ(riff_WriteChunkHeader(h, cc(id), DWORD(t.size() + 1)), S_OK);
        ASSERT_EQ(riff_WriteANSIString(h, t.c_str(), nullptr), S_OK);
    }
    DWORD end = 0;
    riff_SaveLocation(h, &end);
    ASSERT_EQ(riff_SetRIFFSize(h, end - 8), S_OK);
    {
        SCOPED_TRACE("as written");
        expect_tools_read_the_tone(path, true);
    }
    DWORD removed = 0;
    EXPECT_EQ(riff_DeleteChunk(h, cc("INFO"), &removed, TRUE), S_OK);
    CloseHandle(h);
    EXPECT_EQ(read_file(path).size(), end - removed);
    SCOPED_TRACE("after deleting the LIST");
    expect_tools_read_the_tone(path, false);
}
