// iff_*, aiff_* against sox, libsndfile and Python's aifc: files they write, and files they read.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/riff_files.h"

using namespace qz::testing;

namespace {

bool tools_missing() {
    return system(
               "{ command -v sox && command -v sndfile-convert && command -v sndfile-info && "
               "python3 -c 'import aifc'; } >/dev/null 2>&1") != 0;
}

HANDLE open(const std::string& path) {
    return CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

uint32_t id(const char* c) {
    return __builtin_bswap32(cc(c));
}

// The format as the library reads it, checked against soxi and sndfile-info, and
// the first samples at the position it reports against those sox decodes.
void expect_tools_agree(const std::string& path, WORD tag) {
    SCOPED_TRACE(path);
    const HANDLE h = open(path);
    WAVEFORMATEX wfx{};
    DWORD frames = 0, at = 0;
    ASSERT_EQ(iff_GetAIFFWfx(h, &wfx, &frames, &at), S_OK);
    CloseHandle(h);
    EXPECT_EQ(wfx.wFormatTag, tag);
    EXPECT_EQ(std::to_string(wfx.nSamplesPerSec), sox_info("-r", path));
    EXPECT_EQ(std::to_string(wfx.nChannels), sox_info("-c", path));
    EXPECT_EQ(std::to_string(wfx.wBitsPerSample), sox_info("-b", path));
    EXPECT_EQ(std::to_string(frames), sox_info("-s", path));
    const std::string info = run_tool("sndfile-info " + quoted(path));
    EXPECT_NE(info.find("Frames      : " + std::to_string(frames) + "\n"), std::string::npos);
    const std::string raw = path + ".raw";
    const char* order = tag == WAVE_FORMAT_PCM ? " -L" : " -B";
    ASSERT_EQ(
        system(("sox " + quoted(path) + " -t raw -e signed-integer" + order + " " + quoted(raw))
                   .c_str()),
        0);
    const Bytes file = read_file(path), samples = read_file(raw);
    ASSERT_GE(samples.size(), 64u);
    ASSERT_LE(at + 64, file.size());
    EXPECT_EQ(Bytes(file.begin() + at, file.begin() + at + 64), prefix(samples, 64));
}

}  // namespace

TEST(IffInterop, ReadsTheAiffAndAifcFilesOfSoxAndLibsndfile) {
    if (tools_missing()) GTEST_SKIP() << "needs sox, sndfile-convert, sndfile-info, python3 aifc";
    TempDir dir;
    // sox makes a tone in the format asked; sndfile-convert converts sox's 16-bit file.
    const auto made = [&](const std::string& name, const std::string& command,
                          const std::string& after) {
        const std::string path = dir.file(name);
        EXPECT_EQ(system((command + " " + quoted(path) + after).c_str()), 0) << command;
        return path;
    };
    const auto sox = [&](const std::string& name, const std::string& format) {
        return made(name, "sox -V1 -n " + format, " synth 0.05 sine 440");
    };
    const std::string s16 = sox("s16.aiff", "-r 44100 -c 2 -b 16 -t aiff");
    const std::string s24 = sox("s24.aiff", "-r 96000 -c 2 -b 24 -t aiff");
    const auto convert = [&](const std::string& name, const std::string& options,
                             const std::string& from) {
        return made(name, "sndfile-convert " + options + " " + quoted(from), "");
    };
    const std::tuple<std::string, WORD> accepted[] = {
        {s16, QZWAVE_FORMAT_PCM_BIGENDIAN},
        {s24, QZWAVE_FORMAT_PCM_BIGENDIAN},
        {sox("u8.aiff", "-r 22050 -c 1 -b 8 -t aiff"), QZWAVE_FORMAT_PCM_SIGNED},
        {sox("s24.aifc", "-r 192000 -c 2 -b 24 -t aifc"), QZWAVE_FORMAT_PCM_BIGENDIAN},  // "NONE"
        {sox("s16.aifc", "-r 48000 -c 1 -b 16 -t aifc"), QZWAVE_FORMAT_PCM_BIGENDIAN},
        {convert("sowt.aif", "-pcm16 -endian=little", s16), WAVE_FORMAT_PCM},
        {convert("s8.aif", "-pcms8", s16), QZWAVE_FORMAT_PCM_SIGNED},
        {convert("s32.aif", "-pcm32", s24), QZWAVE_FORMAT_PCM_BIGENDIAN},
    };
    for (const auto& [path, tag] : accepted) expect_tools_agree(path, tag);
    // Compressed AIFF-C: u-law, and libsndfile's little-endian 24-bit "42n1".
    for (const std::string& path :
         {convert("ulaw.aif", "-ulaw", s16), convert("s24le.aif", "-pcm24 -endian=little", s24)}) {
        const HANDLE h = open(path);
        BOOL compressed = FALSE;
        EXPECT_FALSE(iff_IsAIFFFileEx(h, nullptr, &compressed, nullptr)) << path;
        EXPECT_TRUE(compressed);
        EXPECT_EQ(iff_GetAIFFWfx(h, nullptr, nullptr, nullptr), QZE_CORRUPT_OR_UNKNOWN);
        CloseHandle(h);
    }
}

TEST(IffInterop, FindsTheMarkersPythonsAifcWrites) {
    if (tools_missing()) GTEST_SKIP() << "needs sox, sndfile-convert, sndfile-info, python3 aifc";
    TempDir dir;
    const std::string path = dir.file("marks.aiff");
    ASSERT_EQ(system(("python3 -W ignore -c \"import aifc; f = aifc.open('" + path +
                      "', 'wb'); f.aiff(); f.setnchannels(1); f.setsampwidth(2); "
                      "f.setframerate(32000); f.setmark(1, 100, b'intro'); "
                      "f.setmark(7, 2500, b'drop'); f.setmark(3, 0, b''); "
                      "f.writeframes(bytes(range(256)) * 32); f.close()\"")
                         .c_str()),
              0);
    expect_tools_agree(path, QZWAVE_FORMAT_PCM_BIGENDIAN);
    const std::string info = run_tool("sndfile-info " + quoted(path));
    const HANDLE h = open(path);
    // The id, position and name as aifc wrote them; sndfile-info lists the same.
    const std::tuple<WORD, DWORD, std::string> marks[] = {
        {1, 100, "intro"}, {7, 2500, "drop"}, {3, 0, ""}};
    for (const auto& [wanted, position, name] : marks) {
        QZAIFFMARKER marker{};
        ASSERT_EQ(iff_FindMarker(h, wanted, &marker), S_OK) << wanted;
        std::string text(marker.cbName, '\0');
        DWORD got = 0;
        ReadFile(h, text.data(), marker.cbName, &got, nullptr);
        EXPECT_EQ(std::make_tuple(marker.wId, marker.dwPosition, text),
                  std::make_tuple(wanted, position, name));
        EXPECT_NE(info.find("Position : " + std::to_string(position) + "\n   Name     : " + name),
                  std::string::npos)
            << info;
    }
    QZAIFFMARKER marker{};
    EXPECT_EQ(iff_FindMarker(h, 2, &marker), QZE_NOT_FOUND);
    CloseHandle(h);
}

TEST(IffInterop, ToolsReadWhatTheWritersWriteAndWhatDeletionLeaves) {
    if (tools_missing()) GTEST_SKIP() << "needs sox, sndfile-convert, sndfile-info, python3 aifc";
    TempDir dir;
    const std::string path = dir.file("written.aiff");
    write_file(path, {});
    const HANDLE h = open(path);
    // "COMM" for 1000 frames of 16-bit mono at 11025 Hz, an odd "ANNO", "SSND".
    WORD exponent = 0, mantissa[4] = {};
    aiff_CreateRate(11025, &exponent, mantissa);
    const QZIFFCHUNK comm = {id("COMM"), 18}, anno = {id("ANNO"), 3}, ssnd = {id("SSND"), 2008};
    ASSERT_EQ(iff_WriteFileID(h, id("AIFF"), 0), S_OK);
    ASSERT_EQ(iff_WriteChunk(h, &comm), S_OK);
    for (WORD w : {WORD(1), WORD(0), WORD(1000), WORD(16), exponent}) iff_WriteWORD(h, w);
    for (WORD w : mantissa) aiff_WriteByteSwap16(h, w);
    ASSERT_EQ(iff_WriteChunk(h, &anno), S_OK);
    WriteFile(h, "qz\0", 4, nullptr, nullptr);  // and the pad
    ASSERT_EQ(iff_WriteChunk(h, &ssnd), S_OK);
    ASSERT_EQ(iff_WriteDWORD(h, 0), S_OK);
    ASSERT_EQ(aiff_WriteByteSwap32(h, 0), S_OK);
    for (int i = 0; i < 1000; ++i) iff_WriteWORD(h, WORD(i * 37));
    SetFilePointer(h, 4, nullptr, FILE_BEGIN);
    ASSERT_EQ(iff_WriteDWORD(h, 4 + 26 + 12 + 2016), S_OK);
    expect_tools_agree(path, QZWAVE_FORMAT_PCM_BIGENDIAN);
    DWORD removed = 0;
    ASSERT_EQ(iff_DeleteChunk(h, id("ANNO"), &removed), S_OK);
    CloseHandle(h);
    EXPECT_EQ(removed, 12u);
    expect_tools_agree(path, QZWAVE_FORMAT_PCM_BIGENDIAN);
    EXPECT_EQ(run_tool("sndfile-info " + quoted(path)).find("ANNO"), std::string::npos);
}
