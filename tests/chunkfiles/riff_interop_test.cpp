// riff_* against sox and libsndfile: files they write, and files they read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/riff_files.h"

using namespace qz::testing;

namespace {

bool tools_missing() {
    return system("{ command -v sox && command -v sndfile-info; } >/dev/null 2>&1") != 0;
}

struct ChunkEntry {
    DWORD id, size;
    DWORD list_type;  // 0 unless the chunk is a LIST
    bool operator==(const ChunkEntry&) const = default;
};

std::ostream& operator<<(std::ostream& os, const ChunkEntry& e) {
    return os << "'" << std::string(reinterpret_cast<const char*>(&e.id), 4) << "' " << e.size;
}

HANDLE open(const std::string& path, DWORD access, DWORD disposition = OPEN_EXISTING) {
    return CreateFileW(wide(path).c_str(), access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

// The top level as the library walks it, with the budget of the header.
std::vector<ChunkEntry> walk(const std::string& path) {
    std::vector<ChunkEntry> out;
    const HANDLE h = open(path, GENERIC_READ);
    EXPECT_NE(h, INVALID_HANDLE_VALUE) << path;
    if (h == INVALID_HANDLE_VALUE) return out;
    DWORD remaining = 0, form = 0, count = 0;
    EXPECT_EQ(riff_ReadFileID(h, &remaining, &form), S_OK);
    EXPECT_EQ(form, cc("WAVE"));
    DWORD copy = remaining;
    EXPECT_EQ(riff_GetNumListEntries(h, &count, &copy), S_OK);
    for (ChunkEntry e{}; remaining >= 8 && riff_ReadChunkHeader(h, &e.id, &e.size) == S_OK;) {
        remaining -= 8;
        e.list_type = 0;
        if (e.id == cc("LIST")) {
            DWORD at = 0, type_size = 0;
            riff_SaveLocation(h, &at);
            riff_RestoreLocation(h, at - 8);
            EXPECT_EQ(riff_ReadListHeader(h, &e.list_type, &type_size), S_OK);
            riff_RestoreLocation(h, at);
        }
        remaining -= riff_SkipChunk(h, e.size);
        out.push_back(e);
    }
    EXPECT_EQ(out.size(), count) << path;
    CloseHandle(h);
    return out;
}

// sndfile-info's "ID   : size" lines at column 0; a LIST's type follows.
std::vector<ChunkEntry> sndfile_chunks(const std::string& path) {
    std::vector<ChunkEntry> out;
    std::istringstream lines(run_tool("sndfile-info " + quoted(path) + " 2>&1"));
    for (std::string line; std::getline(lines, line);) {
        if (line.size() < 8 || line.compare(4, 3, " : ") != 0 ||
            line.find_first_not_of("0123456789", 7) != std::string::npos ||
            line.starts_with("RIFF"))
            continue;
        ChunkEntry e{cc(line.c_str()), DWORD(std::stoul(line.substr(7))), 0};
        if (e.id == cc("LIST") && std::getline(lines, line)) {
            const auto start = line.find_first_not_of(' ');
            if (start != std::string::npos && line.size() >= start + 4)
                e.list_type = cc(line.c_str() + start);
        }
        out.push_back(e);
    }
    return out;
}

// "fmt " and the "data" length as found here, against sox; returns the tag.
WORD expect_sox_agrees(const std::string& path) {
    const HANDLE h = open(path, GENERIC_READ);
    DWORD size = 0, data_size = 0;
    Bytes b(64);
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(h, cc("fmt "), &size, nullptr), S_OK) << path;
    EXPECT_EQ(riff_ReadDataBounded(h, b.data(), size, DWORD(b.size())), S_OK) << path;
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(h, cc("data"), &data_size, nullptr), S_OK) << path;
    CloseHandle(h);
    auto le = [&](int at, int n) {
        DWORD v = 0;
        for (int i = n - 1; i >= 0; --i) v = v << 8 | b[at + i];
        return v;
    };
    const std::pair<const char*, DWORD> fields[] = {
        {"-r", le(4, 4)}, {"-c", le(2, 2)}, {"-b", le(14, 2)}, {"-s", data_size / le(12, 2)}};
    for (const auto& [flag, value] : fields)
        EXPECT_EQ(sox_info(flag, path), std::to_string(value)) << flag << " " << path;
    return WORD(le(0, 2));
}

}  // namespace

TEST(RiffInterop, WalksFilesThatSoxAndLibsndfileWrite) {
    if (tools_missing()) GTEST_SKIP() << "needs sox and sndfile-info";
    TempDir dir;
    const std::string tone = " synth 0.05 sine 440 2>/dev/null";
    struct Source {
        const char* name;
        std::string command;  // writes %s; %pcm16 is the second file
        WORD tag;
    } sources[] = {
        {"pcm16.wav", "sox -n -r 44100 -c 2 -b 16 %s" + tone, WAVE_FORMAT_PCM},
        {"pcm24.wav", "sox -n -r 48000 -c 1 -b 24 %s" + tone, WAVE_FORMAT_EXTENSIBLE},
        {"info.wav", "sndfile-metadata-set --str-title 'Demo tone' --str-artist qzk %pcm16 %s",
         WAVE_FORMAT_PCM},
    };
    for (const Source& s : sources) {
        const std::string path = dir.file(s.name);
        std::string command = s.command;
        command.replace(command.find("%s"), 2, quoted(path));
        if (const auto at = command.find("%pcm16"); at != std::string::npos)
            command.replace(at, 6, quoted(dir.file("pcm16.wav")));
        ASSERT_EQ(system((command + " >/dev/null").c_str()), 0) << command;

        const std::vector<ChunkEntry> ours = walk(path);
        EXPECT_EQ(ours, sndfile_chunks(path)) << s.name;
        ASSERT_FALSE(ours.empty());
        EXPECT_EQ(ours.front().id, cc("fmt ")) << s.name;
        EXPECT_EQ(expect_sox_agrees(path), s.tag) << s.name;
    }
    // The metadata tool's file carries the LIST "INFO" the others lack.
    const auto info = walk(dir.file("info.wav"));
    EXPECT_TRUE(std::any_of(info.begin(), info.end(),
                            [](const ChunkEntry& e) { return e.list_type == cc("INFO"); }));
}

namespace {

constexpr DWORD kRate = 44100, kFrames = 4410;

Bytes samples() {  // a 440 Hz tone, 16-bit stereo
    Bytes out;
    for (DWORD i = 0; i < kFrames; ++i) {
        const auto v = int16_t(std::lround(12000 * std::sin(2 * 3.14159265 * 440 * i / kRate)));
        out = out +
              Bytes{uint8_t(v), uint8_t(uint16_t(v) >> 8), uint8_t(v), uint8_t(uint16_t(v) >> 8)};
    }
    return out;
}

// A 16-bit stereo WAV written with the library's writers: a provisional
// size, "fmt ", "data", a LIST "INFO" of three strings, then the real size.
void write_wave(const std::string& path) {
    const HANDLE h = open(path, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    const Bytes fmt = Bytes{1, 0, 2, 0} + le32(kRate) + le32(kRate * 4) + Bytes{4, 0, 16, 0};
    const Bytes data = samples();
    ASSERT_EQ(riff_WriteFileID(h, cc("WAVE"), 0), S_OK);
    ASSERT_EQ(riff_WriteChunk(h, cc("fmt "), fmt.data(), DWORD(fmt.size()), nullptr), S_OK);
    ASSERT_EQ(riff_WriteChunk(h, cc("data"), data.data(), DWORD(data.size()), nullptr), S_OK);
    // 10 bytes with the terminator, 8 (even), 9 (odd, padded).
    const std::pair<const char*, std::u16string> texts[] = {
        {"INAM", u"Demo tone"}, {"ICMT", u"Caf\u00E9 qz"}, {"IART", u"qzkernel"}};
    ASSERT_EQ(riff_WriteListHeader(h, cc("INFO"), 4 + 18 + 16 + 18), S_OK);
    for (const auto& [id, t] : texts) {
        const DWORD bytes = DWORD(t.size() + 1);
        ASSERT_EQ(riff_WriteChunkHeader(h, cc(id), bytes), S_OK);
        DWORD written = 0;
        ASSERT_EQ(riff_WriteANSIString(h, t.c_str(), &written), S_OK);
        EXPECT_EQ(written, bytes + (bytes & 1));
    }
    DWORD end = 0;
    riff_SaveLocation(h, &end);
    ASSERT_EQ(riff_SetRIFFSize(h, end - 8), S_OK);
    CloseHandle(h);
}

void expect_tools_read_the_tone(const std::string& path, bool with_info) {
    const std::pair<const char*, std::string> fields[] = {
        {"-r", "44100"}, {"-c", "2"}, {"-b", "16"}, {"-s", "4410"}, {"-e", "Signed Integer PCM"}};
    for (const auto& [flag, value] : fields) EXPECT_EQ(sox_info(flag, path), value) << flag;

    const std::string info = run_tool("sndfile-info " + quoted(path) + " 2>&1");
    EXPECT_EQ(info.find("Error"), std::string::npos) << info;
    for (const char* line : {"Sample Rate : 44100", "Frames      : 4410\n", "Channels    : 2\n"})
        EXPECT_NE(info.find(line), std::string::npos) << info;
    for (const char* line : {"INAM : Demo tone", "IART : qzkernel"})
        EXPECT_EQ(info.find(line) != std::string::npos, with_info) << info;

    // The samples come back out of sox exactly as written.
    const std::string raw = path + ".raw";
    ASSERT_EQ(system(("sox " + quoted(path) + " -t raw " + quoted(raw) + " 2>/dev/null").c_str()),
              0);
    EXPECT_EQ(read_file(raw), samples());
}

}  // namespace

TEST(RiffInterop, ToolsReadWhatTheWritersWriteAndWhatDeletionLeaves) {
    if (tools_missing()) GTEST_SKIP() << "needs sox and sndfile-info";
    TempDir dir;
    const std::string path = dir.file("written.wav");
    write_wave(path);
    {
        SCOPED_TRACE("as written");
        expect_tools_read_the_tone(path, true);
        const std::vector<ChunkEntry> chunks = walk(path);
        EXPECT_EQ(chunks, sndfile_chunks(path));
        ASSERT_EQ(chunks.size(), 3u);
        EXPECT_EQ(chunks[2].list_type, cc("INFO"));
    }
    const HANDLE h = open(path, GENERIC_READ | GENERIC_WRITE);
    const uint64_t before = read_file(path).size();
    DWORD removed = 0;
    EXPECT_EQ(riff_DeleteChunk(h, cc("INFO"), &removed, TRUE), S_OK);
    CloseHandle(h);
    EXPECT_EQ(read_file(path).size(), before - removed);
    {
        SCOPED_TRACE("after deleting the LIST");
        expect_tools_read_the_tone(path, false);
        EXPECT_EQ(walk(path), sndfile_chunks(path));
    }
}
