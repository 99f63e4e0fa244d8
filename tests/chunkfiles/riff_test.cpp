// riff_*: headers, bodies, strings, positions, the shared walk's rules and CD tracks.
#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <sys/mman.h>
#endif

#include <cstring>
#include <tuple>

#include "tests/support/riff_files.h"

namespace {

using namespace qz::testing;
using std::make_tuple;

constexpr DWORD kNone = 0xDEADBEEF;  // no budget given; an output left alone

// A WAVE file of 90 bytes: "fmt " (16), "junk" (odd: 5), a LIST "INFO" holding INAM, "data" (6).
const Bytes kWave = riff("WAVE", chunk("fmt ", pattern(16)) + chunk("junk", pattern(5)) +
                                     list("INFO", chunk("INAM", text("tone") + Bytes{0})) +
                                     chunk("data", pattern(6)));

TEST(RiffHeaders, ReadsStopAtTheBodyAndLeaveTheOutputsOfAFailureAlone) {
    // 'c' chunk header (id, size), 'l' list header (type, size - 4), 'f' file
    // header (the budget after the form type, the form type); the position after.
    const std::tuple<char, Bytes, HRESULT, DWORD, DWORD, uint64_t> cases[] = {
        {'c', chunk("fmt ", pattern(3)), S_OK, cc("fmt "), 3, 8},
        {'l', list("INFO", chunk("INAM", text("ab"))), S_OK, cc("INFO"), 10, 12},
        {'l', chunk("junk", pattern(4)), QZE_NO_LIST_HEADER, kNone, kNone, 8},
        {'l', header("LIST", 4) + text("IN"), QZE_FILE_READ, kNone, kNone, 10},
        {'f', header("RIFF", 2) + text("WAVE"), S_OK, 0xFFFFFFFE, cc("WAVE"), 12},  // wraps
        // The id is judged first: a file that is not RIFF is left after it.
        {'f', header("RIFX", 4) + text("WAVE"), QZE_NO_RIFF_HEADER, kNone, kNone, 4},
        {'f', header("RIFF", 4) + text("WA"), QZE_FILE_READ, kNone, kNone, 10},
        {'f', text("RI"), QZE_FILE_READ, kNone, kNone, 2},
    };
    for (const auto& [op, bytes, expected, a, b, position] : cases) {
        TempFile f(bytes);
        const HANDLE h = f.handle();
        DWORD x = kNone, y = kNone;
        EXPECT_EQ(op == 'c'   ? riff_ReadChunkHeader(h, &x, &y)
                  : op == 'l' ? riff_ReadListHeader(h, &x, &y)
                              : riff_ReadFileID(h, &x, &y),
                  expected);
        EXPECT_EQ(make_tuple(x, y, f.position()), make_tuple(a, b, position)) << op;
    }
    TempFile f(kWave);
    EXPECT_EQ(riff_ReadFileID(f.handle(), nullptr, nullptr), S_OK);
    const std::pair<LONG, HRESULT> sizes[] = {
        {0, QZE_ZERO_LENGTH_CHUNK}, {0x7FFFFFFF, S_OK}, {LONG(0x80000000u), QZE_MISALIGNED_CHUNK}};
    for (const auto& [size, hr] : sizes) EXPECT_EQ(riff_ValidateChunkHeader(0, size), hr) << size;
}

TEST(RiffWrite, ChunksArePaddedAndHeadersAreLittleEndianFieldsInFileOrder) {
    for (size_t size : {0, 1, 2}) {
        TempFile f({});
        DWORD written = 99;
        ASSERT_EQ(
            riff_WriteChunk(f.handle(), cc("abcd"), pattern(size).data(), DWORD(size), &written),
            S_OK);
        EXPECT_EQ(make_tuple(f.contents(), written),
                  make_tuple(chunk("abcd", pattern(size)), 8 + size + size % 2));
    }
    TempFile f({});
    ASSERT_EQ(riff_WriteFileID(f.handle(), cc("WAVE"), 0x11223344), S_OK);
    ASSERT_EQ(riff_WriteListHeader(f.handle(), cc("INFO"), 0x0000ABCD), S_OK);
    ASSERT_EQ(riff_WriteChunkHeader(f.handle(), cc("data"), 7), S_OK);
    ASSERT_EQ(riff_WriteChunk(f.handle(), cc("odd "), "xyz", 3, nullptr), S_OK);
    EXPECT_EQ(f.contents(), header("RIFF", 0x11223344) + text("WAVE") + header("LIST", 0xABCD) +
                                text("INFO") + header("data", 7) + chunk("odd ", text("xyz")));
    EXPECT_EQ(riff_WriteChunk(f.handle(), cc("abcd"), nullptr, 1, nullptr), E_INVALIDARG);
    ASSERT_EQ(riff_SeekDataStart(f.handle()), S_OK);
    EXPECT_EQ(f.position(), 12u);
}

TEST(RiffWrite, LengthsPast32BitsAreHeldAtTheTop) {
    if (sizeof(void*) < 8) GTEST_SKIP() << "a 32-bit process has no room for a 4 GiB buffer";
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer checks every byte a write hands the system: 4 GiB
    // take minutes there and say nothing about threads.
    GTEST_SKIP() << "4 GiB write under ThreadSanitizer";
#endif
    // 0xFFFFFFF7 bytes from a mapping no page of which is touched, written to
    // the null device (NUL on Windows): header and pad would take the count
    // to 2^32.
    const size_t span = size_t(1) << (sizeof(void*) < 8 ? 0 : 32);
#if defined(_WIN32)
    void* body = VirtualAlloc(nullptr, span, MEM_RESERVE | MEM_COMMIT, PAGE_READONLY);
    ASSERT_NE(body, nullptr);
    const HANDLE h = open_path("NUL", GENERIC_WRITE);
#else
    void* body = mmap(nullptr, span, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(body, MAP_FAILED);
    const HANDLE h = open_path("/dev/null", GENERIC_WRITE);
#endif
    DWORD written = 0;
    EXPECT_EQ(riff_WriteChunk(h, cc("data"), body, 0xFFFFFFF7, &written), S_OK);
    EXPECT_EQ(written, 0xFFFFFFFFu);
    CloseHandle(h);
#if defined(_WIN32)
    VirtualFree(body, 0, MEM_RELEASE);
#else
    munmap(body, span);
#endif
}

TEST(RiffRead, ReadDataSkipsThePadOfAnOddCountAndBoundedReadsThatOfAnOddBuffer) {
    // 'd': ReadData of `a` bytes; 'b': ReadDataBounded, chunk size `a`, buffer
    // size `b`; then the result, the bytes read and the position after.
    const std::tuple<char, DWORD, DWORD, HRESULT, size_t, uint64_t> cases[] = {
        {'d', 5, 0, S_OK, 5, 6},
        {'d', 4, 0, S_OK, 4, 4},
        {'d', 17, 0, QZE_FILE_READ, 16, 16},
        {'b', 5, 5, S_OK, 5, 6},  // whole odd body and its pad
        {'b', 5, 8, S_OK, 5, 5},  // even buffer: no pad, one byte short of the next header
        {'b', 5, 3, S_OK, 3, 6},  // odd buffer: rest (2) + 1
        {'b', 6, 3, S_OK, 3, 7},  // odd buffer on an even body: one byte past it
        {'b', 0, 7, S_OK, 0, 1},  // nothing to read, still one pad byte for the odd buffer
        {'b', 17, 17, QZE_FILE_READ, 16, 16},
    };
    for (const auto& [op, a, b, expected, read, position] : cases) {
        TempFile f(pattern(16));
        Bytes got(20, 0xEE);
        EXPECT_EQ(op == 'd' ? riff_ReadData(f.handle(), got.data(), a)
                            : riff_ReadDataBounded(f.handle(), got.data(), a, b),
                  expected);
        EXPECT_EQ(make_tuple(prefix(got, read + 1), f.position()),
                  make_tuple(pattern(read) + Bytes{0xEE}, position))
            << op << a << "/" << b;
    }
    TempFile f(pattern(4));
    EXPECT_EQ(riff_ReadData(f.handle(), nullptr, 1), E_INVALIDARG);
    EXPECT_EQ(riff_ReadDataBounded(f.handle(), nullptr, 1, 1), E_INVALIDARG);
    EXPECT_EQ(riff_ReadDataAlloc(f.handle(), nullptr), E_INVALIDARG);  // success: riff_fault_test
}

TEST(RiffStrings, ReadAddsOneToTheCountWhateverItsParity) {
    // The body as stored (terminator included), the count and buffer length
    // passed; the result, the text and the position after.
    const std::tuple<Bytes, DWORD, DWORD, HRESULT, WString, uint64_t> cases[] = {
        {text("tone") + Bytes{0, 0}, 5, 64, S_OK, QZTEXT("tone"), 6},  // odd count: body and pad
        {text("abc") + Bytes{0}, 4, 64, S_OK, QZTEXT("abc"), 4},       // even count: no pad
        {text("abcdefg") + Bytes{0}, 8, 4, S_OK, QZTEXT("abc"), 8},    // cut, the whole body passed
        {text("\xE9t\xE9\x80") + Bytes{0, 0}, 5, 64, S_OK, QZTEXT("\u00E9t\u00E9\u20AC"), 6},
        {{}, 0, 8, S_OK, QZTEXT(""), 0},
        {text("xy"), 2, 2, S_OK, QZTEXT("x"), 2},  // the last byte that fits is the terminator
        {text("ab"), 3, 0, S_OK, QZTEXT(""), 4},   // nothing to fill
        {text("ab"), 9, 8, QZE_FILE_READ, QZTEXT("########"), 6},
    };
    for (const auto& [body, count, length, expected, string, position] : cases) {
        if (string[0] > 0x7F && !ansi_code_page_is_1252()) continue;  // spelt in 1252
        TempFile f(body + text("NEXT"));
        WString buffer(length, QZTEXT('#'));
        DWORD n = count;
        EXPECT_EQ(riff_ReadANSIString(f.handle(), buffer.data(), length, &n), expected);
        EXPECT_EQ(make_tuple(WString(buffer.c_str()), n, f.position()),
                  make_tuple(string, expected == S_OK ? count + 1 : count, position));
    }
    WCHAR buffer[8];
    DWORD count = 5;
    EXPECT_EQ(riff_ReadANSIString(nullptr, nullptr, 8, &count), E_INVALIDARG);
    EXPECT_EQ(riff_ReadANSIString(nullptr, buffer, 8, nullptr), E_INVALIDARG);
}

TEST(RiffStrings, WriteTerminatesAndPadsInTheAnsiCodePage) {
    const std::pair<const WCHAR*, Bytes> cases[] = {
        {QZTEXT("abc"), text("abc") + Bytes{0}},
        {nullptr, Bytes{0, 0}},
        {QZTEXT("\u00E9\u20AC"), Bytes{0xE9, 0x80, 0, 0}},
    };
    for (const auto& [string, expected] : cases) {
        if (string && string[0] > 0x7F && !ansi_code_page_is_1252()) continue;  // spelt in 1252
        TempFile f({});
        DWORD written = 0;
        ASSERT_EQ(riff_WriteANSIString(f.handle(), string, &written), S_OK);
        EXPECT_EQ(make_tuple(f.contents(), written), make_tuple(expected, DWORD(expected.size())));
    }
}

TEST(RiffPosition, SkipReturnsTheEvenAmountAndSavedPlacesComeBack) {
    // 0xFFFFFFFF takes one pad byte past 4 GiB - 1: forward, not back.
    const std::pair<DWORD, uint64_t> cases[] = {{7, 8}, {0xFFFFFFFF, uint64_t(1) << 32}};
    for (const auto& [size, skipped] : cases) {
        TempFile f({});
        EXPECT_EQ(riff_SkipChunk(f.handle(), size), DWORD(skipped));
        DWORD saved = 1;
        EXPECT_EQ(riff_SaveLocation(f.handle(), &saved), S_OK);
        EXPECT_EQ(riff_RestoreLocation(f.handle(), 3), S_OK);
        EXPECT_EQ(make_tuple(saved, f.position()), make_tuple(DWORD(skipped), uint64_t(3)));
    }
}

TEST(RiffSize, GetReportsTheFieldPlusFourAndSetKeepsThePosition) {
    TempFile f(riff("WAVE", pattern(20)));
    f.seek(17);
    ASSERT_EQ(riff_SetRIFFSize(f.handle(), 0xA1B2C3D4), S_OK);
    EXPECT_EQ(f.position(), 17u);
    EXPECT_EQ(f.contents(), header("RIFF", 0xA1B2C3D4) + text("WAVE") + pattern(20));
    DWORD size = 0;
    ASSERT_EQ(riff_GetFileSize(f.handle(), &size), S_OK);
    EXPECT_EQ(make_tuple(size, f.position()), make_tuple(0xA1B2C3D8u, uint64_t(12)));
    TempFile other(header("RIFX", 4) + text("WAVE"));
    EXPECT_EQ(riff_GetFileSize(other.handle(), &size), QZE_NO_RIFF_HEADER);
}

TEST(RiffSize, UpdateAddsTheSignedDeltaOrCutsTheFileBackAtTheLimit) {
    // A RIFF body of 20 bytes (size 24) and 10 bytes a writer appended after
    // it; the delta, the result, the size stored and the file's length.
    const Bytes file = riff("WAVE", pattern(20)) + pattern(10, 7);
    const std::tuple<LONGLONG, HRESULT, DWORD, size_t> cases[] = {
        {10, S_OK, 34, 42},
        {-30, S_OK, DWORD(-6), 42},  // not caught: the low 32 bits are written
        {0xFFFFFFF7LL - 24, S_OK, 0xFFFFFFF7, 42},
        {0xFFFFFFF8LL - 24, QZE_SIZE_LIMIT, 24, 32},     // 4 GiB with the header
        {0x7FFFFFFFFFFFFFFFLL, QZE_SIZE_LIMIT, 24, 32},  // no overflow in the sum
    };
    for (const auto& [delta, expected, stored, length] : cases) {
        TempFile f(file);
        f.seek(38);
        EXPECT_EQ(riff_UpdateRIFFSize(f.handle(), delta), expected) << delta;
        EXPECT_EQ(
            make_tuple(f.contents(), f.position()),
            make_tuple(header("RIFF", stored) + Bytes(file.begin() + 8, file.begin() + length),
                       uint64_t(38)));
    }
    TempFile cut(text("RIF"));
    EXPECT_EQ(riff_UpdateRIFFSize(cut.handle(), 4), QZE_FILE_READ);
    EXPECT_EQ(cut.position(), 0u);
}

enum Op { Find, InRiff, List, FromStart, Count, Seek };

HRESULT walk(Op op, HANDLE h, DWORD arg, DWORD* size, DWORD* left) {
    switch (op) {
        case Find:
            return riff_FindChunkHeader(h, arg, size, left);
        case InRiff:
            return riff_FindChunkHeaderInRIFF(h, arg, size, left);
        case List:
            return riff_FindListChunk(h, arg, size, left);
        case FromStart:
            return riff_FindListChunkFromStart(h, arg, size);
        case Count:
            return riff_GetNumListEntries(h, size, left);
        case Seek:
            break;
    }
    return riff_SeekListEntry(h, arg, left);
}

TEST(RiffWalk, BudgetsPadsAndShortReadsEndWhereTheBytesSay) {
    const Bytes tail = kWave + chunk("tail", pattern(2));  // not part of the top level
    // 0xFFFFFFFF taken as a signed distance would step back onto the same header.
    const Bytes huge = header("huge", 0xFFFFFFFF) + pattern(8);
    // Entries of 12, 8, 14 and 10 bytes.
    const Bytes entries = chunk("a   ", pattern(3)) + chunk("b   ", {}) +
                          chunk("c   ", pattern(6)) + chunk("next", pattern(2));
    const Bytes lists = list("odd ", chunk("a   ", pattern(1)) + pattern(1)) +  // 24, padded
                        list("INFO", chunk("b   ", {}));
    // A damaged LIST of size 2 ends 10 bytes after its start, where the next one begins.
    const Bytes short_list = header("LIST", 2) + text("xy") + list("INFO", {});
    const Bytes info = list("INFO", {});
    // 100 entries of 10 bytes, so headers straddle the reader's blocks, then "last".
    Bytes many;
    for (int i = 0; i < 100; ++i) many = many + chunk("a   ", pattern(1));
    many = many + chunk("last", pattern(2));
    struct Case {
        const char* name;
        Op op;
        const Bytes& bytes;
        uint64_t start;
        DWORD arg, budget;  // arg: the id, list type or index
        HRESULT expected;
        DWORD size, left;  // size: the count for Count
        uint64_t position;
    } cases[] = {
        {"a header's worth is enough", Find, entries, 12, cc("b   "), 8, S_OK, 0, 0, 20},
        {"huge, no budget", Find, huge, 0, 0, kNone, QZE_FILE_READ, kNone, kNone, 0x100000008},
        {"huge, budget", Find, huge, 0, 0, 1000, QZE_NOT_FOUND, kNone, 0, 0x100000008},
        {"in RIFF: rewinds, header's budget", InRiff, tail, 30, cc("junk"), 0, S_OK, 5, 46, 44},
        {"in RIFF: top level only", InRiff, tail, 30, cc("tail"), 0, QZE_NOT_FOUND, kNone, 0, 90},
        {"in RIFF: not RIFF", InRiff, huge, 9, 0, 5, QZE_NO_RIFF_HEADER, kNone, 5, 4},
        {"list: no room for the type", List, info, 0, cc("INFO"), 11, QZE_NOT_FOUND, kNone, 3, 8},
        {"list: room for the type", List, info, 0, cc("INFO"), 12, S_OK, 0, 0, 12},
        {"list: odd list and its pad", List, lists, 0, cc("INFO"), 44, S_OK, 8, 8, 36},
        {"list: shorter than its type", List, short_list, 0, cc("INFO"), 22, S_OK, 0, 0, 22},
        {"list: from the start", FromStart, kWave, 30, cc("INFO"), kNone, S_OK, 14, kNone, 62},
        {"count: a short tail stays", Count, entries, 0, 0, 41, S_OK, 3, 7, 0},
        {"count: no budget", Count, entries, 0, 0, kNone, QZE_FILE_READ, 4, kNone, 0},
        // Ending inside a body wraps instead of clamping, so the count runs on;
        // the failed header read counts too.
        {"count: wraps", Count, entries, 0, 0, 31, QZE_FILE_READ, 4, DWORD(31 - 44 - 8), 0},
        {"many entries: find", Find, many, 0, cc("last"), 1010, S_OK, 2, 2, 1008},
        {"many entries: count", Count, many, 0, 0, 1010, S_OK, 101, 0, 0},
        {"seek: index 0 stays", Seek, entries, 5, 0, 0, S_OK, kNone, 0, 5},
        {"seek: the end needs 8 to spare", Seek, entries, 0, 3, 34, QZE_NOT_FOUND, kNone, 0, 34},
        {"seek: the end", Seek, entries, 0, 3, 42, S_OK, kNone, 8, 34},
        {"seek: past the end", Seek, entries, 0, 5, 44, QZE_NOT_FOUND, kNone, 0, 44},
        {"seek: no budget", Seek, entries, 0, 5, kNone, QZE_FILE_READ, kNone, kNone, 44},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        f.seek(c.start);
        DWORD size = kNone, left = c.budget;
        EXPECT_EQ(walk(c.op, f.handle(), c.arg, &size, c.budget == kNone ? nullptr : &left),
                  c.expected)
            << c.name;
        EXPECT_EQ(make_tuple(size, left, f.position()), make_tuple(c.size, c.left, c.position))
            << c.name;
    }
    TempFile f(kWave);
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(f.handle(), cc("data"), nullptr, nullptr), S_OK);
    EXPECT_EQ(riff_GetNumListEntries(f.handle(), nullptr, nullptr), E_INVALIDARG);
}

// Track 5 of a disc with serial 0x1234ABCD, starting at sector 33000 (7:20:00)
// and lasting 15000 sectors (3:20:00).
const Bytes kCdda = Bytes{1, 0, 5, 0} + le32(0x1234ABCD) + le32(33000) + le32(15000) +
                    Bytes{0, 20, 7, 0} + Bytes{0, 20, 3, 0};

TEST(RiffCda, ReadsTheTrackRecordOfCddaFilesOnly) {
    const Bytes track = riff("CDDA", chunk("fmt ", kCdda));
    const std::pair<Bytes, HRESULT> cases[] = {
        {track, S_OK},
        {riff("WAVE", chunk("fmt ", kCdda)), QZE_CORRUPT_OR_UNKNOWN},
        {riff("CDDA", chunk("fmt ", pattern(16))), QZE_UNSUPPORTED_VERSION},
        {riff("CDDA", chunk("data", kCdda)), QZE_NOT_FOUND},
        {prefix(track, 30), QZE_FILE_READ},
        {text("RIFX"), QZE_NO_RIFF_HEADER},
    };
    for (const auto& [bytes, expected] : cases) {
        TempFile f(bytes);
        QZRIFFCDDA record{};
        EXPECT_EQ(riff_ReadRIFFCDDA(f.handle(), &record), expected);
        EXPECT_TRUE(expected != S_OK || !std::memcmp(&record, kCdda.data(), 24));
    }
}

TEST(RiffCda, ReadCdaFileFillsEveryOutputEvenAfterAFailure) {
    TempDir dir;
    write_file(dir.file("Track05.cda"), riff("CDDA", chunk("fmt ", kCdda)));
    // Track, start, start frames, length, serial; zeros when the file cannot be opened.
    const std::pair<const char*, std::vector<DWORD>> cases[] = {
        {"Track05.cda", {5, 33000, (7 * 60 + 20) * 75, 15000, 0x1234ABCD}},
        {"missing.cda", {0, 0, 0, 0, 0}},
    };
    for (const auto& [name, fields] : cases) {
        std::vector<DWORD> got(5, 0xAAAA);
        riff_ReadCDAFile(dir.wide(name).c_str(), &got[0], &got[1], &got[2], &got[3], &got[4]);
        EXPECT_EQ(got, fields) << name;
    }
    DWORD number = 1;
    EXPECT_EQ(riff_ReadCDAFile(nullptr, &number, nullptr, nullptr, nullptr, nullptr),
              QZE_FILE_OPEN);
    EXPECT_EQ(number, 0u);
}

}  // namespace
