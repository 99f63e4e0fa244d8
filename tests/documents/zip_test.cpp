// Zip archives: the writer's records byte for byte, round trips through the
// reader, and the reader's answers to damaged and hostile archives.
#include <gtest/gtest.h>
#include <time.h>
#include <zlib.h>
#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#endif

#include <memory>
#include <utility>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/support/faults.h"
#if QZ_TEST_FAULTS
#include "tests/support/fault_sweep.h"
#endif
#include "platform/win32api.h"
#include "qzkernel.h"
#include "tests/support/platform_testing.h"

namespace {

using namespace qz::testing;

/* Appends little-endian fields, each {bytes, value}. */
void put(std::string& b, std::initializer_list<std::pair<int, uint64_t>> fields) {
    for (const auto& [bytes, value] : fields)
        for (int i = 0; i < bytes; ++i) b += char(i < 8 ? value >> (8 * i) : 0);
}

/* Raw deflate: zlib's stream without its 2-byte header and 4-byte check. */
std::string raw_deflate(const std::string& data) {
    std::string out(compressBound(uLong(data.size())), '\0');
    uLongf size = uLongf(out.size());
    compress2(reinterpret_cast<Bytef*>(out.data()), &size,
              reinterpret_cast<const Bytef*>(data.data()), uLong(data.size()), 6);
    return out.substr(2, size - 6);
}

uint32_t crc_of(const std::string& data) {
    return uint32_t(crc32(0, reinterpret_cast<const Bytef*>(data.data()), uInt(data.size())));
}

/* One entry of a hand-made archive; the builder lays out the records. */
struct Raw {
    std::string name, content;
    uint16_t method = 0, flags = 0;
    std::string extra = "";    // central extra field
    bool zip64_sizes = false;  // sizes all ones, the real ones in a ZIP64 block
};
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

std::string build(const std::vector<Raw>& entries, const std::string& comment = "") {
    std::string out, directory;
    for (const Raw& e : entries) {
        const std::string data = e.method == 8 ? raw_deflate(e.content) : e.content;
        const bool described = e.flags & 0x0008;  // sizes only in a descriptor after the data
        const uint32_t offset = uint32_t(out.size()), crc = crc_of(e.content);
        uint32_t packed = uint32_t(data.size()), size = uint32_t(e.content.size());
        std::string extra = e.extra;
        if (e.zip64_sizes) {
            put(extra, {{2, 0x0001}, {2, 16}, {8, size}, {8, packed}});
            packed = size = 0xFFFFFFFF;
        }
        // clang-format off
        put(out, {{4, 0x04034B50}, {2, 20}, {2, e.flags}, {2, e.method}, {2, 0}, {2, 0x50CF},
                  {4, described ? 0 : crc}, {4, described ? 0 : packed},
                  {4, described ? 0 : size}, {2, e.name.size()}, {2, 0}});
        out += e.name + data;
        if (described) put(out, {{4, 0x08074B50}, {4, crc}, {4, packed}, {4, size}});
        put(directory, {{4, 0x02014B50}, {2, 20}, {2, 20}, {2, e.flags}, {2, e.method}, {2, 0},
                        {2, 0x50CF}, {4, crc}, {4, packed}, {4, size}, {2, e.name.size()},
                        {2, extra.size()}, {10, 0}, {4, offset}});
        // clang-format on
        directory += e.name + extra;
    }
    const size_t directory_at = out.size();
    out += directory;
    // clang-format off
    put(out, {{4, 0x06054B50}, {4, 0}, {2, entries.size()}, {2, entries.size()},
              {4, directory.size()}, {4, directory_at}, {2, comment.size()}});
    // clang-format on
    return out + comment;
}

/* `s` with `bytes` little-endian bytes of `value` written at `at`. */
std::string patch(std::string s, size_t at, int bytes, uint32_t value) {
    for (int i = 0; i < bytes; ++i) s[at + i] = char(value >> (8 * i));
    return s;
}

/* An archive open over a copy of `bytes` in a block of exactly their size,
   so that the sanitizer sees any read past them. */
struct Open {
    explicit Open(const std::string& bytes, DWORD flags = 0) : copy(new char[bytes.size()]) {
        bytes.copy(copy.get(), bytes.size());
        QZZIP_MEMORY memory{copy.get(), DWORD(bytes.size())};
        hr = QzZip_Open(reinterpret_cast<LPCWSTR>(&memory), flags | QZZIP_OPEN_MEMORY, &zip);
    }
    ~Open() { QzZip_Close(zip); }
    std::unique_ptr<char[]> copy;
    HRESULT hr;
    HQZZIP zip = nullptr;
};

/*
 * Gives a file the modification time that the writer stores as 2020-06-15
 * 12:34:56, a local time. On POSIX the zone is TZ's, set to UTC here; on
 * Windows it is the machine's, and the local time is turned into the file's
 * UTC time the way the system turns it back.
 */
void set_written_time(const TempDir& dir, const std::string& name) {
#if defined(_WIN32)
    const SYSTEMTIME local{2020, 6, 1, 15, 12, 34, 56, 0};
    FILETIME local_time, utc;
    ASSERT_TRUE(SystemTimeToFileTime(&local, &local_time));
    ASSERT_TRUE(LocalFileTimeToFileTime(&local_time, &utc));
    const HANDLE file = CreateFileW(dir.wide(name).c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &utc));
    CloseHandle(file);
#else
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    const struct timespec mtime[2] = {{1592224496, 0}, {1592224496, 0}};  // 2020-06-15 12:34:56
    ASSERT_EQ(::utimensat(AT_FDCWD, dir.file(name).c_str(), mtime, 0), 0);
#endif
}

TEST(ZipWriter, RecordsOfAFolderWithAnEmptyFile) {
    TempDir dir;
    native_make_folder(dir.file("top"));
    native_write(dir.file("top/e"), "");
    set_written_time(dir, "top/e");
    const time_t now = ::time(nullptr);
    CArchive archive;
    ASSERT_EQ(archive.Open(dir.wide("a.zip").c_str(), -1), S_OK);
    ASSERT_EQ(archive.AddEntryToArchive(dir.wide("top/").c_str(), nullptr, 0), S_OK);
    ASSERT_EQ(archive.AddCentralDirectory(), S_OK);
    archive.Close();

    // clang-format off
    const std::string expected(
        // the folder's local header, at 0
        "PK\x03\x04" "\x00\x00" "\x00\x00" "\x08\x00"  // signature, version 0, flags, method 8
        "TTDD" "\x00\x00\x00\x00"                      // UTC time and date (checked below), CRC
        "\x00\x00\x00\x00" "\x00\x00\x00\x00"          // compressed and uncompressed size
        "\x04\x00" "\x00\x00" "top\\"                  // name length, extra length, name
        // the file's, at 34
        "PK\x03\x04" "\x14\x00" "\x00\x00" "\x08\x00"  // signature, version 20, flags, method
        "\x5C\x64" "\xCF\x50" "\x00\x00\x00\x00"       // 12:34:56, 2020-06-15, CRC of nothing
        "\x02\x00\x00\x00" "\x00\x00\x00\x00"          // an empty deflate stream; size 0
        "\x05\x00" "\x00\x00" "top\\e" "\x03\x00"      // name length, extra length, name, stream
        // the folder's central header, at 71
        "PK\x01\x02" "\x00\x00" "\x00\x00" "\x00\x00"  // signature, made by 0, version 0, flags
        "\x08\x00" "TTDD" "\x00\x00\x00\x00"           // method, time and date, CRC
        "\x00\x00\x00\x00" "\x00\x00\x00\x00"          // sizes
        "\x04\x00" "\x00\x00" "\x00\x00" "\x00\x00"    // name, extra, comment length, first disk
        "\x01\x00" "\x00\x00\x00\x00"                  // internal attributes (text), external
        "\x00\x00\x00\x00" "top\\"                     // local header offset, name
        // the file's, at 121
        "PK\x01\x02" "\x00\x00" "\x14\x00" "\x00\x00" "\x08\x00" "\x5C\x64\xCF\x50"
        "\x00\x00\x00\x00" "\x02\x00\x00\x00" "\x00\x00\x00\x00" "\x05\x00" "\x00\x00"
        "\x00\x00" "\x00\x00" "\x01\x00" "\x00\x00\x00\x00" "\x22\x00\x00\x00" "top\\e"
        // the end record, at 172
        "PK\x05\x06" "\x00\x00" "\x00\x00"             // signature, this disk, directory's disk
        "\x02\x00" "\x02\x00" "\x65\x00\x00\x00"       // entries here, in all; directory size 101
        "\x47\x00\x00\x00" "\x00\x00",                 // directory offset 71, comment length
        194);
    // clang-format on
    std::string actual = native_read(dir.file("a.zip"));
    ASSERT_EQ(actual.size(), expected.size());
    struct tm utc;
#if defined(_WIN32)
    ::gmtime_s(&utc, &now);
#else
    ::gmtime_r(&now, &utc);
#endif
    const unsigned dos_date = ((utc.tm_year - 80) << 9) | ((utc.tm_mon + 1) << 5) | utc.tm_mday;
    for (size_t folder_time : {size_t(10), size_t(83)}) {
        EXPECT_EQ(uint8_t(actual[folder_time + 2]) | uint8_t(actual[folder_time + 3]) << 8,
                  dos_date);
        actual.replace(folder_time, 4, "TTDD");
    }
    EXPECT_EQ(actual, expected);
}

TEST(ZipWriter, DoArchiveChecksSpaceOpensAndKeepsWhatWasWritten) {
    TempDir dir;
    native_write(dir.file("small"), "x");
    // 4 TiB of holes: 2^32 KiB, which never fits. (Windows makes the hole
    // where the file system keeps sparse files; Wine's file systems do.)
    native_write(dir.file("huge"), "");
    qz::testing::native_resize(dir.file("huge"), 1ULL << 42);
    const WString small = dir.wide("small"), huge = dir.wide("huge"),
                         missing = dir.wide("missing");
    // bytes: of the archive written ("<missing>" has 9)
    // clang-format off
    const struct { std::vector<const WCHAR*> paths; const char* archive; HRESULT result;
                   size_t bytes; } cases[] = {
        {{}, "empty.zip", S_OK, 22},
        {{huge.c_str(), small.c_str()}, "huge.zip", QZE_DISK_FULL, 9},
        {{small.c_str()}, "no/such/folder.zip", QZE_FILE_CREATE, 9},
        // The failed path ends the job, but the directory is still written:
        // one entry of 30 + 5 + 3 bytes, its 46 + 5 in the directory, the end.
        {{small.c_str(), nullptr, missing.c_str(), small.c_str()}, "partial.zip", S_OK, 111},
    };
    // clang-format on
    for (const auto& c : cases) {
        tQZLIST* list = nullptr;
        ASSERT_EQ(QzList_CreateExZ(&list, sizeof(void*), 0, 0, 0, 0, 0, 0), S_OK);
        for (const WCHAR* p : c.paths) QzList_InsertList(list, -1, &p, 1);
        CArchive archive;
        EXPECT_EQ(archive.DoArchive(dir.wide(c.archive).c_str(), list, 6), c.result) << c.archive;
        QzList_Destroy(list);
        EXPECT_EQ(native_read(dir.file(c.archive)).size(), c.bytes) << c.archive;
    }
    // An empty list gives the end record alone.
    EXPECT_EQ(native_read(dir.file("empty.zip")),
              std::string("PK\x05\x06", 4) + std::string(18, '\0'));
}

/* Cancels at the Nth question and records the positions it was told. */
struct Progress : IQzProgress {
    explicit Progress(int stop = 0) : stop(stop) {}
    HRESULT QZ_STDCALL QueryCancel() override { return ++asked == stop ? QZE_CANCELLED : S_OK; }
    HRESULT QZ_STDCALL SetPosition(ULONGLONG at) override { return positions.push_back(at), S_OK; }
    int stop, asked = 0;
    std::vector<ULONGLONG> positions;
};

std::string sample(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = seed % 2 ? char(random()) : "the quick brown fox "[random() % 20];
    return bytes;
}

TEST(ZipRoundTrip, WhatTheWriterAddsTheReaderGivesBackFromEverySource) {
    TempDir dir;
    for (const char* folder : {"tree", "tree/empty", "tree/sub"})
        native_make_folder(dir.file(folder));
    // Sizes around the 128 KiB pieces; odd ones in the sub-folder, random bytes.
    const size_t sizes[] = {0, 1, 131072, 131073, 300001, 400000};
    auto name = [](size_t i) { return (i % 2 ? "tree/sub/f" : "tree/f") + std::to_string(i); };
    for (size_t i = 0; i < 6; ++i) native_write(dir.file(name(i)), sample(sizes[i], unsigned(i)));
    CArchive writer;
    ASSERT_EQ(writer.Open(dir.wide("t.zip").c_str(), 6), S_OK);
    ASSERT_EQ(writer.AddEntryToArchive(dir.wide("tree").c_str(), nullptr, 0), S_OK);
    ASSERT_EQ(writer.AddCentralDirectory(), S_OK);
    writer.Close();

    const std::string bytes = native_read(dir.file("t.zip"));
#if defined(_WIN32)
    // Resources are compiled into a module on Windows: the archive made here
    // cannot become one (zip_test.rc holds a resource made beforehand).
    const int sources = 2;
#else
    ASSERT_TRUE(QzPosix_AddResource(nullptr, QZTEXT("ZIP"), QZTEXT("TREE"), bytes.data(), DWORD(bytes.size())));
    const int sources = 3;
#endif
    for (int source = 0; source < sources; ++source) {
        HQZZIP zip = nullptr;
        QZZIP_MEMORY memory{bytes.data(), DWORD(bytes.size())};
        ASSERT_EQ(source == 0 ? QzZip_Open(dir.wide("t.zip").c_str(), 0, &zip)
                  : source == 1
                      ? QzZip_Open(reinterpret_cast<LPCWSTR>(&memory), QZZIP_OPEN_MEMORY, &zip)
                      : QzZip_OpenResource(QZTEXT("tree"), 0, &zip, nullptr),
                  S_OK);
        EXPECT_EQ(QzZipEnum_GetFileCount(zip), 6u + 3u);
        for (size_t i = 0; i < 6; ++i) {
            WString stored = qz::testing::wide(name(i));
            std::replace(stored.begin(), stored.end(), QZTEXT('/'), QZTEXT('\\'));
            void* data = nullptr;
            DWORD size = 0;
            EXPECT_EQ(QzZip_ExtractToMemory(zip, stored.c_str(), &data, &size), S_OK) << i;
            EXPECT_EQ(std::string(static_cast<char*>(data), size), sample(sizes[i], unsigned(i)));
            if (data) GlobalFree(GlobalHandle(data));
        }
        QzZip_Close(zip);
    }
    HQZZIP zip = nullptr;
    EXPECT_EQ(QzZip_OpenResource(QZTEXT("absent"), 0, &zip, nullptr), HRESULT(0x80070716));
#if defined(_WIN32)
    // The program's own resource: an archive of one stored entry "a" of "hi".
    ASSERT_EQ(QzZip_OpenResource(QZTEXT("one"), 0, &zip, nullptr), S_OK);
    void* data = nullptr;
    DWORD size = 0;
    EXPECT_EQ(QzZip_ExtractToMemory(zip, QZTEXT("a"), &data, &size), S_OK);
    EXPECT_EQ(std::string(static_cast<char*>(data), size), "hi");
    if (data) GlobalFree(GlobalHandle(data));
    QzZip_Close(zip);
#else
    QzPosix_RemoveResource(nullptr, QZTEXT("ZIP"), QZTEXT("TREE"));
#endif
}

TEST(ZipWriter, ProgressSeesEachPieceAndCancelLeavesNoDirectory) {
    TempDir dir;
    native_write(dir.file("f"), sample(400000, 1));
    for (int cancel_at : {0, 2}) {
        Progress progress(cancel_at);
        CArchive writer;
        ASSERT_EQ(writer.Open(dir.wide("p.zip").c_str(), 1), S_OK);
        EXPECT_EQ(writer.AddEntryToArchive(dir.wide("f").c_str(), &progress, 0),
                  cancel_at ? QZE_CANCELLED : S_OK);
        if (!cancel_at) writer.AddCentralDirectory();
        writer.Close();
        const std::vector<ULONGLONG> all = {131072, 262144, 393216, 400000, 400000};
        EXPECT_EQ(progress.positions, cancel_at ? std::vector<ULONGLONG>{131072} : all);
        HQZZIP zip = nullptr;
        EXPECT_EQ(QzZip_Open(dir.wide("p.zip").c_str(), 0, &zip),
                  cancel_at ? QZE_CORRUPT_OR_UNKNOWN : S_OK);
        Progress cancel(1);  // extraction cancels the same way, and removes its file
        const HRESULT hr = QzZip_ExtractFile(zip, QZTEXT("f"), dir.wide("x").c_str(), 0, &cancel);
        EXPECT_EQ(hr, zip ? QZE_CANCELLED : E_INVALIDARG);
        EXPECT_FALSE(native_exists(dir.file("x")));
        QzZip_Close(zip);
    }
}

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
// Each platform call of a job fails in turn: the step's code comes back,
// and a directory written after the failure lists whole entries only.
TEST(ZipWriter, EachFailingCallGivesItsCodeAndLeavesWholeEntries) {
    TempDir dir;
    native_make_folder(dir.file("in"));
    const std::string big = sample(300001, 1);  // random bytes: several writes of output
    native_write(dir.file("in/f"), big);
    native_write(dir.file("in/g"), "small");
    HRESULT directory = S_OK;
    const std::set<HRESULT> codes[] = {{QZE_FILE_READ}, {QZE_FILE_WRITE}, {QZE_FILE_WRITE}, {},
                                       {E_OUTOFMEMORY}, {QZE_FILE_CREATE, QZE_FILE_OPEN}, {}};
    const unsigned runs = qz::testing::sweep_calls(
        [&]() -> qz::testing::FaultStep {
            qz::testing::native_remove(dir.file("a.zip"));
            return [&] {
                CArchive writer;
                HRESULT hr = writer.Open(dir.wide("a.zip").c_str(), 6);
                directory = SUCCEEDED(hr) ? S_OK : E_FAIL;
                if (SUCCEEDED(hr))
                    hr = writer.AddEntryToArchive(dir.wide("in").c_str(), nullptr, 0);
                if (SUCCEEDED(directory)) directory = writer.AddCentralDirectory();
                return FAILED(hr) ? hr : directory;
            };
        },
        [&](FaultOp op, HRESULT hr) {
            EXPECT_TRUE(codes[int(op)].count(hr)) << std::hex << hr;
            const std::string bytes = native_read(dir.file("a.zip"));
            Open archive(bytes);
            ASSERT_EQ(archive.hr, directory == S_OK ? S_OK : QZE_CORRUPT_OR_UNKNOWN);
            for (const auto& [name, content] :
                 {std::pair{QZTEXT("in\\f"), big}, {QZTEXT("in\\g"), "small"}}) {
                void* data = nullptr;
                DWORD size = 0;
                const HRESULT got = QzZip_ExtractToMemory(archive.zip, name, &data, &size);
                // Not listed (or no archive at all), or whole.
                EXPECT_TRUE(got == QZE_NOT_FOUND || got == E_INVALIDARG ||
                            (got == S_OK &&
                             std::string(static_cast<char*>(data), size) == content));
                if (data) GlobalFree(GlobalHandle(data));
            }
        });
    EXPECT_GT(runs, 30u);
    EXPECT_EQ(CArchive().AddCentralDirectory(), S_OK);  // never opened: nothing to write
}
#endif

TEST(ZipReader, DamagedArchivesAreRefusedBeforeTheirSizesAreTrusted) {
    const std::string hello = "hello, hello, hello";
    const std::string stored = build({{"a", hello}});  // local 0..49, central 50..96, end 97
    const std::string deflated = build({{"a", hello, 8}});
    const size_t end = stored.size() - 22, deflated_central = deflated.size() - 22 - 47;
    auto put16 = [](std::string s, size_t at, unsigned v) { return patch(s, at, 2, v); };
    auto put32 = [](std::string s, size_t at, uint32_t v) { return patch(s, at, 4, v); };
    // clang-format off
    const struct { const char* what; std::string bytes; HRESULT open, extract; } cases[] = {
        {"valid", stored, S_OK, S_OK},
        {"shorter than an end record", stored.substr(end + 1), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"no end record", stored.substr(0, end), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"comment with a false end record",
         put16(stored, end + 20, 26) + "PK\x05\x06" + std::string(22, 'x'), S_OK, S_OK},
        {"comment past the end", put16(stored, end + 20, 1), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"directory past the end record", put32(stored, end + 16, 60), QZE_CORRUPT_OR_UNKNOWN, 0},
        // Offset and size add up past 4 GiB; in 32 bits they would wrap to 16.
        {"directory past 4 GiB", put32(put32(stored, end + 12, 32), end + 16, 0xFFFFFFF0),
         QZE_CORRUPT_OR_UNKNOWN, 0},
        {"second disk", put16(stored, end + 4, 1), QZE_UNSUPPORTED_FORMAT, 0},
        {"count wrong", put16(put16(stored, end + 8, 2), end + 10, 2), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"bad central signature", put32(stored, 50, 0), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"name past the directory", put16(stored, 50 + 28, 200), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"local header past the data", put32(stored, 50 + 42, 40), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"no local signature", put32(stored, 0, 0), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"stored sizes differ", put32(stored, 50 + 24, 20), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"sizes past the data", put32(put32(stored, 50 + 20, 1000), 50 + 24, 1000), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
        {"CRC mismatch", put32(stored, 50 + 16, 1), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"unknown method", put16(stored, 50 + 10, 12), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"encrypted", put16(stored, 50 + 8, 1), S_OK, QZE_UNSUPPORTED_FORMAT},
        {"size one more", put32(deflated, deflated_central + 24, 20), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"size one less", put32(deflated, deflated_central + 24, 18), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"cut short", put32(deflated, deflated_central + 20, 4), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"absurd ratio", put32(deflated, deflated_central + 24, 0xFFFFFFF0), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        // Both directory records name the first local header: its data would
        // be extracted twice over (the overlapping-entries bomb).
        {"entries share data", put32(build({{"a", hello}, {"b", hello}}), 100 + 47 + 42, 0), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
        // The local header's name is 51 bytes where the directory says 1: the
        // data it leads to is the next entry's.
        {"local name runs into the next entry", put16(build({{"a", hello}, {"b", hello}}), 26, 51),
         S_OK, QZE_CORRUPT_OR_UNKNOWN},
    };
    // clang-format on
    TempDir dir;
    const WString target = dir.wide("a");
    for (const auto& c : cases) {
        Open archive(c.bytes);
        EXPECT_EQ(archive.hr, c.open) << c.what;
        if (FAILED(archive.hr)) continue;
        // A failed extraction leaves no partial file behind.
        EXPECT_EQ(QzZip_ExtractFile(archive.zip, QZTEXT("a"), target.c_str(), 0, nullptr), c.extract);
        EXPECT_EQ(native_read(dir.file("a")), c.extract ? "<missing>" : hello) << c.what;
        qz::testing::native_remove(dir.file("a"));
    }
}

TEST(ZipReader, ExtractionNeverLeavesTheTargetFolder) {
    std::vector<Raw> entries;
    for (const char* name : {"ok.txt", "../up.txt", "/abs.txt", "\\back.txt", "C:drive.txt",
                             "a/../../x.txt", "sub/in.txt", "sub\\..\\y.txt", ". ./z.txt"})
        entries.push_back({name, "data"});
    entries.push_back({std::string("nul\0.txt", 8), "data"});  // would be cut to "nul"
    const std::string bytes = build(entries);
    TempDir dir;
    const WString out = dir.wide("out");
    Open archive(bytes);
    EXPECT_EQ(QzZip_ExtractAll(archive.zip, out.c_str(), 0, nullptr), QZE_BAD_FILE_NAME);
    EXPECT_EQ(native_read(dir.file("out/ok.txt")), "data");
    EXPECT_EQ(native_read(dir.file("out/sub/in.txt")), "data");
    for (const char* outside : {"up.txt", "x.txt", "y.txt", "out/y.txt", "/abs.txt", "out/nul"})
        EXPECT_FALSE(native_exists(outside[0] == '/' ? outside : dir.file(outside))) << outside;

    // The safe walk shows only what can be extracted; an unsafe override is refused too.
    HQZZIPENUM walk = nullptr;
    ASSERT_EQ(QzZipEnum_Create(archive.zip, &walk), S_OK);
    std::vector<DWORD> seen;
    QZZIPENTRYINFO info;
    while (QzZipEnum_NextSafe(walk, &info) == S_OK) seen.push_back(info.index);
    EXPECT_EQ(seen, (std::vector<DWORD>{0, 6}));
    QzZipEnum_Destroy(walk);
    ASSERT_EQ(QzZipEnum_Create(archive.zip, &walk), S_OK);
    ASSERT_EQ(QzZipEnum_Next(walk, nullptr), S_OK);
    EXPECT_EQ(QzZipEnum_Extract(walk, out.c_str(), QZTEXT("..\\z"), 0, nullptr), QZE_BAD_FILE_NAME);
    EXPECT_EQ(QzZipEnum_Extract(walk, out.c_str(), QZTEXT("renamed"), 0, nullptr), S_OK);
    const DWORD keep = QZZIP_EXTRACT_NO_OVERWRITE;
    EXPECT_EQ(QzZipEnum_Extract(walk, out.c_str(), QZTEXT("renamed"), keep, nullptr), QZE_FILE_EXISTS);
    EXPECT_EQ(native_read(dir.file("out/renamed")), "data");
    QzZipEnum_Destroy(walk);
}

TEST(ZipReader, NamesAndSizesFromOtherWriters) {
    // Info-ZIP's Unicode path block: version 1, CRC of the stored name, UTF-8 name.
    std::string unicode_path;
    put(unicode_path, {{2, 0x7075}, {2, 5 + 5}, {1, 1}, {4, crc_of("caf?.txt")}});
    unicode_path += "caf\xC3\xA9";
    // clang-format off
    const struct { Raw entry; WString name; } cases[] = {
        {{"utf8-\xC3\xA9.txt", "abc", 0, 0x0800}, QZTEXT("utf8-\u00E9.txt")},
        {{"ansi-\xE9\x80.txt", "abc"}, QZTEXT("ansi-\u00E9\u20AC.txt")},
        {{"described.txt", "abcdef", 8, 0x0008}, QZTEXT("described.txt")},
        {{"zip64.txt", "abcdefgh", 0, 0, "", true}, QZTEXT("zip64.txt")},
        {{"caf?.txt", "abc", 0, 0, unicode_path}, QZTEXT("caf\u00E9")},
    };
    // clang-format on
    for (const auto& c : cases) {
        const std::string bytes = build({c.entry});
        Open archive(bytes);
        HQZZIPENUM walk = nullptr;
        ASSERT_EQ(QzZipEnum_Create(archive.zip, &walk), S_OK) << c.entry.name;
        QzZip_Close(std::exchange(archive.zip, nullptr));  // the enumerator keeps the archive
        WCHAR name[64];
        EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 64), QZE_NOT_FOUND);  // before the first
        QZZIPENTRYINFO info;
        ASSERT_EQ(QzZipEnum_Next(walk, &info), S_OK);
        EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 4), QZE_BUFFER_TOO_SMALL);
        EXPECT_EQ(WString(name), c.name.substr(0, 3));
        EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 64), S_OK);
        EXPECT_EQ(WString(name), c.name);
        std::string content(info.uncompressed_size, '\0');
        EXPECT_EQ(QzZipEnum_ExtractToMemory(walk, content.data(), 2), QZE_BUFFER_TOO_SMALL);
        EXPECT_EQ(QzZipEnum_ExtractToMemory(walk, content.data(), DWORD(content.size())), S_OK);
        EXPECT_EQ(content, c.entry.content) << c.entry.name;
        EXPECT_EQ(QzZipEnum_Next(walk, &info), S_FALSE);
        QzZipEnum_Destroy(walk);
    }
}

}  // namespace
