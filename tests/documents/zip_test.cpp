// Zip archives: the writer's records byte for byte, round trips through the
// reader, and the reader's answers to damaged and hostile archives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <zlib.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/posix/fault_plan.h"
#include "platform/win32api.h"
#include "qzkernel.h"
#include "support/platform_testing.h"

namespace {

using qz::testing::FaultOp;
using qz::testing::FaultPlan;
using qz::testing::native_exists;
using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::ScratchDir;

void le16(std::string& b, unsigned v) {
    b += char(v & 0xFF);
    b += char((v >> 8) & 0xFF);
}
void le32(std::string& b, uint32_t v) {
    le16(b, v & 0xFFFF);
    le16(b, v >> 16);
}

std::string raw_deflate(const std::string& data) {
    z_stream z{};
    deflateInit2(&z, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&z, data.size()), '\0');
    z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    z.avail_in = uInt(data.size());
    z.next_out = reinterpret_cast<Bytef*>(out.data());
    z.avail_out = uInt(out.size());
    deflate(&z, Z_FINISH);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

uint32_t crc_of(const std::string& data) {
    return uint32_t(crc32(0, reinterpret_cast<const Bytef*>(data.data()), uInt(data.size())));
}

/* One entry of a hand-made archive; the builder lays out the records. */
struct Raw {
    Raw(std::string name, std::string content, uint16_t method = 0, uint16_t flags = 0,
        std::string extra = "", bool zip64_sizes = false)
        : name(name), content(content), method(method), flags(flags), extra(extra),
          zip64_sizes(zip64_sizes) {}
    std::string name;
    std::string content;
    uint16_t method;
    uint16_t flags;
    std::string extra;  // central extra field
    bool zip64_sizes;   // sizes all ones, the real ones in the extra field
};

std::string build(const std::vector<Raw>& entries, const std::string& comment = "") {
    std::string out, directory;
    for (const Raw& e : entries) {
        const std::string data = e.method == 8 ? raw_deflate(e.content) : e.content;
        const bool described = e.flags & 0x0008;  // sizes only after the data
        const uint32_t offset = uint32_t(out.size());
        std::string extra = e.extra;
        uint32_t compressed = uint32_t(data.size()), uncompressed = uint32_t(e.content.size());
        if (e.zip64_sizes) {
            le16(extra, 0x0001), le16(extra, 16);
            le32(extra, uncompressed), le32(extra, 0), le32(extra, compressed), le32(extra, 0);
            compressed = uncompressed = 0xFFFFFFFF;
        }
        le32(out, 0x04034B50), le16(out, 20), le16(out, e.flags), le16(out, e.method);
        le16(out, 0), le16(out, 0x50CF);
        le32(out, described ? 0 : crc_of(e.content));
        le32(out, described ? 0 : compressed), le32(out, described ? 0 : uncompressed);
        le16(out, unsigned(e.name.size())), le16(out, 0);
        out += e.name + data;
        if (described) le32(out, 0x08074B50), le32(out, crc_of(e.content)), le32(out, compressed),
            le32(out, uncompressed);
        le32(directory, 0x02014B50), le16(directory, 20), le16(directory, 20);
        le16(directory, e.flags), le16(directory, e.method), le16(directory, 0), le16(directory, 0x50CF);
        le32(directory, crc_of(e.content)), le32(directory, compressed), le32(directory, uncompressed);
        le16(directory, unsigned(e.name.size())), le16(directory, unsigned(extra.size()));
        le16(directory, 0), le16(directory, 0), le16(directory, 0), le32(directory, 0);
        le32(directory, offset);
        directory += e.name + extra;
    }
    const uint32_t directory_at = uint32_t(out.size());
    out += directory;
    le32(out, 0x06054B50), le16(out, 0), le16(out, 0);
    le16(out, unsigned(entries.size())), le16(out, unsigned(entries.size()));
    le32(out, uint32_t(directory.size())), le32(out, directory_at);
    le16(out, unsigned(comment.size()));
    return out + comment;
}

/* An archive open over bytes in memory (kept by the caller). */
struct Open {
    explicit Open(const std::string& bytes, DWORD flags = 0) {
        QZZIP_MEMORY memory{bytes.data(), DWORD(bytes.size())};
        hr = QzZip_Open(reinterpret_cast<LPCWSTR>(&memory), flags | QZZIP_OPEN_MEMORY, &zip);
    }
    ~Open() { QzZip_Close(zip); }
    HRESULT hr;
    HQZZIP zip = nullptr;
};

/* Extracts `name` to memory: the result code, and the bytes in *content. */
HRESULT extract(HQZZIP zip, const char16_t* name, std::string* content = nullptr) {
    void* data = nullptr;
    DWORD size = 0;
    const HRESULT hr = QzZip_ExtractToMemory(zip, name, &data, &size);
    if (content) content->assign(static_cast<const char*>(data), size);
    if (data) GlobalFree(GlobalHandle(data));
    return hr;
}

void set_utc_mtime(const std::string& path, int y, int mo, int d, int h, int mi, int s) {
    struct tm t{};
    t.tm_year = y - 1900, t.tm_mon = mo - 1, t.tm_mday = d, t.tm_hour = h, t.tm_min = mi, t.tm_sec = s;
    const struct timespec times[2] = {{timegm(&t), 0}, {timegm(&t), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(ZipWriter, RecordsOfAFolderWithAnEmptyFile) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    ScratchDir dir;
    ::mkdir(dir.native("top").c_str(), 0755);
    native_write(dir.native("top/e"), "");
    set_utc_mtime(dir.native("top/e"), 2020, 6, 15, 12, 34, 56);
    const time_t now = ::time(nullptr);
    CArchive archive;
    ASSERT_EQ(archive.Open(dir.wide("a.zip").c_str(), -1), S_OK);
    ASSERT_EQ(archive.AddEntryToArchive(dir.wide("top/").c_str(), nullptr, 0), S_OK);
    ASSERT_EQ(archive.AddCentralDirectory(), S_OK);
    archive.Close();

    const std::string expected(
        // folder, local header at 0
        "PK\x03\x04"          // signature
        "\x00\x00"            // version needed 0
        "\x00\x00"            // flags
        "\x08\x00"            // method 8, no data
        "TTDD"                // current UTC time and date (checked below)
        "\x00\x00\x00\x00"    // CRC
        "\x00\x00\x00\x00"    // compressed size
        "\x00\x00\x00\x00"    // uncompressed size
        "\x04\x00"            // name length
        "\x00\x00"            // extra length
        "top\\"
        // empty file, local header at 34
        "PK\x03\x04" "\x14\x00" "\x00\x00" "\x08\x00"
        "\x5C\x64"            // 12:34:56
        "\xCF\x50"            // 2020-06-15
        "\x00\x00\x00\x00"    // CRC of nothing
        "\x02\x00\x00\x00"    // an empty deflate stream is 2 bytes
        "\x00\x00\x00\x00" "\x05\x00" "\x00\x00" "top\\e"
        "\x03\x00"            // the stream
        // central header of the folder, at 71
        "PK\x01\x02"          // signature
        "\x00\x00"            // version made by 0
        "\x00\x00" "\x00\x00" "\x08\x00" "TTDD"
        "\x00\x00\x00\x00" "\x00\x00\x00\x00" "\x00\x00\x00\x00"
        "\x04\x00" "\x00\x00" // name, extra length
        "\x00\x00"            // comment length
        "\x00\x00"            // disk number start
        "\x01\x00"            // internal attributes: text
        "\x00\x00\x00\x00"    // external attributes
        "\x00\x00\x00\x00"    // local header offset
        "top\\"
        // central header of the file, at 121
        "PK\x01\x02" "\x00\x00" "\x14\x00" "\x00\x00" "\x08\x00" "\x5C\x64\xCF\x50"
        "\x00\x00\x00\x00" "\x02\x00\x00\x00" "\x00\x00\x00\x00" "\x05\x00" "\x00\x00"
        "\x00\x00" "\x00\x00" "\x01\x00" "\x00\x00\x00\x00"
        "\x22\x00\x00\x00"    // local header offset 34
        "top\\e"
        // end record, at 172
        "PK\x05\x06"          // signature
        "\x00\x00" "\x00\x00" // disks
        "\x02\x00" "\x02\x00" // entries here and in total
        "\x65\x00\x00\x00"    // directory size 101
        "\x47\x00\x00\x00"    // directory offset 71
        "\x00\x00",           // comment length
        194);
    std::string actual = native_read(dir.native("a.zip"));
    ASSERT_EQ(actual.size(), expected.size());
    struct tm utc;
    ::gmtime_r(&now, &utc);
    const unsigned dos_date = ((utc.tm_year - 80) << 9) | ((utc.tm_mon + 1) << 5) | utc.tm_mday;
    for (size_t folder_time : {size_t(10), size_t(83)}) {
        EXPECT_EQ(uint8_t(actual[folder_time + 2]) | uint8_t(actual[folder_time + 3]) << 8, dos_date);
        actual.replace(folder_time, 4, "TTDD");
    }
    EXPECT_EQ(actual, expected);
}

TEST(ZipWriter, DoArchiveChecksSpaceOpensAndKeepsWhatWasWritten) {
    ScratchDir dir;
    native_write(dir.native("small"), "x");
    // 4 TiB of holes: 2^32 KiB, which never fits.
    native_write(dir.native("huge"), "");
    ASSERT_EQ(::truncate(dir.native("huge").c_str(), 1LL << 42), 0);
    const std::u16string small = dir.wide("small"), huge = dir.wide("huge"),
                         missing = dir.wide("missing");
    const struct {
        std::vector<const char16_t*> paths;
        const char* archive;
        HRESULT result;
        int entries;  // in the archive written; -1: none
    } cases[] = {
        {{}, "empty.zip", S_OK, 0},
        {{huge.c_str(), small.c_str()}, "huge.zip", QZE_DISK_FULL, -1},
        {{small.c_str()}, "no/such/folder.zip", QZE_FILE_CREATE, -1},
        // The failed path ends the job, but the directory is still written.
        {{small.c_str(), nullptr, missing.c_str(), small.c_str()}, "partial.zip", S_OK, 1},
    };
    for (const auto& c : cases) {
        tQZLIST* list = nullptr;
        ASSERT_EQ(QzList_CreateExZ(&list, sizeof(void*), 0, 0, 0, 0, 0, 0), S_OK);
        for (const char16_t* p : c.paths) QzList_InsertList(list, -1, &p, 1);
        CArchive archive;
        EXPECT_EQ(archive.DoArchive(dir.wide(c.archive).c_str(), list, 6), c.result) << c.archive;
        QzList_Destroy(list);
        EXPECT_EQ(native_exists(dir.native(c.archive)), c.entries >= 0) << c.archive;
        if (c.entries < 0) continue;
        HQZZIP zip = nullptr;
        ASSERT_EQ(QzZip_Open(dir.wide(c.archive).c_str(), 0, &zip), S_OK) << c.archive;
        EXPECT_EQ(QzZipEnum_GetFileCount(zip), DWORD(c.entries)) << c.archive;
        QzZip_Close(zip);
    }
    // An empty list gives the end record alone.
    EXPECT_EQ(native_read(dir.native("empty.zip")), std::string("PK\x05\x06", 4) + std::string(18, '\0'));
}

/* Cancels at the Nth question and records the positions it was told. */
struct Progress : IQzProgress {
    explicit Progress(int cancel_at = 0) : cancel_at(cancel_at) {}
    HRESULT QZ_STDCALL QueryCancel() override { return ++asked == cancel_at ? QZE_CANCELLED : S_OK; }
    HRESULT QZ_STDCALL SetPosition(ULONGLONG position) override {
        positions.push_back(position);
        return S_OK;
    }
    int cancel_at, asked = 0;
    std::vector<ULONGLONG> positions;
};

std::string sample(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i)
        bytes[i] = seed % 2 ? char(random()) : "the quick brown fox "[(i + random() % 3) % 20];
    return bytes;
}

TEST(ZipRoundTrip, WhatTheWriterAddsTheReaderGivesBackFromEverySource) {
    ScratchDir dir;
    ::mkdir(dir.native("tree").c_str(), 0755);
    ::mkdir(dir.native("tree/empty").c_str(), 0755);
    ::mkdir(dir.native("tree/sub").c_str(), 0755);
    const std::vector<std::pair<std::string, size_t>> files = {
        {"tree/zero", 0}, {"tree/one", 1}, {"tree/sub/piece", 131072},
        {"tree/sub/piece_and_one", 131073}, {"tree/sub/random", 400000}, {"tree/text", 300001}};
    for (size_t i = 0; i < files.size(); ++i)
        native_write(dir.native(files[i].first), sample(files[i].second, unsigned(i)));
    CArchive writer;
    ASSERT_EQ(writer.Open(dir.wide("t.zip").c_str(), 6), S_OK);
    ASSERT_EQ(writer.AddEntryToArchive(dir.wide("tree").c_str(), nullptr, 0), S_OK);
    ASSERT_EQ(writer.AddCentralDirectory(), S_OK);
    writer.Close();

    const std::string bytes = native_read(dir.native("t.zip"));
    ASSERT_TRUE(QzPosix_AddResource(nullptr, u"ZIP", u"TREE", bytes.data(), DWORD(bytes.size())));
    for (int source = 0; source < 3; ++source) {
        HQZZIP zip = nullptr;
        QZZIP_MEMORY memory{bytes.data(), DWORD(bytes.size())};
        const HRESULT hr =
            source == 0   ? QzZip_Open(dir.wide("t.zip").c_str(), 0, &zip)
            : source == 1 ? QzZip_Open(reinterpret_cast<LPCWSTR>(&memory), QZZIP_OPEN_MEMORY, &zip)
                          : QzZip_OpenResource(u"tree", 0, &zip, nullptr);
        ASSERT_EQ(hr, S_OK) << source;
        EXPECT_EQ(QzZipEnum_GetFileCount(zip), files.size() + 3);
        ULONGLONG total = 0;
        EXPECT_EQ(QzZipEnum_GetTotalUncompressedSize(zip, &total), S_OK);
        EXPECT_EQ(total, 962147u);
        for (size_t i = 0; i < files.size(); ++i) {
            std::u16string name = qz::testing::widen(files[i].first);
            std::replace(name.begin(), name.end(), u'/', u'\\');
            std::string content;
            EXPECT_EQ(extract(zip, name.c_str(), &content), S_OK) << files[i].first;
            EXPECT_EQ(content, sample(files[i].second, unsigned(i))) << files[i].first;
        }
        QzZip_Close(zip);
    }
    EXPECT_EQ(QzZip_OpenResource(u"absent", 0, nullptr, nullptr), E_INVALIDARG);
    HQZZIP zip = nullptr;
    EXPECT_EQ(QzZip_OpenResource(u"absent", 0, &zip, nullptr), HRESULT(0x80070716));
    QzPosix_RemoveResource(nullptr, u"ZIP", u"TREE");

    // Extraction of the whole archive rebuilds the tree, empty folder included.
    ASSERT_EQ(QzZip_Open(dir.wide("t.zip").c_str(), 0, &zip), S_OK);
    Progress progress;
    EXPECT_EQ(QzZip_ExtractAll(zip, dir.wide("out").c_str(), 0, &progress), S_OK);
    EXPECT_EQ(progress.positions.back(), 962147u);
    QzZip_Close(zip);
    for (size_t i = 0; i < files.size(); ++i)
        EXPECT_EQ(native_read(dir.native("out/" + files[i].first)), sample(files[i].second, unsigned(i)));
    struct stat st;
    EXPECT_EQ(::stat(dir.native("out/tree/empty").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
}

TEST(ZipWriter, ProgressSeesEachPieceAndCancelLeavesNoDirectory) {
    ScratchDir dir;
    native_write(dir.native("f"), sample(400000, 1));
    for (int cancel_at : {0, 2}) {
        Progress progress(cancel_at);
        CArchive writer;
        ASSERT_EQ(writer.Open(dir.wide("p.zip").c_str(), 1), S_OK);
        EXPECT_EQ(writer.AddEntryToArchive(dir.wide("f").c_str(), &progress, 0),
                  cancel_at ? QZE_CANCELLED : S_OK);
        if (!cancel_at) writer.AddCentralDirectory();
        writer.Close();
        const std::vector<ULONGLONG> expected =
            cancel_at ? std::vector<ULONGLONG>{131072}
                      : std::vector<ULONGLONG>{131072, 262144, 393216, 400000, 400000};
        EXPECT_EQ(progress.positions, expected);
        HQZZIP zip = nullptr;
        EXPECT_EQ(QzZip_Open(dir.wide("p.zip").c_str(), 0, &zip),
                  cancel_at ? QZE_CORRUPT_OR_UNKNOWN : S_OK);
        QzZip_Close(zip);
    }
}

TEST(ZipWriter, PlatformFailuresGiveTheirCodes) {
    ScratchDir dir;
    native_write(dir.native("f"), sample(1000, 2));
    const struct {
        FaultOp op;
        unsigned nth;
        HRESULT result;
    } cases[] = {
        {FaultOp::Write, 1, QZE_FILE_WRITE},  // the local header
        {FaultOp::Write, 3, QZE_FILE_WRITE},  // the deflate output
        {FaultOp::Write, 4, QZE_FILE_WRITE},  // the CRC patch
        {FaultOp::Read, 1, QZE_FILE_READ},
        {FaultOp::Seek, 1, QZE_FILE_WRITE},
        {FaultOp::Alloc, 1, E_OUTOFMEMORY},   // the input buffer
    };
    for (const auto& c : cases) {
        CArchive writer;
        ASSERT_EQ(writer.Open(dir.wide("f.zip").c_str(), 6), S_OK);
        FaultPlan plan;
        plan.fail(c.op, c.nth);
        EXPECT_EQ(writer.AddEntryToArchive(dir.wide("f").c_str(), nullptr, 0), c.result)
            << int(c.op) << " " << c.nth;
        EXPECT_EQ(plan.failures(c.op), 1u);
    }
    CArchive writer;
    EXPECT_EQ(writer.AddEntryToArchive(dir.wide("f").c_str(), nullptr, 0), QZE_FILE_CREATE);
    EXPECT_EQ(writer.AddCentralDirectory(), S_OK);
}

TEST(ZipReader, DamagedArchivesAreRefusedBeforeTheirSizesAreTrusted) {
    const std::string hello = "hello, hello, hello";
    const std::string stored = build({{"a", hello}});  // local 0..49, central 50..96, end 97
    const std::string deflated = build({{"a", hello, 8}});
    const size_t end = stored.size() - 22, deflated_central = deflated.size() - 22 - 47;
    auto put32 = [](std::string s, size_t at, uint32_t v) {
        for (int i = 0; i < 4; ++i) s[at + i] = char(v >> (8 * i));
        return s;
    };
    auto put16 = [](std::string s, size_t at, unsigned v) {
        s[at] = char(v), s[at + 1] = char(v >> 8);
        return s;
    };
    const struct {
        const char* what;
        std::string bytes;
        HRESULT open, extract;
    } cases[] = {
        {"valid", stored, S_OK, S_OK},
        {"shorter than an end record", stored.substr(end + 1), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"no end record", stored.substr(0, end), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"comment with a false end record",
         put16(stored, end + 20, 26) + "PK\x05\x06" + std::string(22, 'x'), S_OK, S_OK},
        {"comment past the end", put16(stored, end + 20, 1), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"directory past the end record", put32(stored, end + 16, 60), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"second disk", put16(stored, end + 4, 1), QZE_UNSUPPORTED_FORMAT, 0},
        {"count disagrees", put16(put16(stored, end + 8, 2), end + 10, 2), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"bad central signature", put32(stored, 50, 0), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"name past the directory", put16(stored, 50 + 28, 200), QZE_CORRUPT_OR_UNKNOWN, 0},
        {"local header past the data", put32(stored, 50 + 42, 40), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"no local signature", put32(stored, 0, 0), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"stored sizes differ", put32(stored, 50 + 24, 20), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"CRC mismatch", put32(stored, 50 + 16, 1), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"unknown method", put16(stored, 50 + 10, 12), S_OK, QZE_CORRUPT_OR_UNKNOWN},
        {"encrypted", put16(stored, 50 + 8, 1), S_OK, QZE_UNSUPPORTED_FORMAT},
        {"deflate valid", deflated, S_OK, S_OK},
        {"deflate size one more", put32(deflated, deflated_central + 24, 20), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
        {"deflate size one less", put32(deflated, deflated_central + 24, 18), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
        {"deflate data cut short",
         put32(deflated, deflated_central + 20, uint32_t(raw_deflate(hello).size() - 1)), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
        {"absurd ratio", put32(deflated, deflated_central + 24, 0xFFFFFFF0), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
        // Both directory records name the first local header: its data would
        // be extracted twice over (the overlapping-entries bomb).
        {"entries share data", put32(build({{"a", hello}, {"b", hello}}), 100 + 47 + 42, 0), S_OK,
         QZE_CORRUPT_OR_UNKNOWN},
    };
    for (const auto& c : cases) {
        Open archive(c.bytes);
        EXPECT_EQ(archive.hr, c.open) << c.what;
        if (FAILED(archive.hr)) continue;
        std::string content;
        EXPECT_EQ(extract(archive.zip, u"a", &content), c.extract) << c.what;
        if (SUCCEEDED(c.extract)) {
            EXPECT_EQ(content, hello) << c.what;
        }
    }
}

TEST(ZipReader, ExtractionNeverLeavesTheTargetFolder) {
    const std::vector<std::string> names = {"ok.txt",      "../up.txt",     "/abs.txt",
                                            "\\back.txt",  "C:drive.txt",   "a/../../x.txt",
                                            "sub/in.txt",  "sub\\..\\y.txt"};
    std::vector<Raw> entries;
    for (const std::string& name : names) entries.push_back({name, "data"});
    const std::string bytes = build(entries);
    ScratchDir dir;
    Open archive(bytes);
    ASSERT_EQ(archive.hr, S_OK);
    EXPECT_EQ(QzZip_ExtractAll(archive.zip, dir.wide("out").c_str(), 0, nullptr), QZE_BAD_FILE_NAME);
    EXPECT_EQ(native_read(dir.native("out/ok.txt")), "data");
    EXPECT_EQ(native_read(dir.native("out/sub/in.txt")), "data");
    for (const char* outside : {"up.txt", "x.txt", "y.txt", "out/y.txt", "/abs.txt"})
        EXPECT_FALSE(native_exists(outside[0] == '/' ? outside : dir.native(outside))) << outside;

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
    EXPECT_EQ(QzZipEnum_Extract(walk, dir.wide("out").c_str(), u"..\\z", 0, nullptr), QZE_BAD_FILE_NAME);
    EXPECT_EQ(QzZipEnum_Extract(walk, dir.wide("out").c_str(), u"renamed", 0, nullptr), S_OK);
    EXPECT_EQ(QzZipEnum_Extract(walk, dir.wide("out").c_str(), u"renamed", QZZIP_EXTRACT_NO_OVERWRITE,
                                nullptr),
              QZE_FILE_EXISTS);
    EXPECT_EQ(native_read(dir.native("out/renamed")), "data");
    QzZipEnum_Destroy(walk);
}

TEST(ZipReader, AFailedExtractionRemovesItsFile) {
    std::string bytes = build({{"a", "payload"}});
    bytes[38 + 16] ^= 1;  // the CRC in the directory
    ScratchDir dir;
    Open archive(bytes);
    ASSERT_EQ(archive.hr, S_OK);
    EXPECT_EQ(QzZip_ExtractFile(archive.zip, u"a", dir.wide("a").c_str(), 0, nullptr),
              QZE_CORRUPT_OR_UNKNOWN);
    EXPECT_FALSE(native_exists(dir.native("a")));
    Progress cancel(1);
    EXPECT_EQ(QzZip_ExtractFile(archive.zip, u"a", dir.wide("a").c_str(), 0, &cancel), QZE_CANCELLED);
    EXPECT_FALSE(native_exists(dir.native("a")));
}

TEST(ZipReader, NamesAndSizesFromOtherWriters) {
    // Info-ZIP's Unicode path block: version 1, CRC of the stored name, UTF-8 name.
    std::string unicode_path;
    le16(unicode_path, 0x7075), le16(unicode_path, 5 + 5), unicode_path += '\x01';
    le32(unicode_path, crc_of("caf?.txt")), unicode_path += "caf\xC3\xA9";
    const struct {
        Raw entry;
        std::u16string name;
    } cases[] = {
        {{"plain.txt", "abc", 8}, u"plain.txt"},
        {{"utf8-\xC3\xA9.txt", "abc", 0, 0x0800}, u"utf8-\u00E9.txt"},
        {{"ansi-\xE9\x80.txt", "abc"}, u"ansi-\u00E9\u20AC.txt"},
        {{"described.txt", "abcdef", 8, 0x0008}, u"described.txt"},
        {{"zip64.txt", "abcdefgh", 0, 0, "", true}, u"zip64.txt"},
        {{"caf?.txt", "abc", 0, 0, unicode_path}, u"caf\u00E9"},
    };
    for (const auto& c : cases) {
        const std::string bytes = build({c.entry});
        Open archive(bytes);
        ASSERT_EQ(archive.hr, S_OK) << c.entry.name;
        HQZZIPENUM walk = nullptr;
        ASSERT_EQ(QzZipEnum_Create(archive.zip, &walk), S_OK);
        QZZIPENTRYINFO info;
        ASSERT_EQ(QzZipEnum_Next(walk, &info), S_OK);
        EXPECT_EQ(info.uncompressed_size, c.entry.content.size()) << c.entry.name;
        char16_t name[64];
        EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 64), S_OK);
        EXPECT_EQ(std::u16string(name), c.name);
        std::string content(c.entry.content.size(), '\0');
        EXPECT_EQ(QzZipEnum_ExtractToMemory(walk, content.data(), DWORD(content.size())), S_OK)
            << c.entry.name;
        EXPECT_EQ(content, c.entry.content);
        QzZipEnum_Destroy(walk);
    }
}

TEST(ZipEnum, WalksNamesAndSizesAndOutlivesTheArchiveHandle) {
    const std::string bytes = build({{"dir/", ""}, {"dir/long-name.txt", "12345", 8}});
    Open archive(bytes);
    ASSERT_EQ(archive.hr, S_OK);
    HQZZIPENUM walk = nullptr;
    EXPECT_EQ(QzZipEnum_Create(nullptr, &walk), E_INVALIDARG);
    ASSERT_EQ(QzZipEnum_Create(archive.zip, &walk), S_OK);
    QzZip_Close(archive.zip);  // the enumerator keeps the archive
    archive.zip = nullptr;
    char16_t name[8];
    EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 8), QZE_NOT_FOUND);
    QZZIPENTRYINFO info;
    ASSERT_EQ(QzZipEnum_Next(walk, &info), S_OK);
    EXPECT_TRUE(info.is_folder);
    ASSERT_EQ(QzZipEnum_Next(walk, &info), S_OK);
    EXPECT_EQ(info.method, 8);
    EXPECT_EQ(info.name_length, 17u);
    EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 8), QZE_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::u16string(name), u"dir/lon");
    char small[4];
    EXPECT_EQ(QzZipEnum_ExtractToMemory(walk, small, 4), QZE_BUFFER_TOO_SMALL);
    EXPECT_EQ(QzZipEnum_Next(walk, &info), S_FALSE);
    EXPECT_EQ(QzZipEnum_Next(walk, &info), S_FALSE);
    EXPECT_EQ(QzZipEnum_GetFileName(walk, 0, name, 8), QZE_NOT_FOUND);
    QzZipEnum_Destroy(walk);

    Open again(bytes);
    ULONGLONG size = 0;
    EXPECT_EQ(QzZipEnum_GetUncompressedSizeFromIndex(again.zip, 1, &size), S_OK);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(QzZipEnum_GetUncompressedSizeFromIndex(again.zip, 2, &size), QZE_NOT_FOUND);
    EXPECT_EQ(QzZipEnum_GetUncompressedSizeFromName(again.zip, u"dir\\long-name.txt", &size), S_OK);
    EXPECT_EQ(QzZipEnum_GetUncompressedSizeFromName(again.zip, u"dir/long", &size), QZE_NOT_FOUND);
    EXPECT_EQ(extract(again.zip, u"missing"), QZE_NOT_FOUND);
}

}  // namespace
