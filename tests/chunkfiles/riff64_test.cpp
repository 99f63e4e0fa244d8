// riff64_*: headers, the two size conventions, bodies, positions, the walk
// over GUID-labelled chunks, deletion, files past 4 GiB and faults.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <tuple>

#include "tests/support/fault_sweep.h"

using namespace qz::testing;
using std::make_tuple;

namespace {

constexpr ULONGLONG kNone = 0x5A5A5A5A5A5A5A5A;  // no budget given; an output left alone
constexpr GUID kUnset = {
    0xEEEEEEEE, 0xEEEE, 0xEEEE, {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}};

const GUID kFmt = w64("fmt "), kData = w64("data"), kJunk = w64("junk"), kWave = w64("wave"),
           kInfo = w64("INFO"), kName = w64("INAM");

// 216 bytes: the header (40), "fmt " (40), "junk" (5 bytes, 32), a "list"
// of type "INFO" holding "INAM" (72), "data" (6 bytes, 32).
const Bytes kFile =
    riff64(kWave, chunk64(kFmt, pattern(16)) + chunk64(kJunk, pattern(5)) +
                      list64(kInfo, chunk64(kName, text("tone"))) + chunk64(kData, pattern(6)));

}  // namespace

TEST(Riff64Headers, ReadsReportWhatFollowsAndTheFileHeaderIgnoresItsOwnRead) {
    // 'c' chunk header (label, data size), 'l' list header (type, size after
    // it), 'f' file header (form type, budget); the position after.
    const std::tuple<char, Bytes, HRESULT, GUID, ULONGLONG, uint64_t> cases[] = {
        {'c', chunk64(kFmt, pattern(5)), S_OK, kFmt, 5, 24},
        {'c', header64(kJunk, 16) + pattern(8), S_OK, kJunk, 0, 24},  // below 24: empty
        {'c', prefix(header64(kFmt, 40), 20), QZE_FILE_READ, kUnset, kNone, 20},
        {'l', list64(kInfo, chunk64(kName, text("ab"))), S_OK, kInfo, 32, 40},
        {'l', chunk64(kJunk, pattern(16)), QZE_NO_LIST_HEADER, kUnset, kNone, 24},
        {'l', header64(w64("list"), 32) + guid(kInfo), S_OK, kInfo, 0,
         40},  // shorter than its type
        {'l', header64(w64("list"), 56) + prefix(guid(kInfo), 10), QZE_FILE_READ, kUnset, kNone,
         34},
        {'f', riff64(kWave, pattern(16)), S_OK, kWave, 16, 40},
        // The budget is reported before the label is judged, and a header
        // cut short counts as an empty one with no label.
        {'f', header64(kJunk, 56) + guid(kWave), QZE_NO_RIFF_HEADER, kUnset, 16, 24},
        {'f', text("riff"), QZE_NO_RIFF_HEADER, kUnset, ULONGLONG(-16), 4},
        {'f', header64(w64("riff"), 56) + prefix(guid(kWave), 6), QZE_FILE_READ, kUnset, 16, 30},
        // A size past any file offset is held at the largest budget.
        {'f', header64(w64("riff"), ~0ull) + guid(kWave), S_OK, kWave, INT64_MAX - 16, 40},
    };
    for (const auto& [op, bytes, expected, label, size, position] : cases) {
        TempFile f(bytes);
        const HANDLE h = f.handle();
        GUID g = kUnset;
        ULONGLONG n = kNone;
        EXPECT_EQ(op == 'c'   ? riff64_ReadChunkHeader(h, &g, &n)
                  : op == 'l' ? riff64_ReadListHeader(h, &g, &n)
                              : riff64_ReadFileID(h, reinterpret_cast<LONGLONG*>(&n), &g),
                  expected);
        EXPECT_TRUE(g == label) << op << position;
        EXPECT_EQ(make_tuple(n, f.position()), make_tuple(size, position)) << op;
    }
    // Bit 3 of the high word refuses, its top bit does not.
    const std::pair<ULONGLONG, HRESULT> sizes[] = {{12, QZE_MISALIGNED_CHUNK},
                                                   {0, QZE_ZERO_LENGTH_CHUNK},
                                                   {16, S_OK},
                                                   {1ull << 35, QZE_MISALIGNED_CHUNK},
                                                   {1ull << 63, S_OK}};
    for (const auto& [size, hr] : sizes)
        EXPECT_EQ(riff64_ValidateChunkHeader(kFmt, size), hr) << size;
    DWORD code = 7;
    EXPECT_EQ(riff64_getGUIDLabel(kFmt), 0u);
    EXPECT_EQ(riff64_getGUIDLabelProperly(kData, &code), S_OK);
    EXPECT_EQ(code, 7u);
}

TEST(Riff64Write, WholeChunksStoreTheirDataAndStreamedOnesTheirPadding) {
    TempFile f({});
    const HANDLE h = f.handle();
    ULONGLONG written = 99;
    ASSERT_EQ(riff64_WriteChunk(h, kFmt, "abcde", 5, &written), S_OK);
    ASSERT_EQ(riff64_WriteChunkToFile(h, kData, "abcde", 5), S_OK);
    ASSERT_EQ(riff64_WriteFileID(h, kWave, 0x0102030405060708), S_OK);
    ASSERT_EQ(riff64_WriteListHeader(h, kInfo, 16), S_OK);
    EXPECT_EQ(written, 32u);
    const Bytes fmt_label = {0x66, 0x6D, 0x74, 0x20, 0xF3, 0xAC, 0xD3, 0x11,
                             0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    const Bytes data_label = {0x64, 0x61, 0x74, 0x61, 0xF3, 0xAC, 0xD3, 0x11,
                              0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    const Bytes wave_label = {0x77, 0x61, 0x76, 0x65, 0xF3, 0xAC, 0xD3, 0x11,
                              0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    const Bytes riff_label = {0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                              0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
    const Bytes list_label = {0x6C, 0x69, 0x73, 0x74, 0x2F, 0x91, 0xCF, 0x11,
                              0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
    const Bytes expected = fmt_label + Bytes{29, 0, 0, 0, 0, 0, 0, 0} + text("abcde") +
                           Bytes{0, 0, 0} + data_label + Bytes{32, 0, 0, 0, 0, 0, 0, 0} +
                           text("abcde") + Bytes{0, 0, 0} + riff_label +
                           Bytes{0x20, 7, 6, 5, 4, 3, 2, 1} + wave_label +  // size + 24
                           list_label + Bytes{40, 0, 0, 0, 0, 0, 0, 0} + guid(kInfo);
    EXPECT_EQ(f.contents(), expected);
}

TEST(Riff64Write, StreamedListsCountHeaderTypeAndPadding) {
    TempFile f(pattern(3));
    const HANDLE h = f.handle();
    f.seek(3);
    ULONGLONG list_start = 0, start = 0, written = 0;
    ASSERT_EQ(riff64_PrepareList(h, kInfo, &list_start), S_OK);
    ASSERT_EQ(riff64_PrepareChunk(h, kName, &start), S_OK);
    ASSERT_EQ(riff64_WriteToFile(h, "ab", 2), S_OK);
    ASSERT_EQ(riff64_WriteData(h, "cdefgh", 0x100000006ull, &written), S_OK);  // the low word
    EXPECT_EQ(make_tuple(written, riff64_AmountWritten(h, start)), make_tuple(8ull, 24ull + 2 + 8));
    EXPECT_EQ(riff64_AmountWritten(h, start + 1000), 0u);
    ASSERT_EQ(riff64_CompleteChunk(h, start), S_OK);
    ASSERT_EQ(riff64_WriteData(h, nullptr, 0, &written), S_OK);
    EXPECT_EQ(written, 0u);
    ASSERT_EQ(riff64_CompleteChunk(h, list_start), S_OK);
    // The data's own padding and then the chunk's, to 8 from its start.
    EXPECT_EQ(f.contents(),
              pattern(3) + list64(kInfo, chunk64(kName, text("abcdefgh") + Bytes(8, 0))));
    ASSERT_EQ(riff64_WriteToFile(h, "xyz", 3), S_OK);
    ASSERT_EQ(riff64_Pad(h, 2), S_OK);  // 84 bytes from offset 2: 4 more
    EXPECT_EQ(f.position(), 90u);
    EXPECT_EQ(riff64_CompleteChunk(h, f.position() + 1), E_INVALIDARG);
}

TEST(Riff64Write, SizesThatWouldWrapAreRefusedAndNothingIsWritten) {
    TempFile f({});
    const HANDLE h = f.handle();
    ULONGLONG start = 0;
    const HRESULT refused[] = {
        riff64_WriteChunkHeader(h, kFmt, ~0ull - 23),
        riff64_WriteListHeader(h, kInfo, ~0ull),
        riff64_WriteFileID(h, kWave, ~0ull - 10),
        riff64_SetRIFFSize(h, ~0ull),
        riff64_WriteChunk(h, kFmt, nullptr, 1, nullptr),
        riff64_WriteData(h, nullptr, 1, nullptr),
        riff64_WriteToFile(h, nullptr, 1),
        riff64_WriteChunkToFile(h, kFmt, nullptr, 1),
        riff64_PrepareChunk(h, kFmt, nullptr),
    };
    for (HRESULT hr : refused) EXPECT_EQ(hr, E_INVALIDARG);
    EXPECT_EQ(f.contents(), Bytes{});
    ASSERT_EQ(riff64_WriteChunkHeader(h, kFmt, ~0ull - 24), S_OK);
    EXPECT_EQ(f.contents(), header64(kFmt, ~0ull));
    EXPECT_EQ(riff64_PrepareChunk(h, kFmt, &start), S_OK);
    EXPECT_EQ(start, 24u);
}

TEST(Riff64Read, ReadDataSkipsToTheGridAndBoundedReadsSkipTheBufferRemainder) {
    // 'd': ReadData of `a` bytes; 'b': ReadDataBounded, chunk size `a`, buffer
    // size `b`; then the result, the bytes read and the position after.
    const std::tuple<char, ULONGLONG, DWORD, HRESULT, size_t, uint64_t> cases[] = {
        {'d', 5, 0, S_OK, 5, 8},
        {'d', 8, 0, S_OK, 8, 8},
        {'d', 0x100000005, 0, S_OK, 5, 8},  // the high word is not used
        {'d', 17, 0, QZE_FILE_READ, 16, 16},
        {'b', 5, 5, S_OK, 5, 10},  // buffer size mod 8, not the chunk's padding
        {'b', 5, 8, S_OK, 5, 5},
        {'b', 12, 4, S_OK, 4, 16},  // the rest (8) and 4 more
        {'b', 3, 0, S_OK, 0, 3},
        {'b', 17, 17, QZE_FILE_READ, 16, 16},
    };
    for (const auto& [op, a, b, expected, read, position] : cases) {
        TempFile f(pattern(16));
        Bytes got(20, 0xEE);
        EXPECT_EQ(op == 'd' ? riff64_ReadData(f.handle(), got.data(), a)
                            : riff64_ReadDataBounded(f.handle(), got.data(), DWORD(a), b),
                  expected);
        EXPECT_EQ(make_tuple(prefix(got, read + 1), f.position()),
                  make_tuple(pattern(read) + Bytes{0xEE}, position))
            << op << a << "/" << b;
    }
    TempFile f(pattern(7));
    EXPECT_EQ(riff64_ReadData(f.handle(), nullptr, 1), E_INVALIDARG);
    EXPECT_EQ(riff64_ReadDataBounded(f.handle(), nullptr, 1, 1), E_INVALIDARG);
}

TEST(Riff64Position, SkipsRiseToTheGridAndPlacesAreWhole64BitOffsets) {
    // The size, what the skip returns, the position after.
    const std::tuple<ULONGLONG, ULONGLONG, uint64_t> cases[] = {
        {5, 8, 8},
        {1ull << 63, 1ull << 63, 0},  // no file offset gets there: not tried
        {~0ull, ~0ull, 0},            // would wrap when raised: kept as it is
    };
    for (const auto& [size, skipped, position] : cases) {
        TempFile f({});
        EXPECT_EQ(riff64_SkipChunk(f.handle(), size), skipped);
        EXPECT_EQ(f.position(), position) << size;
    }
    TempFile f({});
    ULONGLONG saved = 0;
    EXPECT_EQ(riff64_RestoreLocation(f.handle(), 0x100000005), S_OK);
    EXPECT_EQ(riff64_SaveLocation(f.handle(), &saved), S_OK);
    EXPECT_EQ(saved, 0x100000005u);
    EXPECT_EQ(riff64_SeekDataStart(f.handle()), S_OK);
    EXPECT_EQ(f.position(), 40u);
}

TEST(Riff64Size, SetAddsTheHeaderAndUpdateAddsTheDeltaUnlessItWraps) {
    TempFile set(riff64(kWave, pattern(16)));
    set.seek(17);
    ASSERT_EQ(riff64_SetRIFFSize(set.handle(), 100), S_OK);
    EXPECT_EQ(make_tuple(set.contents(), set.position()),
              make_tuple(header64(w64("riff"), 124) + guid(kWave) + pattern(16), uint64_t(17)));
    // The size stored, the delta, the result and the size after.
    const std::tuple<ULONGLONG, LONGLONG, HRESULT, ULONGLONG> cases[] = {
        {56, 10, S_OK, 66},
        {56, -56, S_OK, 0},
        {56, -57, E_INVALIDARG, 56},
        {56, INT64_MIN, E_INVALIDARG, 56},
        {~0ull - 15, 15, S_OK, ~0ull},
        {~0ull - 15, 16, E_INVALIDARG, ~0ull - 15},
    };
    for (const auto& [stored, delta, expected, after] : cases) {
        TempFile f(header64(w64("riff"), stored) + guid(kWave) + pattern(16));
        f.seek(45);
        EXPECT_EQ(riff64_UpdateRIFFSize(f.handle(), delta), expected) << delta;
        EXPECT_EQ(
            make_tuple(f.contents(), f.position()),
            make_tuple(header64(w64("riff"), after) + guid(kWave) + pattern(16), uint64_t(45)));
    }
    TempFile cut(prefix(riff64(kWave, {}), 20));
    cut.seek(3);
    EXPECT_EQ(riff64_UpdateRIFFSize(cut.handle(), 4), QZE_FILE_READ);
    EXPECT_EQ(cut.position(), 3u);
}

namespace {

enum Op { Find, InRiff, List, FromStart, Count, Seek };

HRESULT walk(Op op, HANDLE h, const GUID& label, DWORD index, ULONGLONG* size, LONGLONG* left) {
    switch (op) {
        case Find:
            return riff64_FindChunkHeader(h, label, size, left);
        case InRiff:
            return riff64_FindChunkHeaderInRIFF(h, label, size, left);
        case List:
            return riff64_FindListChunk(h, label, size, left);
        case FromStart:
            return riff64_FindListChunkFromStart(h, label, size);
        case Count: {
            DWORD count = 0;
            const HRESULT hr = riff64_GetNumListEntries(h, &count, left);
            *size = count;
            return hr;
        }
        case Seek:
            break;
    }
    return riff64_SeekListEntry(h, index, left);
}

}  // namespace

TEST(Riff64Walk, BudgetsGoNegativeAndHostileSizesNeitherLoopNorWrap) {
    const GUID a = w64("a   "), b = w64("b   "), c = w64("c   ");
    const Bytes tail = kFile + chunk64(w64("tail"), pattern(2));  // not part of the top level
    // Entries of 32, 24, 40 and 32 bytes.
    const Bytes entries = chunk64(a, pattern(3)) + chunk64(b, {}) + chunk64(c, pattern(9)) +
                          chunk64(w64("next"), pattern(2));
    // 5 bytes stored whole (29), 5 streamed (32, padding counted), then "c".
    const Bytes both = chunk64(a, pattern(5)) + header64(b, 32) + pattern(5) + Bytes(3, 0) +
                       chunk64(c, pattern(2));
    const Bytes empty = header64(a, 0) + chunk64(b, pattern(1));  // a size below 24
    const Bytes huge = header64(a, ~0ull) + pattern(8);           // past any file offset
    const Bytes far = header64(a, (1ull << 40) + 24) + pattern(8);
    const Bytes big = chunk64(a, pattern(40)) + chunk64(kData, pattern(2));
    // Lists of 72 and 64 bytes; a damaged one of size 32 ends where the next begins.
    const Bytes lists = list64(a, chunk64(b, pattern(1))) + list64(kInfo, chunk64(b, {}));
    const Bytes short_list = header64(w64("list"), 32) + pattern(8) + list64(kInfo, {});
    const Bytes info = list64(kInfo, {});
    struct Case {
        const char* name;
        Op op;
        const Bytes& bytes;
        uint64_t start;
        GUID label;
        DWORD index;
        LONGLONG budget;
        HRESULT expected;
        ULONGLONG size;  // the count for Count
        LONGLONG left;
        uint64_t position;
    } cases[] = {
        {"found keeps its body", Find, kFile, 40, kData, 0, 176, S_OK, 6, 8, 208},
        {"missing, no budget", Find, kFile, 40, b, 0, kNone, QZE_FILE_READ, kNone, kNone, 216},
        {"missing, budget", Find, kFile, 40, b, 0, 176, QZE_NOT_FOUND, kNone, 0, 216},
        {"budget below a header", Find, kFile, 40, kFmt, 0, 23, QZE_NOT_FOUND, kNone, 23, 40},
        {"negative budget", Find, kFile, 40, kFmt, 0, -5, QZE_NOT_FOUND, kNone, -5, 40},
        {"a header's worth is enough", Find, entries, 32, b, 0, 24, S_OK, 0, 0, 56},
        {"both size conventions", Find, both, 0, c, 0, 96, S_OK, 2, 8, 88},
        {"below 24 is empty", Find, empty, 0, b, 0, kNone, S_OK, 1, kNone, 48},
        {"huge, no budget", Find, huge, 0, b, 0, kNone, QZE_FILE_READ, kNone, kNone, 24},
        {"huge, budget left alone", Find, huge, 0, b, 0, 1000, QZE_FILE_READ, kNone, 1000, 24},
        {"past the file", Find, far, 0, b, 0, 1000, QZE_NOT_FOUND, kNone, 976 - (1ll << 40),
         (1ull << 40) + 24},
        {"past the budget goes negative", Find, big, 0, kData, 0, 50, QZE_NOT_FOUND, kNone, -14,
         64},
        {"in riff: rewinds", InRiff, tail, 30, kJunk, 0, 0, S_OK, 5, 112, 104},
        {"in riff: top level only", InRiff, tail, 30, w64("tail"), 0, 0, QZE_NOT_FOUND, kNone, 0,
         216},
        {"in riff: not riff", InRiff, entries, 9, a, 0, 5, QZE_NO_RIFF_HEADER, kNone, 5, 24},
        {"list: skips other types", List, lists, 0, kInfo, 0, 136, S_OK, 24, 24, 112},
        {"list: 8 left reads the type", List, info, 0, kInfo, 0, 32, S_OK, 0, -8, 40},
        {"list: 7 left does not", List, info, 0, kInfo, 0, 31, QZE_NOT_FOUND, kNone, 7, 24},
        {"list: shorter than its type", List, short_list, 0, kInfo, 0, 72, S_OK, 0, 0, 72},
        {"list: from the start", FromStart, kFile, 30, kInfo, 0, kNone, S_OK, 32, kNone, 152},
        {"count: budget used up", Count, entries, 0, a, 0, 128, S_OK, 4, 0, 0},
        {"count: a short tail stays", Count, entries, 0, a, 0, 100, S_OK, 3, 4, 0},
        {"count: ends inside a body", Count, entries, 0, a, 0, 30, S_OK, 1, -2, 0},
        {"count: no budget", Count, entries, 0, a, 0, kNone, QZE_FILE_READ, 4, kNone, 0},
        {"seek: index 0 stays", Seek, entries, 5, a, 0, 0, S_OK, kNone, 0, 5},
        {"seek: third header", Seek, entries, 0, a, 2, 128, S_OK, kNone, 72, 56},
        {"seek: the end needs 24 to spare", Seek, entries, 0, a, 4, 128, QZE_NOT_FOUND, kNone, 0,
         128},
        {"seek: the end", Seek, entries, 0, a, 4, 152, S_OK, kNone, 24, 128},
        {"seek: no budget", Seek, entries, 0, a, 5, kNone, QZE_FILE_READ, kNone, kNone, 128},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        f.seek(c.start);
        ULONGLONG size = kNone;
        LONGLONG left = c.budget;
        EXPECT_EQ(walk(c.op, f.handle(), c.label, c.index, &size,
                       c.budget == LONGLONG(kNone) ? nullptr : &left),
                  c.expected)
            << c.name;
        EXPECT_EQ(make_tuple(size, left, f.position()), make_tuple(c.size, c.left, c.position))
            << c.name;
    }
    TempFile f(kFile);
    EXPECT_EQ(riff64_FindChunkHeaderInRIFF(f.handle(), kData, nullptr, nullptr), S_OK);
    EXPECT_EQ(riff64_GetNumListEntries(f.handle(), nullptr, nullptr), E_INVALIDARG);
}

TEST(Riff64Delete, SpansMoveTheTailAndLowerTheSizeOrChangeNothing) {
    const Bytes rest = chunk64(kData, pattern(9000, 7));  // more than two blocks
    const Bytes not_riff = chunk64(kJunk, pattern(16));
    // A last chunk that lacks its padding, as sox leaves it; the size covers it.
    const Bytes unpadded = header64(w64("riff"), 110) + guid(kWave) + chunk64(kFmt, pattern(16)) +
                           header64(kData, 30) + pattern(6);
    // "junk" runs 10 bytes past the file's size of 110, though the file holds it.
    const Bytes past_size = header64(w64("riff"), 110) + guid(kWave) + chunk64(kFmt, pattern(16)) +
                            chunk64(kJunk, pattern(16));
    // The file, the label, the result, what is left and the span removed.
    const std::tuple<Bytes, GUID, HRESULT, Bytes, ULONGLONG> cases[] = {
        {kFile, kJunk, S_OK,
         riff64(kWave, chunk64(kFmt, pattern(16)) + list64(kInfo, chunk64(kName, text("tone"))) +
                           chunk64(kData, pattern(6))),
         32},
        {riff64(kWave, chunk64(kJunk, pattern(5)) + rest), kJunk, S_OK, riff64(kWave, rest), 32},
        {riff64(kWave, chunk64(kJunk, pattern(5)) + chunk64(kData, pattern(4072))), kJunk, S_OK,
         riff64(kWave, chunk64(kData, pattern(4072))), 32},  // a tail of one whole block
        {unpadded, kData, S_OK, riff64(kWave, chunk64(kFmt, pattern(16))), 30},
        {kFile, kName, QZE_NOT_FOUND, kFile, 0},  // only the top level is searched
        {not_riff, kFmt, QZE_NO_RIFF_HEADER, not_riff, 0},
        {riff64(kWave, header64(kData, 124) + pattern(20)), kData, QZE_CORRUPT_OR_UNKNOWN,
         riff64(kWave, header64(kData, 124) + pattern(20)), 0},
        {past_size, kJunk, QZE_CORRUPT_OR_UNKNOWN, past_size, 0},
    };
    for (const auto& [bytes, label, expected, left, span] : cases) {
        TempFile f(bytes);
        ULONGLONG removed = 99;
        EXPECT_EQ(riff64_DeleteChunk(f.handle(), label, &removed), expected) << bytes.size();
        EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(left, span)) << bytes.size();
        EXPECT_TRUE(FAILED(expected) || f.position() == left.size());
    }
}

TEST(Riff64Large, ChunksPast4GiBAreFoundReadAndCutOff) {
    // A sparse file: the header, 5 GiB of "data" (a hole) and "junk" after it.
    constexpr uint64_t kDataBytes = 5ull << 30;
    const Bytes junk = chunk64(kJunk, text("tail"));
    const uint64_t junk_at = 40 + 24 + kDataBytes, total = junk_at + junk.size();
    TempDir dir;
    const std::string path = dir.file("big.w64");
    {
        std::ofstream out(path, std::ios::binary);
        const Bytes head =
            header64(w64("riff"), total) + guid(kWave) + header64(kData, 24 + kDataBytes);
        out.write(reinterpret_cast<const char*>(head.data()), std::streamsize(head.size()));
        out.seekp(std::streamoff(junk_at));
        out.write(reinterpret_cast<const char*>(junk.data()), std::streamsize(junk.size()));
    }
    const HANDLE h = CreateFileW(wide(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    ULONGLONG size = 0, at = 0, removed = 0;
    LONGLONG left = 0;
    ASSERT_EQ(riff64_FindChunkHeaderInRIFF(h, kJunk, &size, &left), S_OK);
    riff64_SaveLocation(h, &at);
    char body[4] = {};
    ASSERT_EQ(riff64_ReadData(h, body, size), S_OK);
    EXPECT_EQ(make_tuple(size, LONGLONG(left), at, std::string(body, 4)),
              make_tuple(4ull, LONGLONG(junk.size() - 24), junk_at + 24, std::string("tail")));
    ASSERT_EQ(riff64_DeleteChunk(h, kJunk, &removed), S_OK);
    CloseHandle(h);
    EXPECT_EQ(make_tuple(removed, std::filesystem::file_size(path)), make_tuple(32ull, junk_at));
    Bytes stored(8);
    std::ifstream in(path, std::ios::binary);
    in.seekg(16).read(reinterpret_cast<char*>(stored.data()), 8);
    EXPECT_EQ(stored, le64(junk_at));
}

TEST(Riff64Faults, WritersWalksAndDeletionReportTheFailingStep) {
    static const Bytes seven = pattern(7);
    // A tail of two blocks and a bit behind "junk"; the same once it is gone.
    const Bytes file = riff64(kWave, chunk64(kJunk, pattern(5)) + chunk64(kData, pattern(5000)));
    const Bytes moved = riff64(kWave, chunk64(kData, pattern(5000)));
    const FaultCase cases[] = {
        {"ReadDataAlloc", kFile, 104,
         [](HANDLE h) {
             return read_alloc_checked(
                 [h](QZRIFFDATA* data) { return riff64_ReadDataAlloc(h, data); }, pattern(5));
         },
         "R-R-M", unchanged},
        // The file header's read does not decide by itself: a failed one
        // reads as a file that is not 64-bit RIFF.
        {"FindListChunkFromStart", kFile, 30,
         [](HANDLE h) { return riff64_FindListChunkFromStart(h, kInfo, nullptr); }, "H-R--",
         unchanged},
        {"WriteChunk", Bytes{}, 0,
         [](HANDLE h) {
             ULONGLONG written = 1;
             const HRESULT hr = riff64_WriteChunk(h, kFmt, seven.data(), 7, &written);
             EXPECT_TRUE(SUCCEEDED(hr) || written == 0);
             return hr;
         },
         "-W---", nothing_past(32)},
        {"streamed list", Bytes{}, 0,
         [](HANDLE h) {
             ULONGLONG start = 0;
             HRESULT hr = riff64_PrepareList(h, kInfo, &start);
             if (SUCCEEDED(hr)) hr = riff64_WriteChunkToFile(h, kName, seven.data(), 7);
             return SUCCEEDED(hr) ? riff64_CompleteChunk(h, start) : hr;
         },
         "-WW--", nothing_past(72)},
        {"SetRIFFSize", kFile, 50, [](HANDLE h) { return riff64_SetRIFFSize(h, 1234); }, "-WW--",
         unchanged_unless_seek},
        {"UpdateRIFFSize", kFile, 50, [](HANDLE h) { return riff64_UpdateRIFFSize(h, -8); },
         "RWB--", unchanged_unless_seek},
        // A failed cut leaves the moved file, with its lowered size, and the
        // old last bytes behind it.
        {"DeleteChunk", file, 0, [](HANDLE h) { return riff64_DeleteChunk(h, kJunk, nullptr); },
         "HWBWM",
         [moved](const TempFile& f, const Bytes& original, FaultOp op) {
             EXPECT_TRUE(op != FaultOp::Truncate ||
                         f.contents() == moved + Bytes(original.end() - 32, original.end()));
         }},
    };
    for (const FaultCase& c : cases) sweep(c);
}

TEST(Riff64Faults, WriteFileIdLetsOnlyTheFormTypeDecide) {
    // The write that fails, the result, what reached the file.
    const std::tuple<unsigned, HRESULT, Bytes> cases[] = {
        {1, S_OK, guid(kWave)},  // no label, so no size either; the form type still goes out
        {2, S_OK, guid(w64("riff")) + guid(kWave)},
        {3, QZE_FILE_WRITE, header64(w64("riff"), 44)},
    };
    for (const auto& [failing_write, expected, contents] : cases) {
        TempFile f({});
        FaultPlan plan;
        plan.fail(FaultOp::Write, failing_write);
        EXPECT_EQ(riff64_WriteFileID(f.handle(), kWave, 20), expected);
        EXPECT_EQ(f.contents(), contents) << failing_write;
    }
}
