// The qzk tool as a person runs it from a shell: on pipes, FIFOs and
// damaged files it prints what it could read and says where it stopped;
// times show in the displays a host's ruler offers.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <utility>

#include "tests/support/riff_files.h"

namespace {

using namespace qz::testing;

struct Outcome {
    int status = -1;
    std::string out;
};

// Runs a shell command line and collects its standard output.
Outcome run(const std::string& command) {
    int status = -1;
    std::string out = qz::testing::run_tool(command + " 2>/dev/null", &status);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::move(out)};
}

const std::string kQzk = QZK_PATH;

// 16-bit mono PCM at 8000 Hz.
const Bytes kFmt = {1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80, 0x3E, 0, 0, 2, 0, 16, 0};

class QzkInput : public ::testing::Test {
protected:
    std::string write(const std::string& name, const Bytes& bytes) {
        const std::string path = dir_.file(name);
        qz::testing::write_file(path, bytes);
        return path;
    }
    qz::testing::TempDir dir_;
};

TEST_F(QzkInput, PipeGivesTheSameTreeAsTheFile) {
    // AIFF "COMM": 1 channel, 3 frames, 16 bits, 8000 Hz (big-endian samples: type 64).
    const Bytes comm = {0, 1, 0, 0, 0, 3, 0, 16, 0x40, 0x0B, 0xFA, 0, 0, 0, 0, 0, 0, 0};
    const struct {
        const char* name;
        Bytes bytes;
        const char* tree;  // after the file name line
        const char* type;  // of wavinfo
    } cases[] = {
        {"song.wav", riff("WAVE", chunk("fmt ", kFmt) + chunk("data", Bytes(6, 0))),
         "RIFF 'WAVE'  offset 0  size 42\n"
         "  'fmt '  offset 12  size 16\n"
         "  'data'  offset 36  size 6\n",
         "\"sample_type\": 17"},
        {"song.aiff",
         text("FORM") + be32(74) + text("AIFFCOMM") + be32(18) + comm + text("SSND") + be32(14) +
             Bytes(14, 0) + text("LIST") + be32(14) + text("INFONAME") + be32(2) + text("qz"),
         "FORM 'AIFF'  offset 0  size 74\n"
         "  'COMM'  offset 12  size 18\n"
         "  'SSND'  offset 38  size 14\n"
         "  'LIST' 'INFO'  offset 60  size 14\n"
         "    'NAME'  offset 72  size 2\n",
         "\"sample_type\": 64"},
    };
    for (const auto& c : cases) {
        const std::string path = write(c.name, c.bytes);
        const Outcome piped = run("cat '" + path + "' | " + kQzk + " chunks /dev/stdin");
        EXPECT_EQ(piped.status, 0);
        EXPECT_EQ(piped.out, std::string("/dev/stdin\n") + c.tree);
        for (const std::string& from :
             {"cat '" + path + "' | " + kQzk + " wavinfo /dev/stdin --json",
              kQzk + " wavinfo --json '" + path + "'"}) {
            const Outcome info = run(from);
            EXPECT_EQ(info.status, 0);
            EXPECT_NE(
                info.out.find(std::string("\"sample_rate\": 8000, \"channels\": 1, ") + c.type),
                std::string::npos)
                << info.out;
            EXPECT_NE(info.out.find("\"data_size\": 6"), std::string::npos) << info.out;
        }
    }
    // The data header past the head that wavinfo reads first.
    const std::string far =
        write("far.wav", riff("WAVE", chunk("fmt ", kFmt) + chunk("JUNK", Bytes(5000, 0)) +
                                          chunk("data", Bytes(8, 0))));
    const Outcome far_info = run(kQzk + " wavinfo --json '" + far + "'");
    EXPECT_EQ(far_info.status, 0);
    EXPECT_NE(far_info.out.find("\"data_size\": 8"), std::string::npos) << far_info.out;
}

TEST_F(QzkInput, FifoWithoutWriterEndsAtOnce) {
    const std::string fifo = dir_.file("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // timeout exits 124 when the command hangs.
    for (const char* command : {" chunks ", " wavinfo ", " cda "}) {
        const Outcome r = run("timeout 10 " + kQzk + command + "'" + fifo + "' 2>/dev/null");
        EXPECT_NE(r.status, 0) << command;
        EXPECT_NE(r.status, 124) << command;
        EXPECT_EQ(r.out, "") << command;
    }
}

TEST_F(QzkInput, DamagedFilesPrintWhatWasReadAndFail) {
    struct Case {
        const char* name;
        Bytes bytes;
        const char* tree;  // after the file name line
    } cases[] = {
        {"data cut short", riff("WAVE", chunk("fmt ", kFmt) + header("data", 100) + Bytes(4, 0)),
         "RIFF 'WAVE'  offset 0  size 40\n"
         "  'fmt '  offset 12  size 16\n"
         "  'data'  offset 36  size 100  (runs past the end of the file)\n"
         "damaged from offset 36: a chunk runs past the end of the file\n"},
        {"header cut short", riff("WAVE", chunk("fmt ", kFmt) + text("dat")),
         "RIFF 'WAVE'  offset 0  size 31\n"
         "  'fmt '  offset 12  size 16\n"
         "damaged from offset 36: 3 bytes are too few for a chunk header\n"},
        {"streamed size", text("RIFF") + le32(0xFFFFFFFF) + text("WAVE") + chunk("fmt ", kFmt),
         "RIFF 'WAVE'  offset 0  size 4294967295\n"
         "  'fmt '  offset 12  size 16\n"
         "damaged from offset 0: the RIFF size runs past the end of the file (36 bytes)\n"},
    };
    for (const Case& c : cases) {
        const std::string path = write("damaged.wav", c.bytes);
        const Outcome r = run(kQzk + " chunks '" + path + "' 2>/dev/null");
        EXPECT_EQ(r.status, 1) << c.name;
        EXPECT_EQ(r.out, path + "\n" + c.tree) << c.name;
    }
    const std::string path = write("cut.wav", cases[0].bytes);
    const Outcome json = run(kQzk + " chunks --json '" + path + "' 2>/dev/null");
    EXPECT_NE(json.out.find(", \"truncated\": true}], \"damage\": {\"offset\": 36, \"reason\": "
                            "\"a chunk runs past the end of the file\"}}"),
              std::string::npos)
        << json.out;
}

TEST_F(QzkInput, Wave64ShowsNamedLabelsFromFileAndPipeAndItsFormat) {
    const GUID other = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    const std::string path =
        write("tone.w64",
              qz::testing::riff64(w64("wave"),
                                  chunk64(w64("fmt "), kFmt) + chunk64(other, text("x")) +
                                      qz::testing::header64(w64("data"), 24 + 100) + Bytes(6, 0)));
    const std::string tree =
        "riff 'wave'  offset 0  size 118  (Wave64)\n"
        "  'fmt '  offset 40  size 16\n"
        "  '{12345678-9ABC-DEF0-0102-030405060708}'  offset 80  size 1\n"
        "  'data'  offset 112  size 100  (runs past the end of the file)\n"
        "damaged from offset 112: a chunk runs past the end of the file\n";
    for (const std::string& command :
         {kQzk + " chunks '" + path + "'", "cat '" + path + "' | " + kQzk + " chunks /dev/stdin"}) {
        const Outcome r = run(command + " 2>/dev/null");
        EXPECT_EQ(r.status, 1) << command;
        EXPECT_EQ(r.out.substr(r.out.find('\n') + 1), tree) << command;
    }
    const Outcome info = run(kQzk + " wavinfo --json '" + path + "'");
    EXPECT_NE(info.out.find("\"sample_rate\": 8000, \"channels\": 1"), std::string::npos)
        << info.out;
    EXPECT_NE(info.out.find("\"data_size\": 100"), std::string::npos) << info.out;
}

TEST(QzkTc, FormatShowsTheTimeInTheDisplayAskedFor) {
    struct Case {
        const char* args;
        int status;
        const char* out;
    };
    const Case cases[] = {
        {"--nanos 5999994000 --format smpte --rate 2", 0, "00:10:00;00\n"},
        {"--nanos 10000000 --format samples --sample-rate 44100 --rate 3", 0, "44100\n"},
        {"--nanos 123456789 --format measures --tempo 120 --signature 6/8", 0, "9:2:367\n"},
        // After an operation the time is that of the resulting timecode.
        {"1:0:0:0 --step 1 --format hms", 0, "01:00:00.033\n"},
        {"--json --rate 2 '00:10:00;00' --format frames", 0,
         "{\"nanos\": 5999994000, \"format\": \"frames\", \"text\": \"17982\"}\n"},
        {"--nanos 5 --format hmsms", 1, ""},
        {"--nanos 5 --tempo 120", 1, ""},
        {"--nanos 5 --format measures --signature 4/3", 1, ""},
    };
    for (const Case& c : cases) {
        const Outcome r = run(kQzk + " tc " + c.args + " 2>/dev/null");
        EXPECT_EQ(r.status, c.status) << c.args;
        EXPECT_EQ(r.out, c.out) << c.args;
    }
}

}  // namespace
