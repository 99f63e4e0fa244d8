// iff_*, aiff_* on the files of sox, libsndfile and Python's aifc, as their tools read them.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/riff_files.h"

using namespace qz::testing;

TEST(IffInterop, FormatsSamplesAndMarkersOfToolFilesAreWhatTheToolsRead) {
    if (system("{ command -v sox && command -v sndfile-convert && command -v sndfile-info; } "
               ">/dev/null 2>&1") != 0)
        GTEST_SKIP() << "needs sox, sndfile-convert and sndfile-info";
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
    const auto convert = [&](const char* name, const std::string& options,
                             const std::string& from) {
        return made(name, "sndfile-convert " + options + " " + quoted(from));
    };
    const std::string s16 = sox("s16.aiff", "-r 44100 -c 2 -b 16 -t aiff");
    const std::string s24 = sox("s24.aiff", "-r 96000 -c 2 -b 24 -t aiff");
    const std::string marks =
        !aifc
            ? s16
            : made("marks.aiff",
                   "python3 -W ignore -c \"import aifc, sys; f = aifc.open(sys.argv[1], 'wb'); "
                   "f.aiff(); "
                   "f.setnchannels(1); f.setsampwidth(2); f.setframerate(32000); f.setmark(1, 100, "
                   "b'intro'); f.setmark(7, 2500, b'drop'); f.writeframes(bytes(range(256)) * 32); "
                   "f.close()\"");
    const std::tuple<std::string, WORD> accepted[] = {
        {s16, QZWAVE_FORMAT_PCM_BIGENDIAN},
        {s24, QZWAVE_FORMAT_PCM_BIGENDIAN},
        {sox("u8.aiff", "-r 22050 -c 1 -b 8 -t aiff"), QZWAVE_FORMAT_PCM_SIGNED},
        {sox("s24.aifc", "-r 192000 -c 2 -b 24 -t aifc"), QZWAVE_FORMAT_PCM_BIGENDIAN},  // "NONE"
        {sox("s16.aifc", "-r 48000 -c 1 -b 16 -t aifc"), QZWAVE_FORMAT_PCM_BIGENDIAN},
        {convert("sowt.aif", "-pcm16 -endian=little", s16), WAVE_FORMAT_PCM},
        {convert("s8.aif", "-pcms8", s16), QZWAVE_FORMAT_PCM_SIGNED},
        {convert("s32.aif", "-pcm32", s24), QZWAVE_FORMAT_PCM_BIGENDIAN},
        {marks, QZWAVE_FORMAT_PCM_BIGENDIAN},
    };
    for (const auto& [path, tag] : accepted) {
        SCOPED_TRACE(path);
        const HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        WAVEFORMATEX wfx{};
        DWORD frames = 0, at = 0;
        ASSERT_EQ(iff_GetAIFFWfx(h, &wfx, &frames, &at), S_OK);
        const std::pair<const char*, DWORD> fields[] = {{"-r", wfx.nSamplesPerSec},
                                                        {"-c", wfx.nChannels},
                                                        {"-b", wfx.wBitsPerSample},
                                                        {"-s", frames}};
        for (const auto& [flag, value] : fields)
            EXPECT_EQ(sox_info(flag, path), std::to_string(value));
        EXPECT_EQ(wfx.wFormatTag, tag);
        EXPECT_NE(run_tool("sndfile-info " + quoted(path))
                      .find("Frames      : " + std::to_string(frames) + "\n"),
                  std::string::npos);
        // The first samples sox decodes stand at the position reported.
        const char* order = tag == WAVE_FORMAT_PCM ? " -L " : " -B ";
        ASSERT_EQ(system(("sox " + quoted(path) + " -t raw -e signed-integer" + order +
                          quoted(path + ".raw"))
                             .c_str()),
                  0);
        const Bytes file = read_file(path), samples = read_file(path + ".raw");
        ASSERT_LE(at + 64, file.size());
        EXPECT_EQ(Bytes(file.begin() + at, file.begin() + at + 64), prefix(samples, 64));
        if (path != marks || !aifc) {
            CloseHandle(h);
            continue;
        }
        // aifc's markers, each entry followed by its name.
        for (const auto& [wanted, position, name] :
             {std::tuple<WORD, DWORD, std::string>{7, 2500, "drop"}, {1, 100, "intro"}}) {
            QZAIFFMARKER marker{};
            ASSERT_EQ(iff_FindMarker(h, wanted, &marker), S_OK);
            std::string text(marker.cbName, '\0');
            ReadFile(h, text.data(), marker.cbName, nullptr, nullptr);
            EXPECT_EQ(std::make_tuple(marker.wId, DWORD(marker.dwPosition), text),
                      std::make_tuple(wanted, position, name));
        }
        CloseHandle(h);
    }
}
