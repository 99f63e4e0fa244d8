// mriff_*: clamped moves, short copies, the walk's entry points, wave headers.
// The walk's own rules are shared with riff_* and pinned in riff_test.cpp.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/faults.h"
#include "qz/mriff.h"
#include "qz/qzwaveformat.h"
#include "tests/support/riff_files.h"
#include "tests/support/waveformat_bytes.h"

namespace {

using namespace qz::testing;
using std::make_tuple;

constexpr DWORD kNone = 0xDEADBEEF;  // no budget given; an output left alone

// An image followed by guard bytes that no call may touch.
struct Image {
    std::vector<uint8_t> storage;
    _tMRIFF m{};

    Image(const Bytes& data, DWORD capacity) : storage(capacity + 64, 0xD7) {
        std::copy(data.begin(), data.end(), storage.begin());
        EXPECT_EQ(mriff_Init(&m, storage.data(), DWORD(data.size()), capacity), S_OK);
    }
    explicit Image(const Bytes& data) : Image(data, DWORD(data.size())) {}
    ~Image() { EXPECT_EQ(Bytes(m.pCapacityEnd, storage.data() + storage.size()), Bytes(64, 0xD7)); }
    DWORD at() { return mriff_QzSetFilePointer(&m, 0, FILE_CURRENT); }
    void go(DWORD offset) { mriff_RestoreLocation(&m, offset); }
    DWORD data_size() const { return DWORD(m.pDataEnd - m.pBase); }
    Bytes bytes(size_t n) const { return Bytes(storage.begin(), storage.begin() + n); }
};

TEST(MriffCursor, InitRefusesNullAndDataPastTheCapacityButTakesAnEmptyImage) {
    uint8_t buffer[16];
    _tMRIFF m;
    EXPECT_EQ(mriff_Init(nullptr, buffer, 4, 8), E_POINTER);
    EXPECT_EQ(mriff_Init(&m, buffer, 10, 8), E_INVALIDARG);
    EXPECT_EQ(mriff_Init(&m, nullptr, 0, 8), E_POINTER);
    EXPECT_EQ(mriff_Init(&m, nullptr, 0, 0), S_OK);
    DWORD got = 9;
    EXPECT_FALSE(mriff_ReadFile(&m, buffer, 1, &got, nullptr));
    EXPECT_EQ(got, 0u);
}

TEST(MriffCursor, EveryMoveIsClampedIntoTheData) {
    // From offset 10 of 20 bytes (capacity 32): method, distance, where the move ends.
    const std::tuple<DWORD, DWORD, DWORD> moves[] = {
        {FILE_BEGIN, 21, 20},           // capacity beyond the data does not count
        {FILE_BEGIN, 0xFFFFFFFC, 20},   // from the base the distance is unsigned
        {FILE_CURRENT, 0xFFFFFFFC, 6},  // -4
        {FILE_CURRENT, 0xFFFFFF00, 0},  // -256 stops at the base
        {FILE_END, 0xFFFFFFF8, 12},     // -8
        {FILE_END, 0x80000000, 0},      //
        {3, 99, 10},                    // unknown method: the position stays
    };
    Image img(Bytes(20, 0x11), 32);
    for (const auto& [method, distance, expected] : moves) {
        img.go(10);
        EXPECT_EQ(mriff_SetFilePointer(&img.m, distance, nullptr, method), expected) << distance;
        img.go(10);
        EXPECT_EQ(mriff_QzSetFilePointer(&img.m, distance, method), expected) << distance;
        EXPECT_EQ(img.m.pCurrent, img.m.pBase + expected);
    }
    DWORD saved = 0;
    img.go(7);
    EXPECT_EQ(mriff_SaveLocation(&img.m, &saved), S_OK);
    EXPECT_EQ(mriff_RestoreLocation(&img.m, 30), S_OK);  // clamped
    EXPECT_EQ(make_tuple(saved, img.at()), make_tuple(7u, 20u));
    img.go(2);
    EXPECT_EQ(mriff_SkipChunk(&img.m, 5), 6u);  // odd sizes take their pad
    EXPECT_EQ(img.at(), 8u);
    EXPECT_EQ(mriff_SkipChunk(&img.m, 100), 100u);  // the amount, not what fitted
    EXPECT_EQ(mriff_SkipChunk(nullptr, 4), 0u);     // no cursor, nothing skipped
    EXPECT_EQ(mriff_SeekDataStart(&img.m), S_OK);
    EXPECT_EQ(img.at(), 12u);
}

TEST(MriffCopy, WritesCopyWhatFitsMoveTheDataEndAndReportShortHeaders) {
    Image img(Bytes(12, 0x11), 15);
    img.go(2);
    DWORD put = 0;
    EXPECT_TRUE(mriff_WriteFile(&img.m, "xy", 2, &put, nullptr));  // inside: the end stays
    EXPECT_EQ(img.data_size(), 12u);
    img.go(12);
    EXPECT_TRUE(mriff_WriteFile(&img.m, "ABCDEFG", 7, &put, nullptr));
    EXPECT_EQ(make_tuple(put, img.data_size()), make_tuple(3u, 15u));
    EXPECT_EQ(img.bytes(15), Bytes(2, 0x11) + text("xy") + Bytes(8, 0x11) + text("ABC"));
    Image grow(Bytes(10, 0), 16);
    EXPECT_EQ(mriff_UpdateDataSize(&grow.m, 4), 4u);
    EXPECT_EQ(mriff_UpdateDataSize(&grow.m, 100), 2u);
    EXPECT_EQ(grow.data_size(), 16u);

    // Room after the position for: a chunk header (8), a list or file header (12).
    for (const DWORD room : {3u, 11u, 12u}) {
        Image a(Bytes(), room), b(Bytes(), room), c(Bytes(), room);
        EXPECT_EQ(mriff_WriteChunkHeader(&a.m, cc("data"), 4), room < 8 ? QZE_FILE_WRITE : S_OK);
        const HRESULT list = room < 12 ? QZE_FILE_WRITE : S_OK;
        EXPECT_EQ(mriff_WriteListHeader(&b.m, cc("INFO"), 0x10), list) << room;
        EXPECT_EQ(mriff_WriteFileID(&c.m, cc("WAVE"), 4), list) << room;
        EXPECT_EQ(make_tuple(a.at(), c.data_size()), make_tuple(std::min<DWORD>(room, 8), room));
        EXPECT_EQ(b.bytes(room), prefix(header("LIST", 0x10) + text("INFO"), room));
    }
}

TEST(MriffRead, ShortImagesReadAsShortOrWrongHeaders) {
    // Chunk header, list header and file header of: 3 bytes, a RIFF header without form type.
    const std::tuple<Bytes, HRESULT, HRESULT, HRESULT> cases[] = {
        {text("RIF"), QZE_FILE_READ, QZE_FILE_READ, QZE_NO_RIFF_HEADER},
        {header("RIFF", 4), S_OK, QZE_NO_LIST_HEADER, QZE_FILE_READ},
    };
    for (const auto& [image, chunk_hr, list_hr, file_hr] : cases) {
        DWORD a = 0, b = 0;
        Image i1(image), i2(image), i3(image);
        EXPECT_EQ(make_tuple(mriff_ReadChunkHeader(&i1.m, &a, &b),
                             mriff_ReadListHeader(&i2.m, &a, &b), mriff_ReadFileID(&i3.m, &a, &b)),
                  make_tuple(chunk_hr, list_hr, file_hr));
    }
    Image img(text("0123456789ABCDEF"), 20);
    img.go(10);
    char out[10];
    DWORD got = 0;
    EXPECT_FALSE(mriff_ReadFile(&img.m, out, 10, &got, nullptr));
    EXPECT_EQ(make_tuple(std::string(out, got), img.at()), make_tuple(std::string("ABCDEF"), 16u));
}

TEST(MriffRead, ReadDataSkipsAnOddCountsPadAndBoundedReadsTakeTheChunkSizeFourth) {
    // A 7-byte body, its pad, then the next header. 'd': ReadData of `a`
    // bytes; 'b': ReadDataBounded with `a` the limit and `b` the chunk size;
    // then the result and the position after.
    const Bytes image = text("ABCDEFG") + Bytes{0} + text("next");
    const std::tuple<char, DWORD, DWORD, HRESULT, DWORD> cases[] = {
        {'d', 3, 0, S_OK, 4},
        {'d', 5, 0, S_OK, 6},
        {'d', 20, 0, QZE_FILE_READ, 12},  // what is there is copied
        {'b', 4, 7, S_OK, 8},             // rest 3 + pad (7 odd) lands on the next header
        {'b', 10, 7, S_OK, 8},            // whole body, pad skipped
        {'b', 7, 4, S_OK, 4},             // 4 is even: no pad, no rest
        {'b', 4, 10, S_OK, 10},           // rest of a 10-byte "chunk": 6 more
        {'b', 0, 5, S_OK, 6},
        {'b', 20, 20, QZE_FILE_READ, 12},
        {'b', 1, 0xFFFFFFFF, S_OK, 12},  // a huge rest is clamped at the data end
    };
    for (const auto& [op, a, b, hr, position] : cases) {
        Image img(image);
        char out[32] = {};
        EXPECT_EQ(
            op == 'd' ? mriff_ReadData(&img.m, out, a) : mriff_ReadDataBounded(&img.m, out, a, b),
            hr);
        const size_t n = std::min<size_t>(op == 'd' ? a : std::min(a, b), 12);
        EXPECT_EQ(make_tuple(Bytes(out, out + n), img.at()), make_tuple(prefix(image, n), position))
            << op << a << "/" << b;
    }
    Image img(image);
    EXPECT_EQ(mriff_ReadData(&img.m, nullptr, 3), E_INVALIDARG);
}

TEST(MriffRead, ReadDataAllocAllocatesReadsAndFreesOnFailure) {
    Image img(text("hello world"));
    const auto read = [&](QZRIFFDATA* data) { return mriff_ReadDataAlloc(&img.m, data); };
    EXPECT_EQ(read_alloc_checked(read, text("hello")), S_OK);
    EXPECT_EQ(img.at(), 6u);  // odd count: pad skipped
    QZRIFFDATA data;
    for (const DWORD count : {10u, 0u}) {  // only 5 left; nothing asked
        data = {count, reinterpret_cast<LPVOID>(1)};
        EXPECT_EQ(read(&data), count ? QZE_FILE_READ : S_OK);
        EXPECT_EQ(data.pData, nullptr);
    }
    EXPECT_EQ(read(nullptr), E_INVALIDARG);
#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
    // No memory: nothing read, the position stays.
    img.go(0);
    FaultPlan plan;
    plan.fail(FaultOp::Alloc, 1);
    data = {4, reinterpret_cast<LPVOID>(1)};
    EXPECT_EQ(read(&data), E_OUTOFMEMORY);
    EXPECT_EQ(make_tuple(data.pData, img.at()), make_tuple(LPVOID(nullptr), 0u));
#endif
}

enum Op { Find, InRiff, List, FromStart, Count };

HRESULT walk(Op op, _tMRIFF* m, DWORD arg, DWORD* size, DWORD* left) {
    switch (op) {
        case Find:
            return mriff_FindChunkHeader(m, arg, size, left);
        case InRiff:
            return mriff_FindChunkHeaderInRIFF(m, arg, size, left);
        case List:
            return mriff_FindListChunk(m, arg, size, left);
        case FromStart:
            return mriff_FindListChunkFromStart(m, arg, size);
        case Count:
            break;
    }
    return mriff_GetNumListEntries(m, size, left);
}

TEST(MriffWalk, EntryPointsRunOverTheImageAndInRiffTakesTheCallersBudget) {
    // "abcd" (odd), LIST "adtl", LIST "INFO", "data": 12 + 24 + 24 + 14 bytes.
    const Bytes wave =
        riff("WAVE", chunk("abcd", text("xyz")) + list("adtl", chunk("labl", text("cue1"))) +
                         list("INFO", chunk("INAM", text("Song"))) + chunk("data", Bytes(6, 0x55)));
    const Bytes image = Bytes(8, 0xAA) + wave;  // a RIFF image 8 bytes in
    // A chunk claiming 0xFFFFFFFF bytes: the skip stops at the data end.
    const Bytes huge = header("junk", 0xFFFFFFFF) + Bytes(10, 0);
    struct Row {
        Op op;
        const Bytes& bytes;
        DWORD from, arg, budget;
        HRESULT hr;
        DWORD size, left, position;  // size: the count for Count
    };
    const Row rows[] = {
        {InRiff, image, 8, cc("abcd"), 11, QZE_NOT_FOUND, kNone, 11, 8},  // reads nothing
        {InRiff, image, 8, cc("abcd"), 100, S_OK, 3, 80, 28},
        // The header's own size is not the budget: 50 covers two chunks only.
        {InRiff, image, 8, cc("data"), 50, QZE_NOT_FOUND, kNone, 2, 56},
        {InRiff, image, 8, cc("data"), kNone, S_OK, 6, kNone, 88},
        {InRiff, image, 0, 0, 100, QZE_NO_RIFF_HEADER, kNone, 100, 8},
        {Find, huge, 0, 0, 0xFFFFFFFF, QZE_NOT_FOUND, kNone, 0, 18},
        {Find, huge, 0, 0, kNone, QZE_FILE_READ, kNone, kNone, 18},
        {List, image, 20, cc("INFO"), 74, S_OK, 12, 26, 68},
        {FromStart, wave, 50, cc("adtl"), kNone, S_OK, 12, kNone, 36},
        {FromStart, wave, 50, 0, kNone, QZE_NOT_FOUND, kNone, kNone, 86},
        {FromStart, image, 50, 0, kNone, QZE_NO_RIFF_HEADER, kNone, kNone, 8},
        {Count, wave, 12, 0, 74, S_OK, 4, 0, 12},
        {Count, huge, 0, 0, kNone, QZE_FILE_READ, 1, kNone, 0},
    };
    for (const Row& r : rows) {
        Image img(r.bytes);
        img.go(r.from);
        DWORD size = kNone, left = r.budget;
        EXPECT_EQ(walk(r.op, &img.m, r.arg, &size, r.budget == kNone ? nullptr : &left), r.hr);
        EXPECT_EQ(make_tuple(size, left, img.at()), make_tuple(r.size, r.left, r.position))
            << r.op << " from " << r.from;
    }
}

TEST(MriffInfo, ReadsOneTextAndAlwaysGoesBack) {
    Image img(chunk("abcd", text("xyz")) +
              list("INFO", chunk("INAM", text("Song")) + chunk("IART", text("Band"))));
    // The id, buffer size, budget, result, text read and the start.
    const std::tuple<const char*, DWORD, DWORD, HRESULT, std::string, DWORD> cases[] = {
        {"IART", 16, 100, S_OK, "Band", 0},
        {"IART", 2, 100, S_OK, "Ba", 0},  // cut to the buffer, no terminator
        {"ICMT", 16, 100, QZE_NOT_FOUND, "", 0},
        {"INAM", 16, 12, QZE_NOT_FOUND, "", 0},     // the budget ends before the list
        {"INAM", 16, kNone, QZE_FILE_READ, "", 4},  // from inside "abcd": no list
    };
    for (const auto& [id, buffer_size, budget, hr, want, start] : cases) {
        img.go(start);
        char out[16];
        std::memset(out, '#', sizeof out);
        DWORD left = budget;
        EXPECT_EQ(mriff_GetInfoString(&img.m, cc(id), out, buffer_size,
                                      budget == kNone ? nullptr : &left),
                  hr);
        EXPECT_EQ(make_tuple(std::string(out, want.size() + 1), img.at()),
                  make_tuple(want + "#", start));
    }
}

Bytes wave_header_bytes(DWORD riff_size, const Bytes& fmt_body, DWORD data_size) {
    return header("RIFF", riff_size) + text("WAVE") + header("fmt ", uint32_t(fmt_body.size())) +
           fmt_body + header("data", data_size);
}

TEST(MriffWaveHeader, WritesTheCanonicalHeaderAndHoldsTheSizeAtTheTop) {
    Wfx stale = plain(1, 2, 44100, 16);
    stale.align = 2;  // rebuilt for PCM
    stale.avg = 1;
    stale.cb = 99;
    const Wfx f32 = plain(3, 2, 48000, 32);
    Wfx adpcm = plain(2, 1, 22050, 4);
    adpcm.align = 256;
    adpcm.cb = 32;  // the 18-byte body says 32 more bytes; none are written
    const Bytes pcm = prefix(encode(plain(1, 2, 44100, 16)), 16);
    // The format, data size, room for more, and the header expected.
    const std::tuple<Wfx, DWORD, DWORD, Bytes> cases[] = {
        {stale, 1001, 0, wave_header_bytes(1038, pcm, 1001)},  // odd total raised to even
        {f32, 0, 0, wave_header_bytes(38, encode(f32), 0)},
        {adpcm, 4, 3, wave_header_bytes(46, encode(adpcm), 4)},
        // The RIFF size never wraps; past 32 bits it is held at 0xFFFFFFFF.
        {stale, 0xFFFFFFDA, 0, wave_header_bytes(0xFFFFFFFE, pcm, 0xFFFFFFDA)},
        {stale, 0xFFFFFFDB, 0, wave_header_bytes(0xFFFFFFFF, pcm, 0xFFFFFFDB)},  // the pad
        {f32, 0x80000000, 0x80000000, wave_header_bytes(0xFFFFFFFF, encode(f32), 0x80000000)},
    };
    for (const auto& [format, data, extra, expected] : cases) {
        Image img(Bytes(), 64);
        WfxBuffer wfx(encode(format));
        EXPECT_EQ(mriff_WriteWaveHeader(&img.m, wfx.wfx(), data, extra), S_OK) << data;
        EXPECT_EQ(make_tuple(img.bytes(expected.size()), img.at()),
                  make_tuple(expected, DWORD(expected.size())))
            << data;
    }
    // From a record: 44 bytes in all (RIFF header 12, fmt 24, data header 8),
    // of which a short capacity takes what fits; the data header is not reported.
    _qzwaveformat rec;
    rec.Init(44100, QZST_PCM16, 2, 0, 32);
    for (const DWORD capacity : {0u, 35u, 36u, 44u}) {
        Image img(Bytes(), capacity);
        EXPECT_EQ(mriff_WriteWaveHeader(&img.m, rec, 1000, 0),
                  capacity < 36 ? QZE_FILE_WRITE : S_OK);
        EXPECT_EQ(make_tuple(img.bytes(capacity), img.data_size()),
                  make_tuple(prefix(wave_header_bytes(1036, pcm, 1000), capacity), capacity));
    }
    Image img(Bytes(), 64);
    EXPECT_EQ(mriff_WriteWaveHeader(&img.m, static_cast<const WAVEFORMATEX*>(nullptr), 0, 0),
              E_POINTER);
}

TEST(MriffGetWfx, ReadsFormatAndDataSizeOrLeavesTheOutputsAlone) {
    const Bytes pcm = encode(plain(1, 2, 44100, 16));
    const Bytes ext51 = encode(extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24));
    // The image, the result, the 18 bytes of the structure and the data size.
    const std::tuple<Bytes, HRESULT, Bytes, DWORD> cases[] = {
        {riff("WAVE", chunk("fmt ", prefix(pcm, 16)) + chunk("data", Bytes(8, 0))), S_OK, pcm, 8},
        {riff("WAVE", chunk("fmt ", ext51) + chunk("data", Bytes())), S_OK, prefix(ext51, 18), 0},
        // "data" first, then "fmt " claiming 18 bytes of which 6 are present.
        {header("RIFF", 40) + text("WAVE") + chunk("data", Bytes(2, 0)) + header("fmt ", 18) +
             prefix(pcm, 6),
         S_OK, prefix(pcm, 6) + Bytes(12, 0), 2},
        {riff("AVI ", chunk("fmt ", pcm) + chunk("data", Bytes())), E_FAIL, Bytes(18, 0xEE), 77},
        {header("RIFX", 0x10) + text("WAVEfmt "), QZE_NO_RIFF_HEADER, Bytes(18, 0xEE), 77},
        {riff("WAVE", chunk("fmt ", pcm)), QZE_NOT_FOUND, Bytes(18, 0xEE), 77},
        {riff("WAVE", chunk("data", Bytes(2, 0))), QZE_NOT_FOUND, Bytes(18, 0xEE), 77},
    };
    for (const auto& [image, hr, wfx, data_size] : cases) {
        WfxBuffer out(Bytes(18, 0xEE));
        DWORD size = 77;
        EXPECT_EQ(mriff_GetWfx(out.wfx(), image.data(), DWORD(image.size()), &size), hr);
        EXPECT_EQ(make_tuple(Bytes(out.data, out.data + 18), size), make_tuple(wfx, data_size));
    }
    WAVEFORMATEX out;
    const Bytes& first = std::get<0>(cases[0]);
    EXPECT_EQ(mriff_GetWfx(&out, first.data(), DWORD(first.size()), nullptr), S_OK);
    EXPECT_EQ(mriff_GetWfx(&out, nullptr, 4, nullptr), E_POINTER);
}

TEST(MriffGetWfx, RecordFormKeepsTheExtensibleFieldsAndCodecBytes) {
    // Codec bytes come along, up to what a 128-byte record holds.
    Wfx adpcm = plain(2, 1, 22050, 4);
    adpcm.cb = 100;
    adpcm.extra = Bytes(100, 0x5C);
    // The "fmt " body, then the sample type, mask, flags and codec bytes of the record.
    const std::tuple<Bytes, DWORD, DWORD, DWORD, WORD> cases[] = {
        {encode(extensible(plain(1, 6, 48000, 24), 1, 0x60F, 24)), QZST_PCM24, 0x60F,
         QZWF_EXTENSIBLE, 0},
        {prefix(encode(plain(1, 2, 44100, 16)), 16), QZST_PCM16, 0, 0, 0},  // mask 0: the default
        {encode(adpcm), QZST_NONE, 0, QZWF_FOREIGN, 94},
    };
    for (const auto& [fmt, type, mask, flags, extra_size] : cases) {
        const Bytes image = riff("WAVE", chunk("fmt ", fmt) + chunk("data", Bytes(36, 0)));
        _qzwaveformat rec;
        DWORD data_size = 0;
        ASSERT_EQ(mriff_GetWfx(&rec, image.data(), DWORD(image.size()), nullptr), S_OK);
        ASSERT_EQ(mriff_GetWfx(&rec, image.data(), DWORD(image.size()), &data_size), S_OK);
        EXPECT_EQ(
            make_tuple(rec.sampleType, rec.channelMask,
                       rec.flags & (QZWF_EXTENSIBLE | QZWF_FOREIGN), rec.extraSize, data_size),
            make_tuple(type, mask, flags, extra_size, 36u));
    }
}

}  // namespace
