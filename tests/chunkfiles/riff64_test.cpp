// riff64_*: headers, the two size conventions, bodies, places, the walk over
// GUID-labelled chunks, deletion and faults.
#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/riff_files.h"
#if QZ_TEST_FAULTS
#include "tests/support/fault_sweep.h"
#endif

using namespace qz::testing;
using std::make_tuple;

namespace {

constexpr ULONGLONG kNone = 0x5A5A5A5A5A5A5A5A;  // no budget given; an output left alone
constexpr GUID kUnset = {0xEEEEEEEE, 0xEEEE, 0xEEEE, {0xEE}};
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
        {'l', header64(w64("list"), 32) + guid(kInfo), S_OK, kInfo, 0, 40},  // size below type
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
        GUID g = kUnset;
        ULONGLONG n = kNone;
        const HRESULT hr = op == 'c' ? riff64_ReadChunkHeader(f.handle(), &g, &n)
                           : op == 'l'
                               ? riff64_ReadListHeader(f.handle(), &g, &n)
                               : riff64_ReadFileID(f.handle(), reinterpret_cast<LONGLONG*>(&n), &g);
        EXPECT_EQ(make_tuple(hr, g, n, f.position()), make_tuple(expected, label, size, position))
            << op << position;
    }
    // Bit 3 of the high word refuses, its top bit does not.
    for (const auto& [size, hr] : {std::pair<ULONGLONG, HRESULT>{12, QZE_MISALIGNED_CHUNK},
                                   {0, QZE_ZERO_LENGTH_CHUNK},
                                   {16, S_OK},
                                   {1ull << 35, QZE_MISALIGNED_CHUNK},
                                   {1ull << 63, S_OK}})
        EXPECT_EQ(riff64_ValidateChunkHeader(kFmt, size), hr);
    DWORD code = 7;
    EXPECT_EQ(
        make_tuple(riff64_getGUIDLabel(kFmt), riff64_getGUIDLabelProperly(kData, &code), code),
        make_tuple(0u, S_OK, 7u));
}

TEST(Riff64Write, WholeChunksStoreTheirDataStreamedOnesTheirPaddingAndWrappingSizesAreRefused) {
    TempFile f(pattern(3));  // 3 bytes ahead, so no start is on the grid
    const HANDLE h = f.handle();
    f.seek(3);
    // Whole chunks, a file and a list header, then a list streamed: the
    // data's own padding, then the chunk's, to 8 from its start.
    ULONGLONG list_start = 0, start = 0, whole = 0, streamed = 0;
    const HRESULT writes[] = {riff64_WriteChunk(h, kFmt, "abcde", 5, &whole),
                              riff64_WriteChunkToFile(h, kData, "abcde", 5),
                              riff64_WriteFileID(h, kWave, 0x0102030405060708),
                              riff64_WriteListHeader(h, kInfo, 16),
                              riff64_PrepareList(h, kInfo, &list_start),
                              riff64_PrepareChunk(h, kName, &start),
                              riff64_WriteToFile(h, "ab", 2),
                              riff64_WriteData(h, "cdefgh", 0x100000006ull, &streamed)};
    for (HRESULT hr : writes) ASSERT_EQ(hr, S_OK) << &hr - writes;
    EXPECT_EQ(make_tuple(whole, streamed, riff64_AmountWritten(h, start)),
              make_tuple(32ull, 8ull, 24ull + 2 + 8));
    EXPECT_EQ(riff64_AmountWritten(h, start + 1000), 0u);
    for (HRESULT hr : {riff64_CompleteChunk(h, start), riff64_CompleteChunk(h, list_start),
                       riff64_WriteToFile(h, "xyz", 3), riff64_Pad(h, 2)})  // 228 from 2: 4 more
        ASSERT_EQ(hr, S_OK);
    EXPECT_EQ(f.position(), 234u);
    // The labels in file order with their sizes: a Wave64 name, "riff" (+ 24) and "list".
    const Bytes expected =
        pattern(3) + hex("666D7420 F3AC D311 8CD1 00C04F8EDB8A 1D00000000000000") + text("abcde") +
        Bytes(3, 0) + guid(kData) + hex("2000000000000000") + text("abcde") + Bytes(3, 0) +
        hex("72696666 2E91 CF11 A5D6 28DB04C10000 2007060504030201") + guid(kWave) +
        hex("6C697374 2F91 CF11 A5D6 28DB04C10000 2800000000000000") + guid(kInfo) +
        list64(kInfo, chunk64(kName, text("abcdefgh") + Bytes(8, 0))) + text("xyz") + Bytes(4, 0);
    for (HRESULT hr :
         {riff64_CompleteChunk(h, 235), riff64_WriteChunkHeader(h, kFmt, ~0ull - 23),
          riff64_WriteFileID(h, kWave, ~0ull - 10), riff64_SetRIFFSize(h, ~0ull),
          riff64_WriteChunk(h, kFmt, nullptr, 1, nullptr), riff64_WriteData(h, nullptr, 1, nullptr),
          riff64_WriteToFile(h, nullptr, 1), riff64_WriteListHeader(h, kInfo, ~0ull),
          riff64_WriteChunkToFile(h, kFmt, nullptr, 1), riff64_PrepareChunk(h, kFmt, nullptr)})
        EXPECT_EQ(hr, E_INVALIDARG);
    EXPECT_EQ(f.contents(), expected);
    EXPECT_EQ(riff64_WriteData(h, nullptr, 0, &streamed), S_OK);
    EXPECT_EQ(riff64_WriteChunkHeader(h, kFmt, ~0ull - 24), S_OK);  // just fits
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
    EXPECT_EQ(riff64_ReadData(nullptr, nullptr, 1), E_INVALIDARG);
    EXPECT_EQ(riff64_ReadDataBounded(nullptr, nullptr, 1, 1), E_INVALIDARG);
}

TEST(Riff64Size, SkipsRiseToTheGridAndSizeUpdatesRefuseToWrap) {
    TempFile f({});
    // No file offset reaches 2^63, and ~0 would wrap when raised: neither is tried.
    for (ULONGLONG size : {5ull, 1ull << 63, ~0ull})
        EXPECT_EQ(riff64_SkipChunk(f.handle(), size), size == 5 ? 8 : size);
    EXPECT_EQ(riff64_SeekDataStart(f.handle()), S_OK);
    EXPECT_EQ(f.position(), 40u);
    // The size stored, the delta, the bytes of the file kept; the result and the size after.
    const std::tuple<ULONGLONG, LONGLONG, size_t, HRESULT, ULONGLONG> cases[] = {
        {56, 10, 56, S_OK, 66},
        {56, -57, 56, E_INVALIDARG, 56},
        {~0ull - 15, 16, 56, E_INVALIDARG, ~0ull - 15},
        {56, 4, 20, QZE_FILE_READ, 56},  // cut inside the size
    };
    for (const auto& [stored, delta, kept, expected, after] : cases) {
        TempFile g(prefix(header64(w64("riff"), stored) + guid(kWave) + pattern(16), kept));
        g.seek(45);
        EXPECT_EQ(riff64_UpdateRIFFSize(g.handle(), delta), expected) << delta;
        EXPECT_EQ(make_tuple(g.contents(), g.position()),
                  make_tuple(prefix(header64(w64("riff"), after) + guid(kWave) + pattern(16), kept),
                             45ull));
    }
}

TEST(Riff64Walk, BudgetsGoNegativeAndHostileSizesNeitherLoopNorWrap) {
    const GUID a = w64("a   "), b = w64("b   "), c = w64("c   ");
    // Entries of 32, 24, 40 and 32 bytes.
    const Bytes entries = chunk64(a, pattern(3)) + chunk64(b, {}) + chunk64(c, pattern(9)) +
                          chunk64(w64("next"), pattern(2));
    // 5 bytes stored whole (29), 5 streamed (32, padding counted), then "c".
    const Bytes both = chunk64(a, pattern(5)) + header64(b, 32) + pattern(5) + Bytes(3, 0) +
                       chunk64(c, pattern(2));
    const Bytes info = list64(kInfo, {});
    enum Op { Find, InRiff, List, FromStart, Count, Seek };
    // The call, the file and the position, the label or index, the budget; the result, the
    // size (the count for Count), the budget after, the position.
    const std::tuple<const char*, Op, Bytes, uint64_t, GUID, DWORD, LONGLONG, HRESULT, ULONGLONG,
                     LONGLONG, uint64_t>
        cases[] = {
            {"negative budget", Find, kFile, 40, kFmt, 0, -5, QZE_NOT_FOUND, kNone, -5, 40},
            {"both size conventions", Find, both, 0, c, 0, 96, S_OK, 2, 8, 88},
            {"below 24 is empty", Find, header64(a, 0) + chunk64(b, pattern(1)), 0, b, 0, kNone,
             S_OK, 1, kNone, 48},
            {"huge: budget left alone", Find, header64(a, ~0ull) + pattern(8), 0, b, 0, 1000,
             QZE_FILE_READ, kNone, 1000, 24},
            {"past the file", Find, header64(a, (1ull << 40) + 24) + pattern(8), 0, b, 0, 1000,
             QZE_NOT_FOUND, kNone, 976 - (1ll << 40), (1ull << 40) + 24},
            {"past the budget", Find, chunk64(a, pattern(40)) + chunk64(kData, pattern(2)), 0,
             kData, 0, 50, QZE_NOT_FOUND, kNone, -14, 64},
            {"in riff: rewinds", InRiff, kFile, 30, kJunk, 0, 0, S_OK, 5, 112, 104},
            {"list: 8 left reads the type", List, info, 0, kInfo, 0, 32, S_OK, 0, -8, 40},
            {"list: 7 left does not", List, info, 0, kInfo, 0, 31, QZE_NOT_FOUND, kNone, 7, 24},
            // A damaged list of size 32 ends where the next begins.
            {"list: shorter than its type", List, header64(w64("list"), 32) + pattern(8) + info, 0,
             kInfo, 0, 72, S_OK, 0, 0, 72},
            {"list: from the start", FromStart, kFile, 30, kInfo, 0, kNone, S_OK, 32, kNone, 152},
            {"count: ends inside a body", Count, entries, 0, a, 0, 30, S_OK, 1, -2, 0},
            {"seek: the end needs 24", Seek, entries, 0, a, 4, 144, QZE_NOT_FOUND, kNone, 16, 128},
        };
    for (const auto& [name, op, bytes, start, label, index, budget, expected, size_after,
                      left_after, position] : cases) {
        TempFile f(bytes);
        f.seek(start);
        const HANDLE h = f.handle();
        ULONGLONG size = kNone;
        DWORD count = 0;
        LONGLONG left = budget, *given = budget == LONGLONG(kNone) ? nullptr : &left;
        const HRESULT hr = op == Find        ? riff64_FindChunkHeader(h, label, &size, given)
                           : op == InRiff    ? riff64_FindChunkHeaderInRIFF(h, label, &size, given)
                           : op == List      ? riff64_FindListChunk(h, label, &size, given)
                           : op == FromStart ? riff64_FindListChunkFromStart(h, label, &size)
                           : op == Count     ? riff64_GetNumListEntries(h, &count, given)
                                             : riff64_SeekListEntry(h, index, given);
        if (op == Count) size = count;
        EXPECT_EQ(make_tuple(hr, size, left, f.position()),
                  make_tuple(expected, size_after, left_after, position))
            << name;
    }
    EXPECT_EQ(riff64_GetNumListEntries(nullptr, nullptr, nullptr), E_INVALIDARG);
}

TEST(Riff64Delete, SpansMoveTheTailAndLowerTheSizeOrChangeNothing) {
    // A file size of 110 after "fmt ": it covers a last chunk that lacks its
    // padding, as sox leaves it, but not 10 bytes of a "junk" the file holds.
    const Bytes head = header64(w64("riff"), 110) + guid(kWave) + chunk64(kFmt, pattern(16));
    const Bytes unpadded = head + header64(kData, 30) + pattern(6);
    const Bytes past_size = head + chunk64(kJunk, pattern(16));
    const Bytes past_file = riff64(kWave, header64(kData, 124) + pattern(20));
    // The file, the label, the result, what is left and the span removed.
    const std::tuple<Bytes, GUID, HRESULT, Bytes, ULONGLONG> cases[] = {
        {kFile, kJunk, S_OK,
         riff64(kWave, chunk64(kFmt, pattern(16)) + list64(kInfo, chunk64(kName, text("tone"))) +
                           chunk64(kData, pattern(6))),
         32},
        {unpadded, kData, S_OK, riff64(kWave, chunk64(kFmt, pattern(16))), 30},
        {kFile, kName, QZE_NOT_FOUND, kFile, 0},  // only the top level is searched
        {past_file, kData, QZE_CORRUPT_OR_UNKNOWN, past_file, 0},
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

#if QZ_TEST_FAULTS
// The fault plan is the POSIX layer's; Windows has nothing to make a call fail.
TEST(Riff64Faults, WritersReadersAndDeletionReportTheFailingStep) {
    static const Bytes seven = pattern(7);
    // A tail of two blocks and a bit behind "junk"; the same once it is gone.
    const Bytes file = riff64(kWave, chunk64(kJunk, pattern(5)) + chunk64(kData, pattern(5000)));
    const Bytes moved = riff64(kWave, chunk64(kData, pattern(5000)));
    const FaultCase cases[] = {
        {"ReadDataAlloc", kFile, 104,
         [](HANDLE h) {
             return read_alloc_checked([h](QZRIFFDATA* d) { return riff64_ReadDataAlloc(h, d); },
                                       pattern(5));
         },
         "R-R-M", unchanged},
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
        {"UpdateRIFFSize", kFile, 50, [](HANDLE h) { return riff64_UpdateRIFFSize(h, -8); },
         "RWB--", unchanged_unless_seek},
        // The file header's read does not decide by itself: a failed one reads
        // as a file that is not 64-bit RIFF. A failed cut leaves the moved
        // file, with its lowered size, and the old last bytes behind it.
        {"DeleteChunk", file, 0, [](HANDLE h) { return riff64_DeleteChunk(h, kJunk, nullptr); },
         "HWBWM",
         [moved](const TempFile& f, const Bytes& original, FaultOp op) {
             EXPECT_TRUE(op != FaultOp::Truncate ||
                         f.contents() == moved + Bytes(original.end() - 32, original.end()));
         }},
    };
    for (const FaultCase& c : cases) sweep(c);
    // WriteFileID: no label, so no size either; the form type still goes out.
    sweep_writes([](HANDLE h) { return riff64_WriteFileID(h, kWave, 20); },
                 {
                     {1, S_OK, guid(kWave)},
                     {2, S_OK, guid(w64("riff")) + guid(kWave)},
                     {3, QZE_FILE_WRITE, header64(w64("riff"), 44)},
                 });
}
#endif
