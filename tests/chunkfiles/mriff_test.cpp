// mriff_*: clamped moves, short copies, budgeted searches, wave headers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/posix/fault_plan.h"
#include "qz/mriff.h"
#include "qz/qzwaveformat.h"
#include "qz/win32compat.h"
#include "tests/support/riff_files.h"
#include "tests/support/waveformat_bytes.h"

namespace {

using namespace qz::testing;

// An image followed by guard bytes that no call may touch.
struct Image {
    static constexpr size_t kGuard = 64;
    std::vector<uint8_t> storage;
    _tMRIFF m{};
    DWORD capacity;

    Image(const Bytes& data, DWORD cap) : storage(cap + kGuard, 0xD7), capacity(cap) {
        if (!data.empty()) std::memcpy(storage.data(), data.data(), data.size());
        EXPECT_EQ(mriff_Init(&m, storage.data(), DWORD(data.size()), cap), S_OK);
    }
    explicit Image(const Bytes& data) : Image(data, DWORD(data.size())) {}
    ~Image() {
        for (size_t i = capacity; i < storage.size(); ++i)
            EXPECT_EQ(storage[i], 0xD7) << "guard byte " << i - capacity << " touched";
    }
    DWORD at() { return mriff_QzSetFilePointer(&m, 0, FILE_CURRENT); }
    void go(DWORD offset) { mriff_RestoreLocation(&m, offset); }
    DWORD data_size() const { return DWORD(m.pDataEnd - m.pBase); }
};

// ---- the cursor ------------------------------------------------------------------

TEST(MriffInit, RejectsNullCursorAndDataPastCapacityButTakesAnEmptyImage) {
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

TEST(MriffSeek, EveryMoveIsClampedIntoTheData) {
    struct Row {
        DWORD from, method, distance, expected;
    };
    const Row rows[] = {
        {10, FILE_BEGIN, 21, 20},          // capacity beyond the data does not count
        {10, FILE_BEGIN, 0xFFFFFFFC, 20},  // from the base the distance is unsigned
        {10, FILE_CURRENT, 100, 20},       {10, FILE_CURRENT, 0xFFFFFFFC, 6},  // -4
        {10, FILE_CURRENT, 0xFFFFFF00, 0},                   // -256 stops at the base
        {10, FILE_END, 0xFFFFFFF8, 12},                      // -8
        {10, FILE_END, 0x80000000, 0},     {10, 3, 99, 10},  // unknown method: the position stays
    };
    for (const Row& r : rows) {
        Image img(Bytes(20, 0x11), 32);
        img.go(r.from);
        EXPECT_EQ(mriff_SetFilePointer(&img.m, r.distance, nullptr, r.method), r.expected)
            << r.method << " " << r.distance;
        EXPECT_EQ(img.m.pCurrent, img.m.pBase + r.expected);
        img.go(r.from);
        EXPECT_EQ(mriff_QzSetFilePointer(&img.m, r.distance, r.method), r.expected);
    }
}

TEST(MriffSeek, SaveRestoreSkipAndDataStart) {
    Image img(Bytes(20, 0x11), 32);
    DWORD saved = 0;
    img.go(7);
    EXPECT_EQ(mriff_SaveLocation(&img.m, &saved), S_OK);
    EXPECT_EQ(saved, 7u);
    EXPECT_EQ(mriff_RestoreLocation(&img.m, 30), S_OK);
    EXPECT_EQ(img.at(), 20u);  // clamped
    img.go(2);
    EXPECT_EQ(mriff_SkipChunk(&img.m, 5), 6u);  // odd sizes take their pad
    EXPECT_EQ(img.at(), 8u);
    EXPECT_EQ(mriff_SkipChunk(&img.m, 100), 100u);  // the amount, not what fitted
    EXPECT_EQ(img.at(), 20u);
    EXPECT_EQ(mriff_SkipChunk(nullptr, 4), 0u);  // no cursor, nothing skipped
    EXPECT_EQ(mriff_SeekDataStart(&img.m), S_OK);
    EXPECT_EQ(img.at(), 12u);
}

// ---- reading and writing bytes ---------------------------------------------------

TEST(MriffCopy, ShortReadsCopyWhatIsThereAndAdvance) {
    // mriff_ReadFile says FALSE, mriff_ReadData a read failure; both copy the 6 bytes left.
    Image img(text("0123456789ABCDEF"), 20);
    for (bool as_data : {false, true}) {
        img.go(10);
        char out[10];
        std::memset(out, '.', sizeof out);
        DWORD got = 0;
        if (as_data) {
            EXPECT_EQ(mriff_ReadData(&img.m, out, 10), QZE_FILE_READ);
        } else {
            EXPECT_FALSE(mriff_ReadFile(&img.m, out, 10, &got, nullptr));
            EXPECT_EQ(got, 6u);
        }
        EXPECT_EQ(std::string(out, 10), "ABCDEF....");
        EXPECT_EQ(img.at(), 16u);
    }
    img.go(0);
    uint8_t out[4];
    EXPECT_EQ(mriff_ReadData(&img.m, out, 3), S_OK);  // odd: the pad is skipped
    EXPECT_EQ(img.at(), 4u);
    EXPECT_EQ(mriff_ReadData(&img.m, nullptr, 3), E_INVALIDARG);
}

TEST(MriffCopy, ShortWritesCopyWhatFitsAndMoveTheDataEnd) {
    Image img(Bytes(12, 0x11), 15);
    img.go(12);
    DWORD put = 0;
    EXPECT_TRUE(mriff_WriteFile(&img.m, "ABCDEFG", 7, &put, nullptr));
    EXPECT_EQ(put, 3u);
    EXPECT_EQ(img.data_size(), 15u);
    EXPECT_EQ(img.at(), 15u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(img.storage.data()) + 12, 3), "ABC");

    // A write inside the data leaves the data end where it is.
    Image inner(Bytes(12, 0x11), 20);
    inner.go(2);
    EXPECT_TRUE(mriff_WriteFile(&inner.m, "xy", 2, &put, nullptr));
    EXPECT_EQ(inner.data_size(), 12u);
    EXPECT_EQ(inner.at(), 4u);
}

TEST(MriffCopy, HeaderWritesReportWhatDidNotFit) {
    struct Row {
        DWORD room;
        HRESULT chunk, list;
    };
    // Room after the position for: a chunk header (8), a list or file header (12).
    const Row rows[] = {
        {3, QZE_FILE_WRITE, QZE_FILE_WRITE}, {11, S_OK, QZE_FILE_WRITE}, {12, S_OK, S_OK}};
    for (const Row& r : rows) {
        Image a(Bytes(), r.room);
        EXPECT_EQ(mriff_WriteChunkHeader(&a.m, cc("data"), 0x01020304), r.chunk) << r.room;
        EXPECT_EQ(a.at(), std::min<DWORD>(r.room, 8));
        Image b(Bytes(), r.room);
        EXPECT_EQ(mriff_WriteListHeader(&b.m, cc("INFO"), 4), r.list) << r.room;
        Image c(Bytes(), r.room);
        EXPECT_EQ(mriff_WriteFileID(&c.m, cc("WAVE"), 4), r.list) << r.room;
        EXPECT_EQ(c.data_size(), std::min<DWORD>(r.room, 12));
    }
    Image img(Bytes(), 12);
    ASSERT_EQ(mriff_WriteListHeader(&img.m, cc("INFO"), 0x10), S_OK);
    const Bytes want = {'L', 'I', 'S', 'T', 0x10, 0, 0, 0, 'I', 'N', 'F', 'O'};
    EXPECT_EQ(Bytes(img.storage.begin(), img.storage.begin() + 12), want);
}

TEST(MriffCopy, UpdateDataSizeStopsAtTheCapacity) {
    Image img(Bytes(10, 0), 16);
    EXPECT_EQ(mriff_UpdateDataSize(&img.m, 4), 4u);
    EXPECT_EQ(img.data_size(), 14u);
    EXPECT_EQ(mriff_UpdateDataSize(&img.m, 100), 2u);
    EXPECT_EQ(img.data_size(), 16u);
    EXPECT_EQ(mriff_UpdateDataSize(&img.m, 1), 0u);
}

// ---- headers ------------------------------------------------------------------------

TEST(MriffHeaders, ReadsReportShortAndWrongHeaders) {
    struct Row {
        const char* name;
        Bytes image;
        HRESULT chunk, list, file;
    };
    const Row rows[] = {
        {"3 bytes", text("RIF"), QZE_FILE_READ, QZE_FILE_READ, QZE_NO_RIFF_HEADER},
        {"RIFF header without form", header("RIFF", 4), S_OK, QZE_NO_LIST_HEADER, QZE_FILE_READ},
    };
    for (const Row& r : rows) {
        DWORD a = 0, b = 0;
        Image i1(r.image);
        EXPECT_EQ(mriff_ReadChunkHeader(&i1.m, &a, &b), r.chunk) << r.name;
        Image i2(r.image);
        EXPECT_EQ(mriff_ReadListHeader(&i2.m, &a, &b), r.list) << r.name;
        Image i3(r.image);
        EXPECT_EQ(mriff_ReadFileID(&i3.m, &a, &b), r.file) << r.name;
    }
}

// ---- bounded reads: which argument plays which part --------------------------------

TEST(MriffReadDataBounded, FourthArgumentIsTheChunkSize) {
    // A 7-byte body, its pad, then the next header.
    const Bytes image = text("ABCDEFG") + Bytes{0} + text("next");
    struct Row {
        DWORD third, fourth;
        const char* read;
        DWORD position;
        HRESULT hr;
    };
    const Row rows[] = {
        {4, 7, "ABCD", 8, S_OK},      // rest 3 + pad (7 odd) lands on the next header
        {10, 7, "ABCDEFG", 8, S_OK},  // whole body, pad skipped
        {7, 4, "ABCD", 4, S_OK},      // 4 is even: no pad, no rest
        {4, 10, "ABCD", 10, S_OK},    // rest of a 10-byte "chunk": 6 more
        {0, 5, "", 6, S_OK},
        {20, 20, "ABCDEFG\0next", 12, QZE_FILE_READ},
        {1, 0xFFFFFFFF, "A", 12, S_OK},  // a huge rest is clamped at the data end
    };
    for (const Row& r : rows) {
        Image img(image);
        char out[32] = {};
        EXPECT_EQ(mriff_ReadDataBounded(&img.m, out, r.third, r.fourth), r.hr)
            << r.third << "/" << r.fourth;
        const size_t n = std::min<size_t>(std::min(r.third, r.fourth), 12);
        EXPECT_EQ(std::string(out, n), std::string(r.read, n)) << r.third << "/" << r.fourth;
        EXPECT_EQ(img.at(), r.position) << r.third << "/" << r.fourth;
    }
}

TEST(MriffReadDataAlloc, AllocatesReadsAndFreesOnFailure) {
    Image img(text("hello world"));
    QZRIFFDATA data{5, nullptr};
    ASSERT_EQ(mriff_ReadDataAlloc(&img.m, &data), S_OK);
    ASSERT_NE(data.pData, nullptr);
    EXPECT_EQ(std::string(static_cast<char*>(data.pData), 5), "hello");
    EXPECT_EQ(img.at(), 6u);  // odd count: pad skipped
    HGLOBAL h = GlobalHandle(data.pData);
    GlobalUnlock(h);
    GlobalFree(h);
    data.cbData = 10;  // only 5 left
    EXPECT_EQ(mriff_ReadDataAlloc(&img.m, &data), QZE_FILE_READ);
    EXPECT_EQ(data.pData, nullptr);
    EXPECT_EQ(mriff_ReadDataAlloc(&img.m, nullptr), E_INVALIDARG);

    // No memory: nothing read, the position stays.
    img.go(0);
    qz::testing::FaultPlan plan;
    plan.fail(qz::testing::FaultOp::Alloc, 1);
    data.cbData = 4;
    data.pData = reinterpret_cast<LPVOID>(1);
    EXPECT_EQ(mriff_ReadDataAlloc(&img.m, &data), E_OUTOFMEMORY);
    EXPECT_EQ(data.pData, nullptr);
    EXPECT_EQ(img.at(), 0u);
}

// ---- searches ---------------------------------------------------------------------

// "abcd" (odd), LIST "adtl", LIST "INFO", "data": 12 + 24 + 24 + 14 bytes.
Bytes sample_body() {
    return chunk("abcd", text("xyz")) + list("adtl", chunk("labl", text("cue1"))) +
           list("INFO", chunk("INAM", text("Song"))) + chunk("data", Bytes(6, 0x55));
}

// The walk itself is shared with riff_* and pinned there; the list searches
// here only need their image form run once.
TEST(MriffFind, ListSearchesRunOverTheImage) {
    Image whole(riff("WAVE", sample_body()));
    DWORD size = 0, remaining = 74;
    whole.go(12);
    ASSERT_EQ(mriff_FindListChunk(&whole.m, cc("INFO"), &size, &remaining), S_OK);
    EXPECT_EQ(size, 12u);       // list size 16 minus the type
    EXPECT_EQ(remaining, 26u);  // 74 - 12 - 24 - 12
    whole.go(50);
    ASSERT_EQ(mriff_FindListChunkFromStart(&whole.m, cc("adtl"), &size), S_OK);
    EXPECT_EQ(whole.at(), 36u);
    EXPECT_EQ(mriff_FindListChunkFromStart(&whole.m, cc("none"), &size), QZE_NOT_FOUND);
    Image bad(Bytes(20, 0));
    EXPECT_EQ(mriff_FindListChunkFromStart(&bad.m, cc("INFO"), &size), QZE_NO_RIFF_HEADER);
}

TEST(MriffFind, HugeSizesAreClampedSkipsNotWildReads) {
    // A chunk claiming 0xFFFFFFFF bytes: the skip stops at the data end and
    // the walk ends there like a file does.
    Image img(header("junk", 0xFFFFFFFF) + Bytes(10, 0), 64);
    DWORD remaining = 0xFFFFFFFF;
    EXPECT_EQ(mriff_FindChunkHeader(&img.m, cc("data"), nullptr, &remaining), QZE_NOT_FOUND);
    EXPECT_EQ(remaining, 0u);  // 8 + 2^32 bytes passed: clamped at 0
    EXPECT_EQ(img.at(), 18u);
    img.go(0);
    EXPECT_EQ(mriff_FindChunkHeader(&img.m, cc("data"), nullptr, nullptr), QZE_FILE_READ);
    EXPECT_EQ(img.at(), 18u);
    DWORD count = 0;
    img.go(0);
    EXPECT_EQ(mriff_GetNumListEntries(&img.m, &count, nullptr), QZE_FILE_READ);
    EXPECT_EQ(count, 1u);
}

TEST(MriffFind, ChunkHeaderInRiffStartsAtThePositionWithTheCallersBudget) {
    // Eight bytes of something else, then a RIFF image.
    Bytes image = Bytes(8, 0xAA) + riff("WAVE", sample_body());
    struct Row {
        const char* name;
        DWORD from;
        bool with_budget;
        DWORD budget;
        DWORD wanted;
        HRESULT hr;
        DWORD remaining, position;
    };
    const Row rows[] = {
        {"budget 11 reads nothing", 8, true, 11, cc("abcd"), QZE_NOT_FOUND, 11, 8},
        {"budget 12: header, then nothing left", 8, true, 12, cc("abcd"), QZE_NOT_FOUND, 0, 20},
        {"found, budget less 12 and 8", 8, true, 100, cc("abcd"), S_OK, 80, 28},
        // The header's own size is not the budget: 50 covers two chunks only.
        {"caller's budget bounds the walk", 8, true, 50, cc("data"), QZE_NOT_FOUND, 2, 56},
        {"not at a RIFF header", 0, true, 100, cc("abcd"), QZE_NO_RIFF_HEADER, 100, 8},
    };
    for (const Row& r : rows) {
        Image img(image);
        img.go(r.from);
        DWORD remaining = r.budget;
        DWORD size = 0;
        EXPECT_EQ(mriff_FindChunkHeaderInRIFF(&img.m, r.wanted, &size,
                                              r.with_budget ? &remaining : nullptr),
                  r.hr)
            << r.name;
        if (r.with_budget) {
            EXPECT_EQ(remaining, r.remaining) << r.name;
        }
        EXPECT_EQ(img.at(), r.position) << r.name;
    }
}

TEST(MriffInfo, ReadsOneTextAndAlwaysGoesBack) {
    const Bytes body = chunk("abcd", text("xyz")) +
                       list("INFO", chunk("INAM", text("Song")) + chunk("IART", text("Band")));
    struct Row {
        const char* name;
        DWORD wanted;
        DWORD buffer_size;
        DWORD budget;
        HRESULT hr;
        const char* text;
    };
    const Row rows[] = {
        {"artist after name", cc("IART"), 16, 100, S_OK, "Band"},
        {"cut to the buffer, no terminator", cc("IART"), 2, 100, S_OK, "Ba"},
        {"missing id", cc("ICMT"), 16, 100, QZE_NOT_FOUND, ""},
        {"budget ends before the list", cc("INAM"), 16, 12, QZE_NOT_FOUND, ""},
    };
    for (const Row& r : rows) {
        Image img(body);
        img.go(0);
        char out[16];
        std::memset(out, '#', sizeof out);
        DWORD budget = r.budget;
        EXPECT_EQ(mriff_GetInfoString(&img.m, r.wanted, out, r.buffer_size, &budget), r.hr)
            << r.name;
        const size_t n = std::strlen(r.text);
        EXPECT_EQ(std::string(out, n), r.text) << r.name;
        EXPECT_EQ(out[n], '#') << r.name;
        EXPECT_EQ(img.at(), 0u) << r.name;
    }
    // Missing "INFO" list, without a budget.
    Image none(chunk("abcd", text("xyz")));
    none.go(4);
    char out[4];
    EXPECT_EQ(mriff_GetInfoString(&none.m, cc("INAM"), out, 4, nullptr), QZE_FILE_READ);
    EXPECT_EQ(none.at(), 4u);
}

// ---- wave headers --------------------------------------------------------------------

Bytes wave_header_bytes(DWORD riff_size, const Bytes& fmt_body, DWORD data_size) {
    return header("RIFF", riff_size) + text("WAVE") + header("fmt ", uint32_t(fmt_body.size())) +
           fmt_body + header("data", data_size);
}

TEST(MriffWaveHeader, WritesTheCanonicalHeader) {
    using qz::testing::encode;
    using qz::testing::plain;
    qz::testing::Wfx stale = plain(1, 2, 44100, 16);
    stale.align = 2;  // rebuilt for PCM
    stale.avg = 1;
    stale.cb = 99;
    qz::testing::Wfx f32 = plain(3, 2, 48000, 32);
    qz::testing::Wfx adpcm = plain(2, 1, 22050, 4);
    adpcm.align = 256;
    adpcm.avg = 11155;
    adpcm.cb = 32;  // the 18-byte body says 32 more bytes; none are written
    struct Row {
        const char* name;
        qz::testing::Wfx wfx;
        DWORD data, extra;
        Bytes expected;
    };
    Bytes pcm_body = encode(plain(1, 2, 44100, 16));
    pcm_body.resize(16);
    const Row rows[] = {
        {"pcm16 stereo", stale, 1000, 0, wave_header_bytes(1036, pcm_body, 1000)},
        {"odd total raised to even", stale, 1001, 0, wave_header_bytes(1038, pcm_body, 1001)},
        {"float keeps 18 bytes", f32, 0, 0, wave_header_bytes(38, encode(f32), 0)},
        {"adpcm 18 bytes as given", adpcm, 4, 3, wave_header_bytes(46, encode(adpcm), 4)},
        // The RIFF size never wraps; past 32 bits it is held at 0xFFFFFFFF.
        {"largest that fits", stale, 0xFFFFFFDA, 0,
         wave_header_bytes(0xFFFFFFFE, pcm_body, 0xFFFFFFDA)},
        {"its pad would wrap", stale, 0xFFFFFFDB, 0,
         wave_header_bytes(0xFFFFFFFF, pcm_body, 0xFFFFFFDB)},
        {"length not known yet", stale, 0xFFFFFFFF, 0,
         wave_header_bytes(0xFFFFFFFF, pcm_body, 0xFFFFFFFF)},
        {"wrapped to 0x10", stale, 0xFFFFFFEB, 0,
         wave_header_bytes(0xFFFFFFFF, pcm_body, 0xFFFFFFEB)},
        {"data and room together", f32, 0x80000000, 0x80000000,
         wave_header_bytes(0xFFFFFFFF, encode(f32), 0x80000000)},
    };
    for (const Row& r : rows) {
        Image img(Bytes(), 64);
        qz::testing::WfxBuffer wfx(encode(r.wfx));
        EXPECT_EQ(mriff_WriteWaveHeader(&img.m, wfx.wfx(), r.data, r.extra), S_OK) << r.name;
        EXPECT_EQ(Bytes(img.storage.begin(), img.storage.begin() + r.expected.size()), r.expected)
            << r.name;
        EXPECT_EQ(img.at(), r.expected.size()) << r.name;
    }
}

TEST(MriffWaveHeader, ShortCapacityReportsAndStaysInside) {
    qz::testing::WfxBuffer wfx(qz::testing::encode(qz::testing::plain(1, 2, 44100, 16)));
    struct Row {
        DWORD capacity;
        HRESULT hr;
    };
    // 44 bytes in all: RIFF header 12, fmt 24, data header 8.
    const Row rows[] = {{0, QZE_FILE_WRITE}, {35, QZE_FILE_WRITE}, {36, S_OK}, {44, S_OK}};
    for (const Row& r : rows) {
        Image img(Bytes(), r.capacity);
        EXPECT_EQ(mriff_WriteWaveHeader(&img.m, wfx.wfx(), 100, 0), r.hr) << r.capacity;
        EXPECT_EQ(img.data_size(), r.capacity) << r.capacity;
    }
    Image img(Bytes(), 64);
    EXPECT_EQ(mriff_WriteWaveHeader(&img.m, static_cast<const WAVEFORMATEX*>(nullptr), 0, 0),
              E_POINTER);
}

// ---- reading wave images --------------------------------------------------------------

TEST(MriffGetWfx, ReadsFormatAndDataSize) {
    using qz::testing::encode;
    using qz::testing::extensible;
    using qz::testing::plain;
    const Bytes pcm = encode(plain(1, 2, 44100, 16));
    Bytes pcm16 = pcm;
    pcm16.resize(16);
    const Bytes ext51 = encode(extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24));
    struct Row {
        const char* name;
        Bytes image;
        HRESULT hr;
        Bytes wfx;  // the 18 bytes expected
        DWORD data_size;
    };
    const Row rows[] = {
        {"16-byte fmt", riff("WAVE", chunk("fmt ", pcm16) + chunk("data", Bytes(8, 0))), S_OK, pcm,
         8},
        {"extensible keeps 18", riff("WAVE", chunk("fmt ", ext51) + chunk("data", Bytes())), S_OK,
         Bytes(ext51.begin(), ext51.begin() + 18), 0},
        {"not WAVE", riff("AVI ", chunk("fmt ", pcm) + chunk("data", Bytes())), E_FAIL, {}, 0},
        {"not RIFF", header("RIFX", 0x10) + text("WAVEfmt "), QZE_NO_RIFF_HEADER, {}, 0},
        {"no data", riff("WAVE", chunk("fmt ", pcm)), QZE_NOT_FOUND, {}, 0},
        {"no fmt", riff("WAVE", chunk("data", Bytes(2, 0))), QZE_NOT_FOUND, {}, 0},
    };
    for (const Row& r : rows) {
        WAVEFORMATEX out;
        std::memset(&out, 0xEE, sizeof out);
        DWORD data_size = 77;
        EXPECT_EQ(mriff_GetWfx(&out, r.image.data(), DWORD(r.image.size()), &data_size), r.hr)
            << r.name;
        const Bytes got(reinterpret_cast<uint8_t*>(&out), reinterpret_cast<uint8_t*>(&out) + 18);
        if (r.hr == S_OK) {
            EXPECT_EQ(got, r.wfx) << r.name;
            EXPECT_EQ(data_size, r.data_size) << r.name;
        } else {
            EXPECT_EQ(got, Bytes(18, 0xEE)) << r.name << ": output untouched";
            EXPECT_EQ(data_size, 77u) << r.name;
        }
    }
}

TEST(MriffGetWfx, FormatBodyPastTheImageEndIsCutThere) {
    // "data" first, then "fmt " claiming 18 bytes of which 6 are present.
    const Bytes image = header("RIFF", 40) + text("WAVE") + chunk("data", Bytes(2, 0)) +
                        header("fmt ", 18) + Bytes{0x01, 0x00, 0x02, 0x00, 0x44, 0xAC};
    WAVEFORMATEX out;
    std::memset(&out, 0xEE, sizeof out);
    ASSERT_EQ(mriff_GetWfx(&out, image.data(), DWORD(image.size()), nullptr), S_OK);
    EXPECT_EQ(out.wFormatTag, 1);
    EXPECT_EQ(out.nChannels, 2);
    EXPECT_EQ(out.nSamplesPerSec, 0xAC44u);
    EXPECT_EQ(out.nAvgBytesPerSec, 0u);  // cleared, not read
    EXPECT_EQ(out.cbSize, 0);
}

TEST(MriffGetWfx, RecordFormKeepsTheExtensibleFields) {
    using qz::testing::encode;
    using qz::testing::extensible;
    using qz::testing::plain;
    const Bytes ext51 = encode(extensible(plain(1, 6, 48000, 24), 1, 0x60F, 24));
    const Bytes image = riff("WAVE", chunk("fmt ", ext51) + chunk("data", Bytes(36, 0)));
    _qzwaveformat rec;
    DWORD data_size = 0;
    ASSERT_EQ(mriff_GetWfx(&rec, image.data(), DWORD(image.size()), &data_size), S_OK);
    EXPECT_EQ(rec.sampleType, DWORD(QZST_PCM24));
    EXPECT_EQ(rec.channels, 6);
    EXPECT_EQ(rec.channelMask, 0x60Fu);
    EXPECT_EQ(rec.flags, DWORD(QZWF_EXTENSIBLE));
    EXPECT_EQ(data_size, 36u);

    // Codec bytes come along, up to what a 128-byte record holds.
    qz::testing::Wfx adpcm = plain(2, 1, 22050, 4);
    adpcm.cb = 100;
    adpcm.extra = Bytes(100, 0x5C);
    const Bytes codec = riff("WAVE", chunk("fmt ", encode(adpcm)) + chunk("data", Bytes(2, 0)));
    ASSERT_EQ(mriff_GetWfx(&rec, codec.data(), DWORD(codec.size()), nullptr), S_OK);
    EXPECT_EQ(rec.flags & QZWF_FOREIGN, DWORD(QZWF_FOREIGN));
    EXPECT_EQ(rec.extraSize, 94);
    EXPECT_EQ(rec.extra[93], 0x5C);
}

}  // namespace
