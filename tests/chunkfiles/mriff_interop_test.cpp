// Wave files made by sox and libsndfile, read through mriff_GetWfx and the
// format record; wave headers written by mriff_WriteWaveHeader, read by sox.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "qz/mriff.h"
#include "qz/qzwaveformat.h"
#include "tests/support/riff_files.h"

namespace {

namespace fs = std::filesystem;
using qz::testing::Bytes;
using qz::testing::read_file;
using qz::testing::write_file;

int run(const std::string& cmd, std::string* out = nullptr) {
    int status = -1;
    const std::string text = qz::testing::run_tool(cmd, &status);
    if (out) *out = text;
    return status;
}

std::string trim(std::string s) {
    s.erase(0, s.find_first_not_of(" \t"));
    s.erase(s.find_last_not_of(" \t\r\n") + 1);
    return s;
}

// The first "Name : value" of each name that sndfile-info prints.
using Fields = std::map<std::string, std::string>;
Fields sndfile_info(const fs::path& path) {
    std::string text;
    run("sndfile-info '" + path.string() + "'", &text);
    Fields fields;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (const size_t colon = line.find(':'); colon != std::string::npos)
            fields.emplace(trim(line.substr(0, colon)), trim(line.substr(colon + 1)));
    return fields;
}

unsigned long number(const Fields& fields, const std::string& key) {
    const auto it = fields.find(key);  // "0x3F (L, R)" reads as 0x3F
    return it == fields.end() ? 0 : std::strtoul(it->second.c_str(), nullptr, 0);
}

std::string sox_info(const fs::path& path, const char* option) {
    return qz::testing::sox_info(option, path.string());
}

class MriffInterop : public ::testing::Test {
protected:
    void SetUp() override {
        if (run("command -v sox sndfile-info sndfile-convert >/dev/null") != 0)
            GTEST_SKIP() << "needs sox, sndfile-info and sndfile-convert";
        temp_ = std::make_unique<qz::testing::TempDir>();
        dir_ = temp_->path();
    }
    std::unique_ptr<qz::testing::TempDir> temp_;
    fs::path dir_;
};

std::string quoted(const fs::path& path) {
    return qz::testing::quoted(path.string());
}

std::string expand(std::string cmd, const fs::path& out, const fs::path& src) {
    for (size_t at; (at = cmd.find("{out}")) != std::string::npos;) cmd.replace(at, 5, quoted(out));
    for (size_t at; (at = cmd.find("{src}")) != std::string::npos;) cmd.replace(at, 5, quoted(src));
    // Tones made from nothing last 50 ms.
    return cmd.starts_with("sox -n") ? cmd + " synth 0.05 sine 440" : cmd;
}

TEST_F(MriffInterop, FilesFromSoxAndLibsndfileReadAsTheToolsReportThem) {
    struct Generated {
        const char* name;
        const char* command;  // {out} is the file, {src} a 16-bit mono source
        DWORD sample_type;
        WORD foreign_tag = 0;  // for records outside the enumeration
    } files[] = {
        {"sox pcm8", "sox -n -r 22050 -c 2 -b 8 -e unsigned-integer {out}", QZST_PCM8},
        {"sox 5.1 pcm24", "sox -n -r 48000 -c 6 -b 24 -e signed-integer {out}", QZST_PCM24},
        {"libsndfile float64", "sndfile-convert -float64 {src} {out}", QZST_FLOAT64},
        {"libsndfile wavex pcm16 mono",
         "sndfile-convert -pcm16 {src} {out}.wavex && mv {out}.wavex {out}", QZST_PCM16},
        {"libsndfile ms-adpcm", "sndfile-convert -ms-adpcm {src} {out}", QZST_NONE, 2},
    };
    const fs::path src = dir_ / "source.wav";
    ASSERT_EQ(run("sox -n -r 44100 -c 1 -b 16 '" + src.string() + "' synth 0.1 sine 440"), 0);

    for (const Generated& g : files) {
        SCOPED_TRACE(g.name);
        const fs::path path = dir_ / "made.wav";
        fs::remove(path);
        std::string output;
        ASSERT_EQ(run(expand(g.command, path, src), &output), 0) << output;
        const Bytes image = read_file(path.string());
        ASSERT_GT(image.size(), 44u);
        const auto info = sndfile_info(path);

        WAVEFORMATEX wfx;
        DWORD data_size = 0;
        ASSERT_EQ(mriff_GetWfx(&wfx, image.data(), DWORD(image.size()), &data_size), S_OK);
        EXPECT_EQ(wfx.wFormatTag, number(info, "Format"));
        EXPECT_EQ(wfx.nChannels, number(info, "Channels"));
        EXPECT_EQ(wfx.nSamplesPerSec, number(info, "Sample Rate"));
        EXPECT_EQ(wfx.nBlockAlign, number(info, "Block Align"));
        EXPECT_EQ(wfx.wBitsPerSample, number(info, "Bit Width"));
        EXPECT_EQ(wfx.nAvgBytesPerSec, number(info, "Bytes/sec"));
        EXPECT_EQ(data_size, number(info, "data"));

        _qzwaveformat rec;
        DWORD record_data = 0;
        ASSERT_EQ(mriff_GetWfx(&rec, image.data(), DWORD(image.size()), &record_data), S_OK);
        EXPECT_EQ(record_data, data_size);
        EXPECT_EQ(rec.sampleType, g.sample_type);
        EXPECT_EQ(rec.channelMask, number(info, "Channel Mask"));
        EXPECT_EQ((rec.flags & QZWF_EXTENSIBLE) != 0, wfx.wFormatTag == 0xFFFE);

        if (g.sample_type == QZST_NONE) {
            // A codec: carried as a foreign record with its coefficients.
            EXPECT_TRUE(rec.IsCompressed());
            EXPECT_EQ(rec.FormatTag(), g.foreign_tag);
            EXPECT_EQ(rec.BitsPerSample(), number(info, "Bit Width"));
            EXPECT_EQ(rec.extraSize, number(info, "Extra Bytes"));
        } else {
            // Frames from the data size agree with what sox counts.
            EXPECT_EQ(std::to_string(data_size / rec.blockAlign), sox_info(path, "-s"));
            EXPECT_EQ(std::to_string(rec.BitsPerSample()), sox_info(path, "-b"));
        }

        // _qzwaveformat::Init over the whole "fmt " body gives the same record.
        Bytes fmt(2048, 0);
        _tMRIFF m;
        ASSERT_EQ(mriff_Init(&m, const_cast<uint8_t*>(image.data()), DWORD(image.size()),
                             DWORD(image.size())),
                  S_OK);
        DWORD fmt_size = 0;
        ASSERT_EQ(mriff_FindChunkHeaderInRIFF(&m, qz::testing::cc("fmt "), &fmt_size, nullptr), S_OK);
        ASSERT_EQ(mriff_ReadData(&m, fmt.data(), fmt_size), S_OK);
        _qzwaveformat direct;
        direct.Init(QZWAVEFORMAT_TEMP_SIZE, *reinterpret_cast<const WAVEFORMATEX*>(fmt.data()));
        EXPECT_TRUE(direct == rec);
        EXPECT_TRUE(direct == *reinterpret_cast<const WAVEFORMATEX*>(fmt.data()));
    }
}

TEST_F(MriffInterop, HeadersWrittenHereAreReadBySox) {
    const struct Written {
        const char* name;
        DWORD sample_type, rate;
        WORD channels;
        const char *sox_bits, *sox_encoding;
        bool from_record;
    } cases[] = {
        {"pcm8 mono", QZST_PCM8, 8000, 1, "8", "Unsigned Integer PCM", false},
        {"float32 stereo from a record", QZST_FLOAT32, 44100, 2, "32", "Floating Point PCM", true},
    };
    for (const Written& w : cases) {
        SCOPED_TRACE(w.name);
        const DWORD frames = 1001;  // an odd count, so 8-bit mono data needs its pad
        _qzwaveformat rec;
        rec.Init(w.rate, QZSAMPLETYPE(w.sample_type), w.channels, 0, 32);
        const DWORD data_size = frames * rec.blockAlign;
        const bool is_float = w.sample_type == QZST_FLOAT32 || w.sample_type == QZST_FLOAT64;
        Bytes samples(data_size);  // floats stay silent, so every value is valid
        for (size_t i = 0; i < samples.size() && !is_float; ++i) samples[i] = uint8_t(i * 7 + 3);

        Bytes image(64 + data_size + 1, 0);
        _tMRIFF m;
        ASSERT_EQ(mriff_Init(&m, image.data(), 0, DWORD(image.size())), S_OK);
        if (w.from_record) {
            ASSERT_EQ(mriff_WriteWaveHeader(&m, rec, data_size, 0), S_OK);
        } else {
            WAVEFORMATEX wfx;
            QzAudio_InitWfx(&wfx, w.rate, QZSAMPLETYPE(w.sample_type), w.channels);
            ASSERT_EQ(mriff_WriteWaveHeader(&m, &wfx, data_size, 0), S_OK);
        }
        DWORD put = 0;
        ASSERT_TRUE(mriff_WriteFile(&m, samples.data(), data_size, &put, nullptr));
        if (data_size & 1) mriff_WriteFile(&m, "\0", 1, &put, nullptr);
        image.resize(m.pDataEnd - m.pBase);

        const fs::path path = dir_ / "written.wav";
        write_file(path.string(), image);
        const std::pair<const char*, std::string> fields[] = {{"-r", std::to_string(w.rate)},
                                                              {"-c", std::to_string(w.channels)},
                                                              {"-b", w.sox_bits},
                                                              {"-s", std::to_string(frames)}};
        for (const auto& [flag, value] : fields) EXPECT_EQ(sox_info(path, flag), value) << flag;
        EXPECT_NE(sox_info(path, "-e").find(w.sox_encoding), std::string::npos)
            << sox_info(path, "-e");

        // sox decodes the samples back to exactly the bytes written.
        const fs::path raw = dir_ / "written.raw";
        std::string output;
        ASSERT_EQ(run("sox '" + path.string() + "' -t raw '" + raw.string() + "'", &output), 0)
            << output;
        EXPECT_TRUE(read_file(raw.string()) == samples);

        const auto info = sndfile_info(path);
        EXPECT_EQ(number(info, "data"), data_size);
        EXPECT_EQ(number(info, "Block Align"), rec.blockAlign);
    }
}

}  // namespace
