// CLog: filtering, tags, decorations, the message cut, rotation, sharing,
// copies and concurrent writers.
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/error_support.h"
#include "tests/support/faults.h"
#if QZ_TEST_FAULTS
#include "tests/support/fault_sweep.h"
#endif

namespace {

namespace fs = std::filesystem;
using qz::testing::native_exists;
using qz::testing::native_read;
using qz::testing::TempDir;
using qz::testing::wide;
using qz::testing::WString;

// A log file in a fresh folder for each test.
class LogFile : public ::testing::Test {
protected:
    // The file's text with "\n" line ends. Lines of Windows text files end
    // in "\r\n": there each line must, and the "\r" is dropped.
    static std::string read(const std::string& path) {
        const std::string text = native_read(path);
#if defined(_WIN32)
        std::string lines;
        for (size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
            EXPECT_TRUE(text[i] != '\n' || (i > 0 && text[i - 1] == '\r')) << "LF alone at " << i;
            lines += text[i];
        }
        return lines;
#else
        return text;
#endif
    }
    std::string contents() const { return read(path_); }
    std::string previous() const { return read(path_ + ".previous"); }

    TempDir dir_;
    const std::string path_ = dir_.file("app.log");
    const WString name_ = wide(path_);
};

TEST_F(LogFile, InitRefusesBadArgumentsAndWritingNeedsIt) {
    CLog log;
    EXPECT_EQ(log.Write(QZLOG_ERROR, nullptr, 0, QZTEXT("early")), QZE_INIT_FAILED);
    EXPECT_EQ(log.Init(nullptr, QZLOG_ALL_LEVELS, -1, 0), E_INVALIDARG);
    EXPECT_EQ(log.Init(QZTEXT(""), QZLOG_ALL_LEVELS, -1, 0), E_INVALIDARG);
    EXPECT_EQ(log.Init(name_.c_str(), 0, -1, 0), E_INVALIDARG);
    // The ".previous" name must fit 260 characters with its zero.
    const std::string stem = dir_.path() + qz::testing::kSeparator;
    const std::string longest = stem + std::string(250 - stem.size(), 'n');
    EXPECT_EQ(log.Init(wide(longest + "n").c_str(), QZLOG_ALL_LEVELS, -1, 0), E_INVALIDARG);
    EXPECT_FALSE(native_exists(longest + "n"));
    EXPECT_EQ(log.Init(wide(longest).c_str(), QZLOG_ALL_LEVELS, -1, 0), S_OK);
    EXPECT_EQ(log.Write(QZLOG_PLAIN, nullptr, 0, nullptr), E_POINTER);
    EXPECT_EQ(log.Write(QZLOG_PLAIN, nullptr, 0, QZTEXT("fits")), S_OK);
    log.Shutdown();
    EXPECT_EQ(log.Write(QZLOG_PLAIN, nullptr, 0, QZTEXT("late")), QZE_INIT_FAILED);
    EXPECT_EQ(read(longest), "fits\n");
    // A folder that cannot take the file leaves the log disabled.
    const WString missing = wide(dir_.file("missing/app.log"));
    EXPECT_EQ(log.Init(missing.c_str(), QZLOG_ALL_LEVELS, -1, 0), QZE_FILE_OPEN);
    EXPECT_EQ(log.Write(QZLOG_ERROR, nullptr, 0, QZTEXT("lost")), QZE_INIT_FAILED);
}

TEST_F(LogFile, MaskSelectsLevelsAndTagsNameThem) {
    {
        CLog warnings;
        ASSERT_EQ(warnings.Init(name_.c_str(), QZLOG_WARNING, -1, 0), S_OK);
        for (LOGFLAGS level : {QZLOG_ERROR, QZLOG_WARNING, QZLOG_PLAIN})
            warnings.Write(level, nullptr, 0, QZTEXT("level %u"), unsigned(level));
    }
    EXPECT_EQ(contents(), "WARNlevel 2\n");
    fs::remove(path_);

    // A limit of 0, as -1, is no limit: nothing moves. Shared for reading:
    // the file is read while the log has it open, which Windows refuses an
    // exclusive log.
    CLog log;
    ASSERT_EQ(log.Init(name_.c_str(), QZLOG_ALL_LEVELS, 0, QZLOG_SH_DENYWR), S_OK);
    // Each level writes its tag, mixed levels "????", and no level nothing.
    for (LOGFLAGS level : std::initializer_list<LOGFLAGS>{
             QZLOG_ERROR, QZLOG_WARNING, QZLOG_INFO, QZLOG_DEBUG, QZLOG_PLAIN, LOGFLAGS(0x3),
             LOGFLAGS(0x10001), LOGFLAGS(0x20), LOGFLAGS(0), QZLOG_TIME})
        EXPECT_EQ(log.Write(level, nullptr, 0, QZTEXT("m")), S_OK) << level;
    EXPECT_EQ(contents(), "ERR m\nWARNm\nINFOm\nDBG m\nm\n????m\n????m\n");
}

TEST_F(LogFile, DecorationsHaveTheirExactLayout) {
    {
        CLog log;
        ASSERT_EQ(log.Init(name_.c_str(), QZLOG_ALL_LEVELS | QZLOG_TIME | QZLOG_SOURCE, -1, 0),
                  S_OK);
        log.Write(QZLOG_ERROR, QZTEXT("C:\\src\\mixer.cpp"), 42, QZTEXT("gain %d dB"), -3);
    }
    {
        // The source position alone: a right-aligned name and line.
        CLog log;
        ASSERT_EQ(log.Init(name_.c_str(), QZLOG_ALL_LEVELS | QZLOG_SOURCE, -1, 0), S_OK);
        log.Write(QZLOG_INFO, QZTEXT("/home/dev/kernel/log.cpp"), 7, QZTEXT("a"));
        log.Write(QZLOG_PLAIN, nullptr, 12345, QZTEXT("b"));
        log.Write(QZLOG_DEBUG, QZTEXT("a_very_long_source_name.cpp"), -1, QZTEXT("c"));
    }
    const std::string text = contents();
    ASSERT_GE(text.size(), 24u) << text;
    // The time stamp, "yyyy-mm-dd hh:mm:ss", with every digit in its place.
    const std::string shape = "dddd-dd-dd dd:dd:dd";
    std::string stamp = text.substr(5, shape.size());
    for (char& c : stamp) c = std::isdigit(static_cast<unsigned char>(c)) ? 'd' : c;
    EXPECT_EQ(stamp, shape) << text;
    EXPECT_EQ(text.substr(0, 5) + text.substr(24),
              "ERR         mixer.cpp(  42): gain -3 dB\n"
              "INFO        log.cpp(   7): a\n"
              "               (12345): b\n"
              "DBG a_very_long_source_name.cpp(  -1): c\n");
}

TEST_F(LogFile, MessagesAreCutAt1023Characters) {
    {
        CLog log;
        ASSERT_EQ(log.Init(name_.c_str(), QZLOG_PLAIN, -1, 0), S_OK);
        const WString text(2000, WCHAR('m'));
        EXPECT_EQ(log.Write(QZLOG_PLAIN, nullptr, 0, QZTEXT("%s"), text.c_str()), S_OK);
        EXPECT_EQ(log.Write(QZLOG_PLAIN, nullptr, 0, WString(1023, WCHAR('n')).c_str()), S_OK);
    }
    EXPECT_EQ(contents(), std::string(1023, 'm') + "\n" + std::string(1023, 'n') + "\n");
}

TEST_F(LogFile, FileMovesToPreviousWhenItReachesTheLimit) {
    CLog log;  // shared for reading, as above
    ASSERT_EQ(log.Init(name_.c_str(), QZLOG_PLAIN, 1000, QZLOG_SH_DENYWR), S_OK);
    // Lines of 100 bytes (101 with Windows' line end); write() gives back the
    // line it wrote.
    auto write = [&](int i) {
        char text[32];
        std::snprintf(text, sizeof text, "line %04d ", i);
        const std::string line = text + std::string(89, '.');
        EXPECT_EQ(log.Write(QZLOG_PLAIN, nullptr, 0, wide(line).c_str()), S_OK) << i;
        return line + "\n";
    };
    std::string first, second;
    for (int i = 0; i < 10; ++i) first += write(i);
    EXPECT_EQ(contents(), first);  // exactly at the limit: not moved yet
    EXPECT_FALSE(native_exists(path_ + ".previous"));
    for (int i = 10; i < 20; ++i) second += write(i);
    EXPECT_EQ(previous(), first);
    const std::string last = write(20);
    EXPECT_EQ(previous(), second);  // the older copy is replaced
    EXPECT_EQ(contents(), last);
}

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
// Each platform call of a write that rotates fails in turn: the lines since
// the last rotation are kept, in one file or the other, the new line follows
// them when the write succeeds, and only a file that cannot be opened again
// stops the log.
TEST_F(LogFile, EachFailingCallOfARotationKeepsTheLines) {
    auto line = [](int i) { return "line " + std::to_string(i) + std::string(44, '.'); };
    auto text = [](const std::string& path) { return native_exists(path) ? read(path) : ""; };
    const std::string recent = line(2) + "\n" + line(3) + "\n";
    const HRESULT codes[] = {E_FAIL, QZE_FILE_WRITE, E_FAIL, E_FAIL, E_FAIL, QZE_FILE_OPEN, S_OK};
    std::unique_ptr<CLog> log;
    const unsigned runs = qz::testing::sweep_calls(
        [&]() -> qz::testing::FaultStep {
            log.reset();
            fs::remove(path_);
            fs::remove(path_ + ".previous");
            log = std::make_unique<CLog>();
            EXPECT_EQ(log->Init(name_.c_str(), QZLOG_PLAIN, 100, 0), S_OK);
            // Lines of 50 bytes: the third moves the first two away.
            for (int i = 0; i < 4; ++i) log->Write(QZLOG_PLAIN, nullptr, 0, wide(line(i)).c_str());
            return [&] { return log->Write(QZLOG_PLAIN, nullptr, 0, QZTEXT("last")); };
        },
        [&](qz::testing::FaultOp op, HRESULT hr) {
            EXPECT_EQ(hr, codes[int(op)]);
            const std::string all = text(path_ + ".previous") + text(path_);
            const std::string kept = recent + (hr == S_OK ? "last\n" : "");
            EXPECT_EQ(all.substr(all.size() - std::min(all.size(), kept.size())), kept);
            EXPECT_EQ(log->Write(QZLOG_PLAIN, nullptr, 0, QZTEXT("next")),
                      hr == QZE_FILE_OPEN ? QZE_INIT_FAILED : S_OK);
        });
    EXPECT_EQ(runs, 5u);  // two openings, the deletion, the renaming and the write
}
#endif

TEST_F(LogFile, CopiesOpenTheFileForThemselvesUnlessItIsExclusive) {
    auto shared = std::make_unique<CLog>();
    ASSERT_EQ(shared->Init(name_.c_str(), QZLOG_ALL_LEVELS, -1, QZLOG_SH_DENYNO), S_OK);
    CLog copy(*shared);
    EXPECT_EQ(copy.GetLogFileName(), name_);
    shared->Write(QZLOG_INFO, nullptr, 0, QZTEXT("original"));
    shared.reset();
    EXPECT_EQ(copy.Write(QZLOG_INFO, nullptr, 0, QZTEXT("copy")), S_OK);
    copy = copy;  // self-assignment keeps the file
    EXPECT_EQ(copy.Write(QZLOG_ERROR, nullptr, 0, QZTEXT("still")), S_OK);
    EXPECT_EQ(contents(), "INFOoriginal\nINFOcopy\nERR still\n");

    copy = CLog();
    EXPECT_EQ(copy.GetLogFileName()[0], 0);

    // The copy of an exclusive log stays disabled.
    CLog exclusive;
    ASSERT_EQ(exclusive.Init(name_.c_str(), QZLOG_ALL_LEVELS, 500, QZLOG_EXCLUSIVE), S_OK);
    CLog refused = exclusive;
    EXPECT_EQ(refused.GetLogFileName(), name_);
    EXPECT_EQ(refused.Write(QZLOG_INFO, nullptr, 0, QZTEXT("x")), QZE_INIT_FAILED);
    EXPECT_EQ(exclusive.Write(QZLOG_INFO, nullptr, 0, QZTEXT("y")), S_OK);
    exclusive.Shutdown();  // closed first: no other handle opens an exclusive log's file
    EXPECT_EQ(contents(), "INFOoriginal\nINFOcopy\nERR still\nINFOy\n");
}

// A log and its copy share one file, four writer threads each, with a limit
// that the lines pass once: every line ends up exactly once and whole in the
// previous file or the new one.
TEST_F(LogFile, TwoLogsOnOneFileKeepEveryLineOnceAndWhole) {
    if (qz::testing::running_under_wine())
        GTEST_SKIP() << "Wine appends through two handles with a seek and a write, which "
                        "interleave; Windows appends each write whole";
    constexpr int kLogs = 2, kThreads = 4, kLines = 2000;
    // About 560 KB of lines in all: a limit of 320 KB rotates exactly once.
    constexpr int limit = 320 * 1024;
    CLog original;
    ASSERT_EQ(original.Init(name_.c_str(), QZLOG_ALL_LEVELS, limit, QZLOG_SH_DENYNO), S_OK);
    CLog copy(original);
    CLog* logs[kLogs] = {&original, &copy};
    std::atomic<int> failures{0};
    std::vector<std::thread> writers;
    for (int h = 0; h < kLogs; ++h)
        for (int t = 0; t < kThreads; ++t)
            writers.emplace_back([&, h, t] {
                for (int i = 0; i < kLines; ++i)
                    if (logs[h]->Write(QZLOG_INFO, nullptr, 0, QZTEXT("h%d t%d n%05d %.*s|"), h,
                                       t, i, 5 + (i + t) % 23,
                                       QZTEXT("xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx")) != S_OK)
                        ++failures;
            });
    for (auto& w : writers) w.join();
    original.Shutdown();
    copy.Shutdown();
    EXPECT_EQ(failures.load(), 0);

    const std::string newer = contents();
    const std::string older = previous();
    EXPECT_GE(older.size(), size_t(limit));
    EXPECT_LT(newer.size(), size_t(limit));
    std::map<std::string, int> seen;
    std::istringstream lines(older + newer);
    std::string line;
    while (std::getline(lines, line)) {
        int h = -1, t = -1, i = -1;
        // A torn line breaks the shape or, run together with another,
        // the count of distinct lines below.
        ASSERT_EQ(std::sscanf(line.c_str(), "INFOh%d t%d n%d ", &h, &t, &i), 3)
            << "torn line: " << line;
        ASSERT_EQ(line.size(), 23 + size_t((i + t) % 23)) << "torn line: " << line;
        ++seen[line];
    }
    EXPECT_EQ(seen.size(), size_t(kLogs * kThreads * kLines)) << "lines lost";
    for (const auto& [text, times] : seen) ASSERT_EQ(times, 1) << text;
}

}  // namespace
