// riff_* against real tools: walking WAV files that sox and libsndfile
// write, and writing WAV files that sox and sndfile-info accept.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "support/riff_files.h"

using namespace riff_test;

namespace {

std::string run(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    size_t n = 0;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
    return out;
}

bool have(const char* tool) {
    return system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

#define REQUIRE_TOOLS()                                                                 \
    do {                                                                                \
        if (!have("sox")) GTEST_SKIP() << "sox is not installed (package sox)";         \
        if (!have("sndfile-info"))                                                      \
            GTEST_SKIP() << "sndfile-info is not installed (package sndfile-programs)"; \
    } while (0)

std::string quoted(const std::string& path) {
    return "'" + path + "'";
}

// `sox --i -X FILE`: one header field as sox reads it.
std::string sox_info(const char* flag, const std::string& path) {
    std::string out = run(std::string("sox --i ") + flag + " " + quoted(path) + " 2>/dev/null");
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

struct ChunkEntry {
    DWORD id;
    DWORD size;
    DWORD list_type;  // 0 unless the chunk is a LIST
    bool operator==(const ChunkEntry&) const = default;
};

std::string fourcc_text(DWORD id) {
    std::string s;
    for (int i = 0; i < 4; ++i) s += char((id >> (8 * i)) & 0xFF);
    return s;
}

std::ostream& operator<<(std::ostream& os, const ChunkEntry& e) {
    return os << "'" << fourcc_text(e.id) << "' " << e.size;
}

// The top level as the library walks it, with the budget of the header.
std::vector<ChunkEntry> walk(const std::string& path) {
    std::vector<ChunkEntry> out;
    const HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(h, INVALID_HANDLE_VALUE) << path;
    if (h == INVALID_HANDLE_VALUE) return out;
    DWORD remaining = 0, form = 0;
    EXPECT_EQ(riff_ReadFileID(h, &remaining, &form), S_OK);
    EXPECT_EQ(form, cc("WAVE"));
    DWORD count = 0, copy = remaining;
    EXPECT_EQ(riff_GetNumListEntries(h, &count, &copy), S_OK);
    while (remaining >= 8) {
        ChunkEntry e{0, 0, 0};
        if (riff_ReadChunkHeader(h, &e.id, &e.size) != S_OK) break;
        remaining -= 8;
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

// The top level as sndfile-info reports it: "ID   : size" lines at column 0,
// with the list type on the next line for a LIST.
std::vector<ChunkEntry> sndfile_chunks(const std::string& path) {
    std::vector<ChunkEntry> out;
    std::istringstream lines(run("sndfile-info " + quoted(path) + " 2>&1"));
    std::string line;
    while (std::getline(lines, line)) {
        // Four characters, " : ", then digits only.
        if (line.size() < 8 || line.compare(4, 3, " : ") != 0 ||
            line.find_first_not_of("0123456789", 7) != std::string::npos)
            continue;
        const std::string id = line.substr(0, 4);
        if (id == "RIFF") continue;
        ChunkEntry e{cc(id.c_str()), DWORD(std::stoul(line.substr(7))), 0};
        if (e.id == cc("LIST") && std::getline(lines, line)) {
            const auto start = line.find_first_not_of(' ');
            if (start != std::string::npos && line.size() >= start + 4)
                e.list_type = cc(line.substr(start, 4).c_str());
        }
        out.push_back(e);
    }
    return out;
}

struct Fmt {
    WORD tag, channels;
    DWORD rate;
    WORD block_align, bits;
};

// "fmt " and the length of "data", read with the library's searches.
bool read_format(const std::string& path, Fmt* fmt, DWORD* data_size) {
    const HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    DWORD size = 0;
    Bytes body(64);
    bool ok = riff_FindChunkHeaderInRIFF(h, cc("fmt "), &size, nullptr) == S_OK &&
              riff_ReadDataBounded(h, body.data(), size, DWORD(body.size())) == S_OK &&
              riff_FindChunkHeaderInRIFF(h, cc("data"), data_size, nullptr) == S_OK;
    CloseHandle(h);
    fmt->tag = WORD(body[0] | (body[1] << 8));
    fmt->channels = WORD(body[2] | (body[3] << 8));
    fmt->rate = DWORD(body[4] | (body[5] << 8) | (body[6] << 16) | (DWORD(body[7]) << 24));
    fmt->block_align = WORD(body[12] | (body[13] << 8));
    fmt->bits = WORD(body[14] | (body[15] << 8));
    return ok;
}

// Checks what sox makes of a file against the library's reading of it.
void expect_sox_agrees(const std::string& path) {
    Fmt fmt{};
    DWORD data_size = 0;
    ASSERT_TRUE(read_format(path, &fmt, &data_size)) << path;
    EXPECT_EQ(sox_info("-r", path), std::to_string(fmt.rate)) << path;
    EXPECT_EQ(sox_info("-c", path), std::to_string(fmt.channels)) << path;
    EXPECT_EQ(sox_info("-b", path), std::to_string(fmt.bits)) << path;
    EXPECT_EQ(sox_info("-s", path), std::to_string(data_size / fmt.block_align)) << path;
}

}  // namespace

TEST(RiffInterop, WalksFilesThatSoxAndLibsndfileWrite) {
    REQUIRE_TOOLS();
    TempDir dir;
    const std::string tone = " synth 0.05 sine 440 2>/dev/null";
    struct Source {
        const char* name;
        std::string command;  // writes dir/name
        WORD tag;
    } sources[] = {
        {"pcm8.wav", "sox -n -r 22050 -c 1 -b 8 -e unsigned-integer %s" + tone, WAVE_FORMAT_PCM},
        {"pcm16.wav", "sox -n -r 44100 -c 2 -b 16 %s" + tone, WAVE_FORMAT_PCM},
        {"pcm24.wav", "sox -n -r 48000 -c 1 -b 24 %s" + tone, WAVE_FORMAT_EXTENSIBLE},
        {"float.wav", "sox -n -r 44100 -c 1 -e floating-point -b 32 %s" + tone,
         WAVE_FORMAT_IEEE_FLOAT},
        {"ext6.wav", "sox -n -r 48000 -c 6 -b 16 %s" + tone, WAVE_FORMAT_EXTENSIBLE},
        {"sf24.wav", "sndfile-convert -pcm24 %pcm16 %s", WAVE_FORMAT_PCM},
        {"sffloat.wav", "sndfile-convert -float32 %pcm16 %s", WAVE_FORMAT_IEEE_FLOAT},
        {"info.wav", "sndfile-metadata-set --str-title 'Demo tone' --str-artist qzk %pcm16 %s",
         WAVE_FORMAT_PCM},
    };
    for (const Source& s : sources) {
        std::string command = s.command;
        const std::string target = quoted(dir.file(s.name));
        command.replace(command.find("%s"), 2, target);
        if (const auto at = command.find("%pcm16"); at != std::string::npos)
            command.replace(at, 6, quoted(dir.file("pcm16.wav")));
        ASSERT_EQ(system((command + " >/dev/null").c_str()), 0) << command;

        const std::string path = dir.file(s.name);
        const std::vector<ChunkEntry> ours = walk(path);
        EXPECT_EQ(ours, sndfile_chunks(path)) << s.name;
        ASSERT_FALSE(ours.empty());
        EXPECT_EQ(ours.front().id, cc("fmt ")) << s.name;
        Fmt fmt{};
        DWORD data_size = 0;
        ASSERT_TRUE(read_format(path, &fmt, &data_size)) << s.name;
        EXPECT_EQ(fmt.tag, s.tag) << s.name;
        expect_sox_agrees(path);
    }
    // The metadata tool's file carries the LIST "INFO" the others lack.
    bool has_info = false;
    for (const ChunkEntry& e : walk(dir.file("info.wav")))
        has_info |= e.id == cc("LIST") && e.list_type == cc("INFO");
    EXPECT_TRUE(has_info);
}

namespace {

constexpr DWORD kRate = 44100;
constexpr WORD kChannels = 2;
constexpr DWORD kFrames = 4410;

Bytes samples() {
    Bytes out;
    for (DWORD i = 0; i < kFrames; ++i) {
        const auto v = int16_t(std::lround(12000 * std::sin(2 * 3.14159265 * 440 * i / kRate)));
        for (WORD c = 0; c < kChannels; ++c)
            out = out + Bytes{uint8_t(v), uint8_t(uint16_t(v) >> 8)};
    }
    return out;
}

// A 16-bit stereo WAV written with the library's writers: a provisional
// size, "fmt ", "data", a LIST "INFO" of two strings, then the real size.
void write_wave(HANDLE h) {
    Bytes fmt;
    const WORD block = kChannels * 2;
    fmt = fmt + Bytes{1, 0, uint8_t(kChannels), 0} + le32(kRate) + le32(kRate * block) +
          Bytes{uint8_t(block), 0, 16, 0};
    const Bytes data = samples();
    ASSERT_EQ(riff_WriteFileID(h, cc("WAVE"), 0), S_OK);
    ASSERT_EQ(riff_WriteChunk(h, cc("fmt "), fmt.data(), DWORD(fmt.size()), nullptr), S_OK);
    ASSERT_EQ(riff_WriteChunk(h, cc("data"), data.data(), DWORD(data.size()), nullptr), S_OK);
    const WCHAR* name = u"Demo tone";        // 10 bytes with the terminator
    const WCHAR* comment = u"Caf\u00E9 qz";  // 8 bytes: even
    const WCHAR* artist = u"qzkernel";       // 9 bytes: odd, padded
    const WCHAR* texts[] = {name, comment, artist};
    const DWORD ids[] = {cc("INAM"), cc("ICMT"), cc("IART")};
    DWORD list_size = 4;
    for (const WCHAR* t : texts) {
        const DWORD bytes = DWORD(std::char_traits<WCHAR>::length(t) + 1);
        list_size += 8 + bytes + (bytes & 1);
    }
    ASSERT_EQ(riff_WriteListHeader(h, cc("INFO"), list_size), S_OK);
    for (int i = 0; i < 3; ++i) {
        const DWORD bytes = DWORD(std::char_traits<WCHAR>::length(texts[i]) + 1);
        ASSERT_EQ(riff_WriteChunkHeader(h, ids[i], bytes), S_OK);
        DWORD written = 0;
        ASSERT_EQ(riff_WriteANSIString(h, texts[i], &written), S_OK);
        EXPECT_EQ(written, bytes + (bytes & 1));
    }
    DWORD end = 0;
    riff_SaveLocation(h, &end);
    ASSERT_EQ(riff_SetRIFFSize(h, end - 8), S_OK);
}

void expect_tools_read_the_tone(const std::string& path, bool with_info) {
    EXPECT_EQ(sox_info("-r", path), std::to_string(kRate));
    EXPECT_EQ(sox_info("-c", path), std::to_string(kChannels));
    EXPECT_EQ(sox_info("-b", path), "16");
    EXPECT_EQ(sox_info("-s", path), std::to_string(kFrames));
    EXPECT_EQ(sox_info("-e", path), "Signed Integer PCM");

    const std::string info = run("sndfile-info " + quoted(path) + " 2>&1");
    EXPECT_EQ(info.find("Error"), std::string::npos) << info;
    EXPECT_NE(info.find("Sample Rate : 44100"), std::string::npos) << info;
    EXPECT_NE(info.find("Frames      : 4410\n"), std::string::npos) << info;
    EXPECT_NE(info.find("Channels    : 2\n"), std::string::npos) << info;
    EXPECT_EQ(info.find("INAM : Demo tone") != std::string::npos, with_info) << info;
    EXPECT_EQ(info.find("IART : qzkernel") != std::string::npos, with_info) << info;

    // The samples come back out of sox exactly as written.
    const std::string raw = path + ".raw";
    ASSERT_EQ(system(("sox " + quoted(path) + " -t raw " + quoted(raw) + " 2>/dev/null").c_str()),
              0);
    EXPECT_EQ(read_file(raw), samples());
}

}  // namespace

TEST(RiffInterop, ToolsReadWhatTheWritersWriteAndWhatDeletionLeaves) {
    REQUIRE_TOOLS();
    TempDir dir;
    const std::string path = dir.file("written.wav");
    HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                           CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    write_wave(h);
    CloseHandle(h);
    {
        SCOPED_TRACE("as written");
        expect_tools_read_the_tone(path, true);
        std::vector<ChunkEntry> chunks = walk(path);
        EXPECT_EQ(chunks, sndfile_chunks(path));
        ASSERT_EQ(chunks.size(), 3u);
        EXPECT_EQ(chunks[2].list_type, cc("INFO"));
    }

    h = CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                    FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    const uint64_t before = read_file(path).size();
    DWORD removed = 0;
    EXPECT_EQ(riff_DeleteChunk(h, cc("INFO"), &removed, TRUE), S_OK);
    CloseHandle(h);
    EXPECT_EQ(read_file(path).size(), before - removed);
    {
        SCOPED_TRACE("after deleting the LIST");
        expect_tools_read_the_tone(path, false);
        EXPECT_EQ(walk(path), sndfile_chunks(path));
        EXPECT_EQ(walk(path).size(), 2u);
    }
}
