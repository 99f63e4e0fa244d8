// Wave files made by sox and libsndfile, read through mriff_GetWfx and the
// format record; wave headers written by mriff_WriteWaveHeader, read by sox.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "qz/mriff.h"
#include "qz/qzwaveformat.h"
#include "tests/support/riff_files.h"

namespace {

using namespace qz::testing;

// The first "Name : value" of each name that sndfile-info prints, as a number
// ("0x3F (L, R)" reads as 0x3F).
std::map<std::string, unsigned long> sndfile_info(const std::string& path) {
    std::map<std::string, unsigned long> fields;
    std::istringstream lines(run_tool("sndfile-info " + quoted(path)));
    for (std::string line; std::getline(lines, line);) {
        const size_t colon = line.find(':'), name = line.find_first_not_of(' ');
        if (colon == std::string::npos) continue;
        const std::string key = line.substr(name, line.find_last_not_of(' ', colon - 1) + 1 - name);
        fields.emplace(key, std::strtoul(line.c_str() + colon + 1, nullptr, 0));
    }
    return fields;
}

}  // namespace

TEST(MriffInterop, FilesFromSoxAndLibsndfileReadAsTheToolsReportThem) {
    if (!have_tools("sox sndfile-info sndfile-convert"))
        GTEST_SKIP() << "needs sox, sndfile-info and sndfile-convert";
    TempDir dir;
    const std::string src = dir.file("source.wav"), path = dir.file("made.wav");
    ASSERT_EQ(system(("sox -n -r 44100 -c 1 -b 16 " + quoted(src) + " synth 0.1 sine 440").c_str()),
              0);
    const std::tuple<const char*, DWORD> files[] = {
        {"sox -n -r 48000 -c 6 -b 24 -e signed-integer {out} synth 0.05 sine 440", QZST_PCM24},
        {"sndfile-convert -float64 {src} {out}", QZST_FLOAT64},
        {"sndfile-convert -ms-adpcm {src} {out}", QZST_NONE},  // a codec: a foreign record
    };
    for (const auto& [command, sample_type] : files) {
        SCOPED_TRACE(command);
        std::string cmd = command;
        cmd.replace(cmd.find("{out}"), 5, quoted(path));
        if (const size_t at = cmd.find("{src}"); at != std::string::npos)
            cmd.replace(at, 5, quoted(src));
        ASSERT_EQ(system(cmd.c_str()), 0);
        const Bytes image = read_file(path);
        auto info = sndfile_info(path);

        WAVEFORMATEX wfx;
        DWORD data_size = 0, record_data = 0;
        ASSERT_EQ(mriff_GetWfx(&wfx, image.data(), DWORD(image.size()), &data_size), S_OK);
        EXPECT_EQ(std::vector<unsigned long>({wfx.wFormatTag, wfx.nChannels, wfx.nSamplesPerSec,
                                              wfx.nBlockAlign, wfx.wBitsPerSample,
                                              wfx.nAvgBytesPerSec, data_size}),
                  std::vector<unsigned long>({info["Format"], info["Channels"], info["Sample Rate"],
                                              info["Block Align"], info["Bit Width"],
                                              info["Bytes/sec"], info["data"]}));
        _qzwaveformat rec;
        ASSERT_EQ(mriff_GetWfx(&rec, image.data(), DWORD(image.size()), &record_data), S_OK);
        EXPECT_EQ(record_data, data_size);
        EXPECT_EQ(rec.sampleType, sample_type);
        EXPECT_EQ(rec.channelMask, info["Channel Mask"]);
        EXPECT_EQ(rec.extraSize, info["Extra Bytes"]);
        EXPECT_EQ(rec.IsCompressed(), sample_type == QZST_NONE);
        if (sample_type != QZST_NONE) {  // frames from the data size, as sox counts them
            EXPECT_EQ(std::to_string(data_size / rec.blockAlign), sox_info("-s", path));
        }
    }
}

TEST(MriffInterop, HeadersWrittenHereAreReadBySox) {
    if (!have_tools("sox sndfile-info sndfile-convert"))
        GTEST_SKIP() << "needs sox, sndfile-info and sndfile-convert";
    TempDir dir;
    // An odd frame count, so 8-bit mono data needs its pad; floats stay silent.
    const DWORD frames = 1001;
    const std::tuple<QZSAMPLETYPE, DWORD, WORD, const char*> cases[] = {
        {QZST_PCM8, 8000, 1, "8 Unsigned Integer PCM"},
        {QZST_FLOAT32, 44100, 2, "32 Floating Point PCM"},  // written from the record
    };
    for (const auto& [type, rate, channels, sox_format] : cases) {
        _qzwaveformat rec;
        rec.Init(rate, type, channels, 0, 32);
        const DWORD data_size = frames * rec.blockAlign;
        Bytes samples(data_size);
        for (size_t i = 0; i < samples.size() && type == QZST_PCM8; ++i)
            samples[i] = uint8_t(i * 7 + 3);
        Bytes image(64 + data_size + 1, 0);
        _tMRIFF m;
        ASSERT_EQ(mriff_Init(&m, image.data(), 0, DWORD(image.size())), S_OK);
        WAVEFORMATEX wfx;
        QzAudio_InitWfx(&wfx, rate, type, channels);
        ASSERT_EQ(type == QZST_PCM8 ? mriff_WriteWaveHeader(&m, &wfx, data_size, 0)
                                    : mriff_WriteWaveHeader(&m, rec, data_size, 0),
                  S_OK);
        DWORD put = 0;
        ASSERT_TRUE(mriff_WriteFile(&m, samples.data(), data_size, &put, nullptr));
        mriff_WriteFile(&m, "\0", data_size & 1, &put, nullptr);
        image.resize(m.pDataEnd - m.pBase);

        const std::string path = dir.file("written.wav");
        write_file(path, image);
        EXPECT_EQ(sox_info("-r", path) + " " + sox_info("-c", path) + " " + sox_info("-s", path) +
                      " " + sox_info("-b", path) + " " + sox_info("-e", path),
                  std::to_string(rate) + " " + std::to_string(channels) + " " +
                      std::to_string(frames) + " " + sox_format);
        // sox decodes the samples back to exactly the bytes written.
        EXPECT_TRUE(sox_raw(path) == samples);
        EXPECT_EQ(sndfile_info(path)["data"], data_size);
    }
}
