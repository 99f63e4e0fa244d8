// iff_*, aiff_* on the files of sox, libsndfile and Python's aifc, as their tools read them.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/riff_files.h"

using namespace qz::testing;

TEST(IffInterop, FormatsSamplesAndMarkersOfToolFilesAreWhatTheToolsRead) {
    if (!have_tools("sox sndfile-convert")) GTEST_SKIP() << "needs sox and sndfile-convert";
    // Python 3.13 dropped aifc: without it, the file with markers is left out.
    const bool aifc = system("python3 -W ignore -c 'import aifc' >/dev/null 2>&1") == 0;
    TempDir dir;
    const auto made = [&](const char* name, const std::string& command, const char* after = "") {
        EXPECT_EQ(system((command + " " + quoted(dir.file(name)) + after).c_str()), 0) << command;
        return dir.file(name);
    };
    const auto sox = [&](const char* name, const std::string& format) {
        return made(name, "sox -V1 -n " + format, " synth 0.05 sine 440");
    };
    const std::string s16 = sox("s16.aiff", "-r 44100 -c 2 -b 16 -t aiff");
    const std::string s24 = sox("s24.aiff", "-r 96000 -c 2 -b 24 -t aiff");
    const std::string marks = made(
        "marks.aiff", aifc ? "python3 -W ignore -c \"import aifc, sys; f = aifc.open(sys.argv[1], "
                             "'wb'); f.aiff(); f.setnchannels(1); f.setsampwidth(2); "
                             "f.setframerate(32000); f.setmark(1, 100, b'intro'); f.setmark(7, "
                             "2500, b'drop'); f.writeframes(bytes(range(256)) * 32); f.close()\""
                           : "cp " + quoted(s16));
    const std::tuple<std::string, WORD> accepted[] = {
        {s16, QZWAVE_FORMAT_PCM_BIGENDIAN},
        {s24, QZWAVE_FORMAT_PCM_BIGENDIAN},
        {sox("u8.aiff", "-r 22050 -c 1 -b 8 -t aiff"), QZWAVE_FORMAT_PCM_SIGNED},
        {sox("s24.aifc", "-r 192000 -c 2 -b 24 -t aifc"), QZWAVE_FORMAT_PCM_BIGENDIAN},  // "NONE"
        {sox("s16.aifc", "-r 48000 -c 1 -b 16 -t aifc"), QZWAVE_FORMAT_PCM_BIGENDIAN},
        {made("sowt.aif", "sndfile-convert -pcm16 -endian=little " + quoted(s16)), WAVE_FORMAT_PCM},
        {made("s8.aif", "sndfile-convert -pcms8 " + quoted(s16)), QZWAVE_FORMAT_PCM_SIGNED},
        {made("s32.aif", "sndfile-convert -pcm32 " + quoted(s24)), QZWAVE_FORMAT_PCM_BIGENDIAN},
        {marks, QZWAVE_FORMAT_PCM_BIGENDIAN},
    };
    for (const auto& [path, tag] : accepted) {
        SCOPED_TRACE(path);
        TempFile f(read_file(path));
        WAVEFORMATEX wfx{};
        DWORD frames = 0, at = 0;
        ASSERT_EQ(iff_GetAIFFWfx(f.handle(), &wfx, &frames, &at), S_OK);
        EXPECT_EQ(wfx.wFormatTag, tag);
        for (const auto& [flag, value] : {std::pair<const char*, DWORD>{"-r", wfx.nSamplesPerSec},
                                          {"-c", wfx.nChannels},
                                          {"-b", wfx.wBitsPerSample},
                                          {"-s", frames}})
            EXPECT_EQ(sox_info(flag, path), std::to_string(value));
        // The first samples sox decodes stand at the position reported.
        const char* order = tag == WAVE_FORMAT_PCM ? " -L " : " -B ";
        const Bytes file = f.contents();
        ASSERT_LE(at + 64, file.size());
        EXPECT_EQ(run_tool("sox " + quoted(path) + " -t raw -e signed-integer" + order +
                           "- 2>/dev/null | head -c 64"),
                  std::string(file.begin() + at, file.begin() + at + 64));
    }
    // aifc's markers, each entry followed by its name.
    TempFile f(read_file(marks));
    for (const auto& [wanted, position, name] :
         {std::tuple<WORD, DWORD, std::string>{7, 2500, "drop"}, {1, 100, "intro"}}) {
        if (!aifc) break;
        QZAIFFMARKER marker{};
        ASSERT_EQ(iff_FindMarker(f.handle(), wanted, &marker), S_OK);
        std::string text(marker.cbName, '\0');
        ReadFile(f.handle(), text.data(), marker.cbName, nullptr, nullptr);
        EXPECT_EQ(std::make_tuple(marker.wId, DWORD(marker.dwPosition), text),
                  std::make_tuple(wanted, position, name));
    }
}
