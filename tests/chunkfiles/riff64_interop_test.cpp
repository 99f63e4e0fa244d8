// riff64_* against sox, libsndfile and FFmpeg: Wave64 files they write, and
// files they read.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "audioformat/wave_chunk.h"
#include "tests/support/riff_files.h"

using namespace qz::testing;

namespace {

// The top level as "name : size" lines (the label's first four characters,
// the stored size raised to a multiple of 8), then the format's rate,
// channels, bits and frames.
std::string walk(const std::string& path) {
    const HANDLE h = open_path(path);
    LONGLONG remaining = 0;
    GUID label{};
    ULONGLONG size = 0;
    DWORD count = 0;
    EXPECT_EQ(riff64_ReadFileID(h, &remaining, &label), S_OK) << path;
    EXPECT_EQ(label.Data1, cc("wave"));
    LONGLONG budget = remaining;
    EXPECT_EQ(riff64_GetNumListEntries(h, &count, &budget), S_OK);
    std::string out;
    for (; remaining >= 24 && riff64_ReadChunkHeader(h, &label, &size) == S_OK; --count) {
        std::string name(reinterpret_cast<const char*>(&label.Data1), 4);
        out += name.erase(name.find_last_not_of(' ') + 1) + " : " +
               std::to_string(size + 24 + (-size & 7)) + "\n";
        remaining -= 24 + LONGLONG(riff64_SkipChunk(h, size));
    }
    EXPECT_EQ(count, 0u) << path;
    BYTE fmt[40] = {};
    WAVEFORMATEX wfx{};
    EXPECT_EQ(riff64_FindChunkHeaderInRIFF(h, w64("fmt "), &size, nullptr), S_OK);
    EXPECT_EQ(riff64_ReadDataBounded(h, fmt, DWORD(size), sizeof fmt), S_OK);
    qz::wave::decode_wfx(fmt, &wfx);
    EXPECT_EQ(riff64_FindChunkHeaderInRIFF(h, w64("data"), &size, nullptr), S_OK);
    CloseHandle(h);
    for (DWORD n : {DWORD(wfx.nSamplesPerSec), DWORD(wfx.nChannels), DWORD(wfx.wBitsPerSample),
                    DWORD(size / wfx.nBlockAlign)})
        out += std::to_string(n) + " ";
    return out;
}

// The same as sndfile-info and soxi see the file; sndfile-info prints some
// sizes raised to a multiple of 8 and some as stored, so all are raised.
std::string tools_view(const std::string& path) {
    std::string out;
    std::istringstream lines(run_tool("sndfile-info " + quoted(path) + " 2>&1"));
    const std::regex chunk(R"(\s*(\S{4}|\S{3}) : (\d+))");
    std::smatch m;
    for (std::string line; std::getline(lines, line);)
        if (std::regex_match(line, m, chunk) && m[1] != "riff")
            out += m[1].str() + " : " + std::to_string((std::stoull(m[2]) + 7) & ~7ull) + "\n";
    for (const char* flag : {"-r", "-c", "-b", "-s"}) out += sox_info(flag, path) + " ";
    return out;
}

}  // namespace

TEST(Riff64Interop, WalksWave64FilesThatSoxLibsndfileAndFfmpegWrite) {
    if (!have_tools("sox sndfile-info")) GTEST_SKIP() << "needs sox and sndfile-info";
    TempDir dir;
    const std::string src = quoted(dir.file("tone.wav")), out = quoted(dir.file("out.w64"));
    ASSERT_EQ(system(("sox -n -r 8000 -c 2 -b 16 " + src + " synth 0.05 sine 440").c_str()), 0);
    // An odd count of 24-bit mono frames leaves the last chunk without its padding.
    std::vector<std::string> commands = {
        "sox -n -r 8000 -c 2 -b 16 -t w64 " + out + " synth 0.05 sine 440",
        "sox -n -r 8000 -c 1 -b 24 -t w64 " + out + " synth 83s sine 440",
        "sndfile-convert -pcm24 " + src + " " + out, "sndfile-convert -float32 " + src + " " + out};
    if (have_tools("ffmpeg ffprobe"))
        for (const char* codec : {"pcm_s16le", "pcm_s24le", "pcm_f32le"})
            commands.push_back("ffmpeg -v error -i " + src + " -c:a " + codec + " -f w64 " + out);
    for (const std::string& command : commands) {
        ASSERT_EQ(system(("rm -f " + out + "; " + command).c_str()), 0) << command;
        EXPECT_EQ(walk(dir.file("out.w64")), tools_view(dir.file("out.w64"))) << command;
    }
}

TEST(Riff64Interop, ToolsReadWhatTheWritersWriteAndWhatDeletionLeaves) {
    if (!have_tools("sox sndfile-info")) GTEST_SKIP() << "needs sox and sndfile-info";
    TempDir dir;
    const std::string path = dir.file("written.w64");
    // A provisional size, "fmt " and an odd "junk" written whole, "data"
    // streamed in two pieces, then the real size.
    const Bytes samples = tone_samples();
    BYTE fmt[qz::wave::kWfxBytes];
    const DWORD fmt_size =
        qz::wave::encode_format_body({WAVE_FORMAT_PCM, 2, 44100, 0, 0, 16, 0}, fmt);
    const HANDLE h = open_path(path, GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS);
    ULONGLONG start = 0, end = 0, removed = 0;
    ASSERT_EQ(riff64_WriteFileID(h, w64("wave"), 0), S_OK);
    ASSERT_EQ(riff64_WriteChunk(h, w64("fmt "), fmt, fmt_size, nullptr), S_OK);
    ASSERT_EQ(riff64_WriteChunk(h, w64("junk"), "qzk", 3, nullptr), S_OK);
    ASSERT_EQ(riff64_PrepareChunk(h, w64("data"), &start), S_OK);
    ASSERT_EQ(riff64_WriteToFile(h, samples.data(), 10000), S_OK);
    ASSERT_EQ(riff64_WriteToFile(h, samples.data() + 10000, samples.size() - 10000), S_OK);
    ASSERT_EQ(riff64_CompleteChunk(h, start), S_OK);
    riff64_SaveLocation(h, &end);
    ASSERT_EQ(riff64_SetRIFFSize(h, end - 24), S_OK);
    for (const char* stage : {"as written", "after deleting junk"}) {
        SCOPED_TRACE(stage);
        const std::string chunks = walk(path);
        EXPECT_EQ(chunks, tools_view(path));
        EXPECT_EQ(chunks.find("junk") != std::string::npos, removed == 0);
        EXPECT_TRUE(!have_tools("ffmpeg ffprobe") ||
                    run_tool("ffprobe -v error -show_entries stream=codec_name,sample_rate,"
                             "channels,duration_ts -of default=nw=1 " +
                             quoted(path)) ==
                        "codec_name=pcm_s16le\nsample_rate=44100\nchannels=2\nduration_ts=4410\n");
        // The samples come back out of sox exactly as written (sox -s, above, counts 4410).
        EXPECT_EQ(sox_raw(path), samples);
        if (removed == 0) {
            ASSERT_EQ(riff64_DeleteChunk(h, w64("junk"), &removed), S_OK);
        }
    }
    CloseHandle(h);
    EXPECT_EQ(read_file(path).size(), end - removed);
}
