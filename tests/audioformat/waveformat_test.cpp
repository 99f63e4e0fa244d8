// The wave-format record: sample types, the structure queries, reading
// structures into records and writing records out in every copy form.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "qz/qzwaveformat.h"
#include "qz/win32compat.h"
#include "platform/posix/fault_plan.h"
#include "support/waveformat_bytes.h"

namespace {

using qz::testing::Bytes;
using qz::testing::encode;
using qz::testing::extensible;
using qz::testing::plain;
using qz::testing::Wfx;
using qz::testing::WfxBuffer;

std::string hex(const uint8_t* p, size_t n) {
    static const char* digits = "0123456789ABCDEF";
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        if (i) s += (i % 2 == 0) ? " | " : " ";
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}

_qzwaveformat record_of(const Wfx& w, DWORD capacity = QZWAVEFORMAT_TEMP_SIZE) {
    WfxBuffer buffer(encode(w));
    _qzwaveformat rec;
    std::memset(&rec, 0xCC, sizeof rec);
    rec.Init(capacity, *buffer.wfx());
    return rec;
}

Bytes count_bytes(size_t n, uint8_t first) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = uint8_t(first + i);
    return b;
}

// A foreign structure with 32 codec bytes.
Wfx adpcm_source() {
    Wfx w = plain(2, 1, 22050, 4);
    w.align = 256;
    w.avg = 11155;
    w.cb = 32;
    w.extra = count_bytes(32, 0x40);
    return w;
}
// An extensible structure whose sub-format is no wave tag.
Wfx unknown_sub_source() {
    Wfx w = extensible(plain(1, 2, 48000, 16), 1, 3, 16);
    w.custom_guid = true;
    std::memcpy(w.guid, "\x12\x34\x56\x78\x9A\xBC\xDE\xF0\x11\x22\x33\x44\x55\x66\x77\x88", 16);
    w.cb = 26;
    w.extra = {9, 8, 7, 6};
    return w;
}
// Extensible PCM at a width with no sample type, two extra bytes.
Wfx ext_pcm12_source() {
    Wfx w = extensible(plain(1, 2, 44100, 12), 1, 3, 12);
    w.align = 4;
    w.avg = 176400;
    w.cb = 24;
    w.extra = {0xAB, 0xCD};
    return w;
}

// ---- sample types ---------------------------------------------------------------

TEST(WaveFormatSampleType, TagAndWidthMapToTheEnumeration) {
    const int widths[] = {0, 4, 8, 12, 16, 20, 24, 32, 48, 64};
    struct Row {
        UINT tag;
        DWORD expected[10];  // per width above
    };
    const Row rows[] = {
        {1, {0, 0, 16, 0, 17, 18, 18, 19, 0, 0}},     {0xFE01, {0, 0, 49, 0, 17, 18, 18, 19, 0, 0}},
        {3, {0, 0, 0, 0, 0, 0, 0, 32, 0, 33}},        {0xFE00, {0, 0, 0, 0, 0, 0, 48, 48, 0, 0}},
        {0xFE02, {0, 0, 16, 0, 64, 0, 65, 66, 0, 0}}, {0xFE03, {0, 0, 0, 0, 128, 0, 129, 0, 0, 0}},
        {2, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},          {0xFFFE, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
        {0x10001, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    };
    for (const Row& row : rows)
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(DWORD(QzAudio_GetSampleType2(row.tag, widths[i])), row.expected[i])
                << "tag 0x" << std::hex << row.tag << std::dec << " bits " << widths[i];
}

TEST(WaveFormatSampleType, WidthsAndTagsComeBackOnlyForTypes16To66) {
    struct Row {
        DWORD type;
        UINT bits, bytes;
        WORD tag;
    };
    // 0xFE03 maps into the enumeration (128, 129) but not back out.
    const Row rows[] = {{16, 8, 1, 1},        {19, 32, 4, 1},     {33, 64, 8, 3},
                        {48, 32, 4, 0xFE00},  {49, 8, 1, 0xFE01}, {65, 24, 3, 0xFE02},
                        {66, 32, 4, 0xFE02},  {128, 0, 0, 0},     {129, 0, 0, 0},
                        {0, 0, 0, 0},         {20, 0, 0, 0},      {67, 0, 0, 0},
                        {0xFFFFFFFF, 0, 0, 0}};
    for (const Row& r : rows) {
        const auto type = QZSAMPLETYPE(r.type);
        EXPECT_EQ(QzAudio_BitsFromSampleType(type), r.bits) << r.type;
        EXPECT_EQ(QzAudio_BytesFromSampleType(type), r.bytes) << r.type;
        EXPECT_EQ(QzAudio_FormatTagFromSampleType(type), r.tag) << r.type;
    }
}

TEST(WaveFormatSampleType, ExtensibleStructuresUseTheirSubFormat) {
    struct Row {
        const char* name;
        Wfx wfx;
        DWORD expected;
    };
    Wfx high_data1 = extensible(plain(1, 2, 44100, 16), 1, 3, 16);
    high_data1.custom_guid = true;
    std::memcpy(high_data1.guid, "\x01\x00\x01\x00", 4);  // Data1 = 0x00010001
    std::memcpy(high_data1.guid + 4, qz::testing::kFamilyTail, 12);
    Wfx short_cb = extensible(plain(1, 2, 44100, 24), 1, 3, 24);
    short_cb.cb = 0;  // cbSize is not consulted by the sample type
    const Row rows[] = {
        {"pcm32 valid 24", extensible(plain(1, 2, 44100, 32), 1, 3, 24), 48},
        {"pcm32 valid 32", extensible(plain(1, 2, 44100, 32), 1, 3, 32), 19},
        {"pcm24 valid 20", extensible(plain(1, 2, 44100, 24), 1, 3, 20), 18},
        {"float64", extensible(plain(3, 1, 48000, 64), 3, 4, 64), 33},
        {"private big-endian", extensible(plain(0xFE02, 2, 44100, 24), 0xFE02, 3, 24), 65},
        {"family, unknown tag", extensible(plain(2, 2, 44100, 16), 0x55, 3, 16), 0},
        {"foreign guid", unknown_sub_source(), 0},
        {"Data1 high word set", high_data1, 0},
        {"cbSize 0", short_cb, 18},
    };
    for (const Row& r : rows) {
        WfxBuffer b(encode(r.wfx));
        EXPECT_EQ(DWORD(QzAudio_GetSampleType(b.wfx())), r.expected) << r.name;
    }
    EXPECT_EQ(QzAudio_GetSampleType(nullptr), QZST_NONE);
}

// ---- queries on structures --------------------------------------------------------

TEST(WaveFormatQueries, WaveFormatTagLooksThroughTheExtensibleForm) {
    Wfx short_cb = extensible(plain(1, 2, 44100, 16), 3, 3, 16);
    short_cb.cb = 21;
    struct Row {
        const char* name;
        Wfx wfx;
        WORD tag;
    };
    const Row rows[] = {
        {"plain mp3", plain(0x55, 2, 44100, 0), 0x55},
        {"extensible private", extensible(plain(1, 2, 44100, 32), 0xFE00, 3, 24), 0xFE00},
        {"extensible unknown guid", unknown_sub_source(), 0},
        {"extensible cbSize 21", short_cb, 0xFFFE},
    };
    for (const Row& r : rows) {
        WfxBuffer b(encode(r.wfx));
        EXPECT_EQ(QzAudio_GetWaveFormatTag(b.wfx()), r.tag) << r.name;
    }
    EXPECT_EQ(QzAudio_GetWaveFormatTag(nullptr), 0);
}

TEST(WaveFormatQueries, FormatTagExtensibleKnowsOnlyPcmAndFloat) {
    struct Row {
        Wfx wfx;
        BOOL ok;
        DWORD tag;
    };
    Wfx short_cb = extensible(plain(1, 2, 44100, 16), 1, 3, 16);
    short_cb.cb = 21;
    const Row rows[] = {
        {extensible(plain(1, 2, 44100, 16), 1, 3, 16), TRUE, 1},
        {extensible(plain(1, 2, 44100, 32), 3, 3, 32), TRUE, 3},
        {extensible(plain(1, 2, 44100, 32), 0xFE00, 3, 24), FALSE, 77},
        {short_cb, FALSE, 77},
        {plain(1, 2, 44100, 16), FALSE, 77},
    };
    for (const Row& r : rows) {
        WfxBuffer b(encode(r.wfx));
        DWORD tag = 77;
        auto* ext = reinterpret_cast<WAVEFORMATEXTENSIBLE*>(b.data);
        EXPECT_EQ(QzAudio_GetFormatTagExtensible(ext, &tag), r.ok) << r.wfx.sub;
        EXPECT_EQ(tag, r.tag) << r.wfx.sub;
    }
}

TEST(WaveFormatQueries, CompressedMeansNotALinearFrameLayout) {
    Wfx pcm_bad_align = plain(1, 2, 44100, 16);
    pcm_bad_align.align = 2;
    Wfx private_bad = plain(0xFE02, 2, 44100, 24);
    private_bad.align = 8;
    Wfx ext_short = extensible(plain(1, 2, 44100, 16), 1, 3, 16);
    ext_short.cb = 20;
    Wfx ext_bad_align = extensible(plain(1, 2, 44100, 16), 1, 3, 16);
    ext_bad_align.align = 7;  // the extensible check looks at the sub-format only
    struct Row {
        const char* name;
        Wfx wfx;
        BOOL compressed;
    };
    const Row rows[] = {
        {"pcm16 stereo", plain(1, 2, 44100, 16), FALSE},
        {"pcm16 stereo blockAlign 2", pcm_bad_align, TRUE},
        {"float32", plain(3, 2, 44100, 32), FALSE},
        {"big-endian 24", plain(0xFE02, 2, 44100, 24), FALSE},
        {"big-endian 24 blockAlign 8", private_bad, TRUE},
        {"0xFE03 is above the linear tags", plain(0xFE03, 2, 44100, 16), TRUE},
        {"adpcm", plain(2, 1, 22050, 4), TRUE},
        {"extensible float", extensible(plain(1, 2, 44100, 32), 3, 3, 32), FALSE},
        {"extensible private", extensible(plain(1, 2, 44100, 32), 0xFE00, 3, 24), TRUE},
        {"extensible cbSize 20", ext_short, TRUE},
        {"extensible pcm odd align", ext_bad_align, FALSE},
    };
    for (const Row& r : rows) {
        WfxBuffer b(encode(r.wfx));
        EXPECT_EQ(QzAudio_IsCompressed(b.wfx()), r.compressed) << r.name;
    }
}

TEST(WaveFormatQueries, FixBadWfxRepairsPcmOnly) {
    struct Row {
        Wfx in;
        WORD align_in;
        BOOL changed;
        WORD bits, align;
    };
    const Row rows[] = {
        {plain(1, 2, 44100, 16), 4, FALSE, 16, 4}, {plain(1, 2, 44100, 16), 2, TRUE, 16, 4},
        {plain(1, 2, 44100, 20), 6, TRUE, 24, 6},  {plain(1, 2, 44100, 20), 5, TRUE, 24, 6},
        {plain(3, 2, 44100, 32), 2, FALSE, 32, 2},  // float is left alone
    };
    for (Row r : rows) {
        r.in.align = r.align_in;
        WfxBuffer b(encode(r.in));
        EXPECT_EQ(QzAudio_FixBadWfx(b.wfx()), r.changed) << r.in.tag << "/" << r.in.bits;
        EXPECT_EQ(b.wfx()->wBitsPerSample, r.bits) << r.in.tag << "/" << r.in.bits;
        EXPECT_EQ(b.wfx()->nBlockAlign, r.align) << r.in.tag << "/" << r.in.bits;
    }
}

TEST(WaveFormatQueries, InitWfxWritesTheTagAndContainerOfTheType) {
    WAVEFORMATEX wfx;
    std::memset(&wfx, 0xEE, sizeof wfx);
    QzAudio_InitWfx(&wfx, 48000, QZST_PCM24IN32, 2);
    EXPECT_EQ(hex(reinterpret_cast<uint8_t*>(&wfx), 18),
              hex(encode(plain(0xFE00, 2, 48000, 32)).data(), 18));
    QzAudio_InitWfx(&wfx, 8000, QZST_RA16, 1);  // no width or tag for 0xFE03 types
    EXPECT_EQ(hex(reinterpret_cast<uint8_t*>(&wfx), 18),
              hex(encode(plain(0, 1, 8000, 0)).data(), 18));
}

// ---- InitWfxFlex: when the extensible form is written -------------------------------

TEST(WaveFormatFlex, MaskChannelsAndRoomDecideTheForm) {
    struct Row {
        DWORD channels, mask;
        UINT room;
        bool extensible;
        DWORD written_mask;
    };
    const Row rows[] = {
        {6, 0, 40, false, 0},                                 // no mask
        {1, 1, 40, false, 0},                                 // the default mask
        {2, 0x600, 40, true, 0x600}, {2, 0x33, 40, true, 0},  // more speakers than channels
        {6, 0x3F, 40, true, 0x3F},                            // 5.1's default still goes extensible
        {6, 0x3F, 39, false, 0},     {2, 0x600, 39, false, 0},
    };
    for (const Row& r : rows) {
        alignas(8) uint8_t out[48];
        std::memset(out, 0xEE, sizeof out);
        QzAudio_InitWfxFlex(reinterpret_cast<WAVEFORMATEX*>(out), 1, 44100, 16, r.channels, r.mask,
                            r.room);
        Wfx expected = plain(1, WORD(r.channels), 44100, 16);
        if (r.extensible) expected = extensible(expected, 1, r.written_mask, 16);
        const Bytes want = encode(expected);
        const std::string name = std::to_string(r.channels) + " channels, mask " +
                                 std::to_string(r.mask) + ", room " + std::to_string(r.room);
        EXPECT_EQ(hex(out, want.size()), hex(want.data(), want.size())) << name;
        for (size_t i = want.size(); i < sizeof out; ++i) ASSERT_EQ(out[i], 0xEE) << name;
    }
}

// ---- records read from structures ---------------------------------------------------

struct RecordExpect {
    DWORD type;
    WORD channels, align;
    DWORD rate, avg, mask, flags;
    WORD tag, bits;
    DWORD size;
    Bytes extra;
};

void expect_record(const _qzwaveformat& rec, const RecordExpect& e, const char* name) {
    const RecordExpect got = {rec.sampleType,
                              rec.channels,
                              rec.blockAlign,
                              rec.samplesPerSec,
                              rec.avgBytesPerSec,
                              rec.channelMask,
                              rec.flags,
                              rec.formatTag,
                              rec.bitsPerSample,
                              rec.size,
                              {}};
    EXPECT_EQ(std::memcmp(&got, &e, offsetof(RecordExpect, extra)), 0)
        << name << ": type " << got.type << " channels " << got.channels << " align " << got.align
        << " rate " << got.rate << " avg " << got.avg << " mask " << got.mask << " flags "
        << got.flags << " tag " << got.tag << " bits " << got.bits << " size " << got.size;
    const size_t extra = rec.size >= 34 ? rec.extraSize : 0;
    EXPECT_EQ(hex(rec.extra, extra), hex(e.extra.data(), e.extra.size())) << name;
}

TEST(WaveFormatRecordFromWfx, EveryFormatKind) {
    Wfx pcm_bad = plain(1, 2, 44100, 16);
    pcm_bad.align = 2;  // repaired
    Wfx pcm12 = plain(1, 1, 8000, 12);
    pcm12.align = 2;
    pcm12.avg = 16000;
    pcm12.cb = 2;
    pcm12.extra = {0xAB, 0xCD};  // PCM keeps no codec bytes
    Wfx float_odd = plain(3, 2, 44100, 32);
    float_odd.align = 7;  // float blockAlign is taken as it is
    Wfx ra8 = plain(0xFE03, 1, 8000, 8);
    ra8.cb = 3;
    ra8.extra = {1, 2, 3};
    struct Row {
        const char* name;
        Wfx in;
        RecordExpect out;
    };
    const Row rows[] = {
        {"pcm8 mono", plain(1, 1, 22050, 8), {16, 1, 1, 22050, 22050, 0, 0, 0, 0, 32, {}}},
        {"pcm16 blockAlign 2", pcm_bad, {17, 2, 4, 44100, 176400, 0, 0, 0, 0, 32, {}}},
        {"pcm20", plain(1, 2, 44100, 20), {18, 2, 6, 44100, 176400, 0, 0, 0, 0, 32, {}}},
        {"float32 odd align", float_odd, {32, 2, 7, 44100, 352800, 0, 0, 0, 0, 32, {}}},
        {"24-in-32", plain(0xFE00, 2, 44100, 32), {48, 2, 8, 44100, 352800, 0, 0, 0, 0, 32, {}}},
        {"big-endian 8 is pcm8",
         plain(0xFE02, 1, 8000, 8),
         {16, 1, 1, 8000, 8000, 0, 0, 0, 0, 32, {}}},
        {"0xFE03 16", plain(0xFE03, 2, 8000, 16), {128, 2, 4, 8000, 32000, 0, 0, 0, 0, 32, {}}},
        {"0xFE03 8 is foreign", ra8, {0, 1, 1, 8000, 8000, 0, 8, 0xFE03, 8, 35, {1, 2, 3}}},
        {"pcm12 foreign, no extras", pcm12, {0, 1, 1, 8000, 16000, 0, 8, 1, 12, 32, {}}},
        {"adpcm with coefficients",
         adpcm_source(),
         {0, 1, 256, 22050, 11155, 0, 8, 2, 4, 64, count_bytes(32, 0x40)}},
        {"extensible 5.1 pcm24",
         extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24),
         {18, 6, 18, 48000, 864000, 0x3F, 16, 0, 0, 32, {}}},
        {"extensible 24 in 32",
         extensible(plain(1, 2, 44100, 32), 1, 3, 24),
         {48, 2, 8, 44100, 352800, 3, 16, 0, 0, 32, {}}},
        {"extensible unknown sub-format",
         unknown_sub_source(),
         {0, 2, 4, 48000, 192000, 3, 24, 0, 16, 36, {9, 8, 7, 6}}},
        {"extensible pcm12 keeps extras",
         ext_pcm12_source(),
         {0, 2, 4, 44100, 176400, 3, 24, 1, 12, 34, {0xAB, 0xCD}}},
    };
    for (const Row& r : rows) expect_record(record_of(r.in), r.out, r.name);
}

// Extensible headers with an empty sub-format, as some writers emit them.
TEST(WaveFormatRecordFromWfx, BrokenExtensibleNeedsTheUnscaledProduct) {
    struct Row {
        WORD channels, bits, align;
        DWORD avg;
        WORD cb;
        DWORD type;
    };
    const Row rows[] = {
        {2, 8, 16, 44100 * 16, 0, 16},
        {2, 16, 32, 44100 * 32, 22, 17},
        {2, 32, 64, 44100 * 64, 0, 32},  // 32 bits is float
        {1, 64, 64, 44100 * 64, 22, 33},
        {2, 16, 4, 44100 * 4, 0, 0},   // blockAlign in bytes is not accepted
        {2, 16, 32, 44100 * 4, 0, 0},  // the byte rate must agree
        {2, 16, 32, 44100 * 32, 10, 0},
        {2, 12, 24, 44100 * 24, 0, 0},
        {1, 80, 80, 44100 * 80, 0, 0},
    };
    for (const Row& r : rows) {
        Wfx w;  // 40 bytes, sub-format all zeros
        w.tag = 0xFFFE;
        w.channels = r.channels;
        w.rate = 44100;
        w.bits = r.bits;
        w.align = r.align;
        w.avg = r.avg;
        w.cb = r.cb;
        w.extensible = w.custom_guid = true;
        const _qzwaveformat rec = record_of(w);
        const std::string name = std::to_string(r.bits) + " bits, align " +
                                 std::to_string(r.align) + ", cbSize " + std::to_string(r.cb);
        EXPECT_EQ(rec.sampleType, r.type) << name;
        EXPECT_EQ(rec.flags, r.type ? 16u : 24u) << name;
        // A rejected one is foreign with the raw tag (cbSize < 22) or tag 0.
        if (!r.type) {
            EXPECT_EQ(rec.formatTag, r.cb < 22 ? 0xFFFE : 0) << name;
        }
    }
}

TEST(WaveFormatRecordFromWfx, CapacityBoundsTheExtraBytes) {
    const Wfx adpcm = adpcm_source();
    const DWORD rows[][3] = {
        // capacity, size, extra bytes
        {0, 32, 0}, {33, 32, 0}, {34, 32, 0}, {35, 33, 1}, {66, 64, 32}, {128, 64, 32}};
    for (const auto& r : rows) {
        // The record lives in a buffer of exactly `capacity` bytes (at least
        // 32), followed by guard bytes that must survive.
        alignas(8) uint8_t storage[256];
        std::memset(storage, 0xA5, sizeof storage);
        auto* rec = reinterpret_cast<_qzwaveformat*>(storage);
        WfxBuffer b(encode(adpcm));
        rec->Init(r[0], *b.wfx());
        EXPECT_EQ(rec->size, r[1]) << r[0];
        if (r[1] >= 34) {
            EXPECT_EQ(rec->extraSize, r[2]) << r[0];
            EXPECT_EQ(hex(rec->extra, r[2]), hex(adpcm.extra.data(), r[2])) << r[0];
        }
        for (size_t i = std::max<DWORD>(r[0], 32); i < sizeof storage; ++i)
            ASSERT_EQ(storage[i], 0xA5) << "capacity " << r[0] << " byte " << i;
    }
    // However large the capacity, at most 1024 extra bytes are kept.
    Wfx big = plain(0x55, 2, 44100, 0);
    big.cb = 1500;
    big.extra = count_bytes(1500, 0);
    const _qzwaveformat rec = record_of(big, 5000);
    EXPECT_EQ(rec.size, 32u + 1024u);
    EXPECT_EQ(rec.extra[1023], uint8_t(1023));
}

// ---- the other initialisers ----------------------------------------------------------

TEST(WaveFormatRecordInit, InitAsWfxAndInitFromType) {
    _qzwaveformat rec;
    std::memset(&rec, 0xCC, sizeof rec);
    rec.InitAsWfx(1, 44100, 20, 2, 0, 32);  // pcm20 taken as 24
    expect_record(rec, {18, 2, 6, 44100, 264600, 0, 0, 0, 0, 32, {}}, "pcm20");
    rec.InitAsWfx(0x55, 44100, 0, 2, 0, 128);
    expect_record(rec, {0, 2, 0, 44100, 0, 0, 8, 0x55, 0, 128, {}}, "mp3");
    // blockAlign follows the width given, not the container of the type.
    rec.InitAsWfx(0xFE00, 44100, 24, 2, 3, 32);
    expect_record(rec, {48, 2, 6, 44100, 264600, 3, 0, 0, 0, 32, {}}, "24-in-32 given 24 bits");
    rec.InitAsWfx(1, 8000, 12, 3, 0, 32);
    expect_record(rec, {0, 3, 4, 8000, 32000, 0, 8, 1, 12, 32, {}}, "pcm12 truncating");
    // From a type, the container width counts.
    rec.Init(44100, QZST_PCM24IN32, 2, 0, 128);
    expect_record(rec, {48, 2, 8, 44100, 352800, 0, 0, 0, 0, 128, {}}, "24-in-32");
    rec.Init(8000, QZST_RA24, 1, 0, 16);
    expect_record(rec, {129, 1, 0, 8000, 0, 0, 0, 0, 0, 32, {}}, "0xFE03 has no width");
    // 16-bit arithmetic: 8 bytes x 10000 channels wraps.
    rec.Init(1, QZST_FLOAT64, 10000, 0, 32);
    EXPECT_EQ(rec.blockAlign, WORD(80000));
}

TEST(WaveFormatRecordInit, SmallCapacityTouchesOnlyThe32BytePart) {
    alignas(8) uint8_t storage[40];
    std::memset(storage, 0x5A, sizeof storage);
    auto* rec = reinterpret_cast<_qzwaveformat*>(storage);
    rec->Init(44100, QZST_PCM16, 2, 0, 0);
    EXPECT_EQ(rec->size, 32u);
    for (size_t i = 32; i < sizeof storage; ++i) EXPECT_EQ(storage[i], 0x5A) << i;
}

TEST(WaveFormatRecordInit, UpdateBlockAlignAndAccessorsFollowTheForeignBit) {
    _qzwaveformat rec = record_of(plain(1, 2, 44100, 16));
    rec.channels = 6;
    EXPECT_EQ(rec.UpdateBlockAlign(), 12u);
    EXPECT_EQ(rec.avgBytesPerSec, 44100u * 12);
    _qzwaveformat foreign = record_of(plain(0x55, 2, 44100, 0));
    foreign.blockAlign = 1;
    foreign.channels = 6;
    EXPECT_EQ(foreign.UpdateBlockAlign(), 1u);
    EXPECT_EQ(foreign.avgBytesPerSec, 0u);

    const _qzwaveformat known = record_of(plain(0xFE02, 2, 44100, 24));
    EXPECT_EQ(known.FormatTag(), 0xFE02);
    EXPECT_EQ(known.BytesPerSample(), 3);
    EXPECT_FALSE(known.IsCompressed());
    const _qzwaveformat pcm12 = record_of(plain(1, 1, 8000, 12));
    EXPECT_EQ(pcm12.FormatTag(), 1);
    EXPECT_EQ(pcm12.BitsPerSample(), 12);
    EXPECT_EQ(pcm12.BytesPerSample(), 1);
    EXPECT_TRUE(pcm12.IsCompressed());  // foreign counts as compressed
}

// ---- equality ----------------------------------------------------------------------

TEST(WaveFormatEquality, RecordsCompareTheirIdentityNotTheirBookkeeping) {
    const Wfx adpcm = adpcm_source();
    Wfx adpcm_other_extra = adpcm;
    adpcm_other_extra.extra[31] ^= 1;
    Wfx adpcm_short = adpcm;
    adpcm_short.cb = 31;
    adpcm_short.extra.pop_back();
    const _qzwaveformat pcm = record_of(plain(1, 2, 44100, 16));
    _qzwaveformat pcm_other_align = pcm, pcm_mask3 = pcm, pcm_mask600 = pcm;
    pcm_other_align.blockAlign = 2;
    pcm_other_align.avgBytesPerSec = 1;
    pcm_mask3.channelMask = 3;
    pcm_mask600.channelMask = 0x600;
    struct Row {
        const char* name;
        _qzwaveformat a, b;
        bool equal;
    };
    const Row rows[] = {
        {"blockAlign and byte rate differ", pcm, pcm_other_align, true},
        {"mask 0 vs the default", pcm, pcm_mask3, true},
        {"extensible flag differs", pcm, record_of(extensible(plain(1, 2, 44100, 16), 1, 3, 16)),
         true},
        {"mask 0 vs a custom mask", pcm, pcm_mask600, false},
        {"rate differs", pcm, record_of(plain(1, 2, 48000, 16)), false},
        {"type differs", pcm, record_of(plain(1, 2, 44100, 24)), false},
        {"foreign, same", record_of(adpcm), record_of(adpcm), true},
        {"foreign, extra byte differs", record_of(adpcm), record_of(adpcm_other_extra), false},
        {"foreign, extra count differs", record_of(adpcm), record_of(adpcm_short), false},
        {"foreign vs known", record_of(plain(1, 1, 8000, 12)), record_of(plain(1, 1, 8000, 16)),
         false},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.a == r.b, r.equal) << r.name;
        EXPECT_EQ(r.b == r.a, r.equal) << r.name;
    }
}

TEST(WaveFormatEquality, RecordAgainstStructure) {
    const Wfx adpcm = adpcm_source();
    Wfx adpcm_other = adpcm;
    adpcm_other.extra[31] ^= 1;
    const Wfx ext51 = extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24);
    struct Row {
        const char* name;
        _qzwaveformat rec;
        Wfx wfx;
        bool equal;
    };
    const Row rows[] = {
        {"plain vs extensible with default mask", record_of(plain(1, 2, 44100, 16)),
         extensible(plain(1, 2, 44100, 16), 1, 3, 16), true},
        {"5.1 record vs its structure", record_of(ext51), ext51, true},
        {"5.1 mask differs", record_of(ext51), extensible(plain(1, 6, 48000, 24), 1, 0x60F, 24),
         false},
        {"24-in-32 vs extensible valid 24", record_of(plain(0xFE00, 2, 44100, 32)),
         extensible(plain(1, 2, 44100, 32), 1, 3, 24), true},
        {"foreign same", record_of(adpcm), adpcm, true},
        {"foreign extra differs", record_of(adpcm), adpcm_other, false},
        // The raw tag is compared: 0 against 0xFFFE.
        {"foreign never equals an extensible", record_of(unknown_sub_source()),
         unknown_sub_source(), false},
    };
    for (const Row& r : rows) {
        WfxBuffer b(encode(r.wfx));
        EXPECT_EQ(r.rec == *b.wfx(), r.equal) << r.name;
    }
}

// ---- records written out as structures: the conversion table ----------------------

// Expected output: a structure written with the test's own encoder. Plain
// outputs list their cbSize; extensible ones add valid bits, mask and
// sub-format tag; `extra` follows the 18 or 40 bytes.
Wfx out_plain(WORD tag, WORD ch, DWORD rate, DWORD avg, WORD align, WORD bits, WORD cb = 0,
              Bytes extra = {}) {
    Wfx w = plain(tag, ch, rate, bits);
    w.avg = avg;
    w.align = align;
    w.cb = cb;
    w.extra = std::move(extra);
    return w;
}
Wfx out_ext(WORD sub, WORD ch, DWORD rate, DWORD avg, WORD align, WORD bits, DWORD mask,
            WORD cb = 22, Bytes extra = {}) {
    Wfx w = out_plain(0xFFFE, ch, rate, avg, align, bits, cb, std::move(extra));
    w.extensible = true;
    w.valid = bits;
    w.mask = mask;
    w.sub = sub;
    return w;
}

struct CopyRow {
    const char* kind;
    Wfx source;
    QZWAVEFORMAT_COPY_DEST dest;
    UINT room;
    Wfx expected;
};

// Each source goes through a full-size record, then out into `room` bytes;
// nothing past the expected structure may be written.
void run_copy_rows(const CopyRow* rows, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const CopyRow& r = rows[i];
        const _qzwaveformat rec = record_of(r.source);
        alignas(8) uint8_t out[256];
        std::memset(out, 0xEE, sizeof out);
        WAVEFORMATEX* dst = reinterpret_cast<WAVEFORMATEX*>(out);
        EXPECT_EQ(QzAudio_GeneralCopyWfx(dst, r.room, rec, r.dest), dst);
        const Bytes want = encode(r.expected);
        const std::string label = std::string(r.kind) + " dest " + std::to_string(r.dest) +
                                  " room " + std::to_string(r.room);
        EXPECT_EQ(hex(out, want.size()), hex(want.data(), want.size())) << label;
        for (size_t j = want.size(); j < sizeof out; ++j)
            ASSERT_EQ(out[j], 0xEE) << label << " byte " << j;
    }
}

TEST(WaveFormatCopy, KnownTypesInEveryDestination) {
    const Wfx pcm16 = plain(1, 2, 44100, 16);
    const Wfx pcm24_ext = extensible(plain(1, 2, 48000, 24), 1, 3, 24);
    const Wfx p24in32 = extensible(plain(1, 2, 44100, 32), 1, 3, 24);
    const Wfx ra16 = plain(0xFE03, 2, 8000, 16);
    const CopyRow rows[] = {
        {"pcm16", pcm16, QZWFCD_ASSOURCE, 128, out_plain(1, 2, 44100, 176400, 4, 16)},
        {"pcm16", pcm16, QZWFCD_EXTENSIBLE, 128, out_ext(1, 2, 44100, 176400, 4, 16, 0)},
        {"pcm16", pcm16, QZWAVEFORMAT_COPY_DEST(9), 128, out_plain(1, 2, 44100, 176400, 4, 16)},
        // The forced extensible form ignores a room too small for it.
        {"pcm8", plain(1, 1, 22050, 8), QZWFCD_EXTENSIBLE, 18,
         out_ext(1, 1, 22050, 22050, 1, 8, 0)},
        // From an extensible structure with the default stereo mask.
        {"pcm24 ext", pcm24_ext, QZWFCD_ASSOURCE, 40, out_ext(1, 2, 48000, 288000, 6, 24, 3)},
        {"pcm24 ext", pcm24_ext, QZWFCD_ASSOURCE, 39, out_plain(1, 2, 48000, 288000, 6, 24)},
        {"pcm24 ext", pcm24_ext, QZWFCD_ASNEEDED, 128, out_plain(1, 2, 48000, 288000, 6, 24)},
        {"float32", plain(3, 2, 44100, 32), QZWFCD_EXTENSIBLE, 128,
         out_ext(3, 2, 44100, 352800, 8, 32, 0)},
        // 24-in-32 goes out under its private tag, 32 valid bits.
        {"24-in-32", p24in32, QZWFCD_ASSOURCE, 128, out_ext(0xFE00, 2, 44100, 352800, 8, 32, 3)},
        {"24-in-32", p24in32, QZWFCD_PLAIN, 128, out_plain(0xFE00, 2, 44100, 352800, 8, 32)},
        {"signed 8", plain(0xFE01, 1, 8000, 8), QZWFCD_EXTENSIBLE, 128,
         out_ext(0xFE01, 1, 8000, 8000, 1, 8, 0)},
        {"big-endian 16", plain(0xFE02, 2, 44100, 16), QZWFCD_ASSOURCE, 128,
         out_plain(0xFE02, 2, 44100, 176400, 4, 16)},
        // No tag or width comes back out of the 0xFE03 types.
        {"0xFE03 16", ra16, QZWFCD_ASNEEDED, 128, out_plain(0, 2, 8000, 0, 0, 0)},
        {"0xFE03 16", ra16, QZWFCD_EXTENSIBLE, 128, out_ext(0, 2, 8000, 0, 0, 0, 0)},
    };
    run_copy_rows(rows, std::size(rows));
}

TEST(WaveFormatCopy, MultichannelAndMasksInEveryDestination) {
    const Wfx ext51 = extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24);
    const Wfx plain51 = plain(1, 6, 48000, 16);
    const Wfx side = extensible(plain(1, 2, 44100, 32), 3, 0x600, 32);
    const Wfx too_many = extensible(plain(1, 2, 44100, 32), 3, 0x33, 32);
    const CopyRow rows[] = {
        {"5.1 ext", ext51, QZWFCD_ASNEEDED, 40, out_ext(1, 6, 48000, 864000, 18, 24, 0x3F)},
        {"5.1 ext", ext51, QZWFCD_ASNEEDED, 39, out_plain(1, 6, 48000, 864000, 18, 24)},
        {"5.1 ext", ext51, QZWFCD_PLAIN, 128, out_plain(1, 6, 48000, 864000, 18, 24)},
        // Mask 0: plain unless the destination forces the extensible form.
        {"5.1 plain", plain51, QZWFCD_ASNEEDED, 128, out_plain(1, 6, 48000, 576000, 12, 16)},
        {"5.1 plain", plain51, QZWFCD_MULTICHANNEL, 128, out_ext(1, 6, 48000, 576000, 12, 16, 0)},
        {"side stereo", side, QZWFCD_ASNEEDED, 18, out_plain(3, 2, 44100, 352800, 8, 32)},
        {"side stereo", side, QZWFCD_MULTICHANNEL, 40, out_ext(3, 2, 44100, 352800, 8, 32, 0x600)},
        // A mask with more speakers than channels: the flexible writer drops
        // it, the forced extensible form keeps it.
        {"mask 0x33", too_many, QZWFCD_ASNEEDED, 40, out_ext(3, 2, 44100, 352800, 8, 32, 0)},
        {"mask 0x33", too_many, QZWFCD_ASSOURCE, 40, out_ext(3, 2, 44100, 352800, 8, 32, 0x33)},
    };
    run_copy_rows(rows, std::size(rows));
}

TEST(WaveFormatCopy, ForeignRecordsKeepTheirNumbersAndExtraBytes) {
    const Wfx adpcm = adpcm_source();
    const Bytes coef = adpcm.extra;
    const Bytes coef12(coef.begin(), coef.begin() + 12);
    const Bytes four = {9, 8, 7, 6};
    const Wfx unknown = unknown_sub_source();
    Wfx unknown_side = unknown_sub_source();
    unknown_side.mask = 0x600;
    const Wfx pcm12 = ext_pcm12_source();
    const CopyRow rows[] = {
        {"adpcm", adpcm, QZWFCD_ASSOURCE, 128, out_plain(2, 1, 22050, 11155, 256, 4, 32, coef)},
        {"adpcm", adpcm, QZWFCD_PLAIN, 50, out_plain(2, 1, 22050, 11155, 256, 4, 32, coef)},
        {"adpcm", adpcm, QZWFCD_PLAIN, 30, out_plain(2, 1, 22050, 11155, 256, 4, 12, coef12)},
        {"adpcm", adpcm, QZWFCD_PLAIN, 18, out_plain(2, 1, 22050, 11155, 256, 4, 0)},
        {"adpcm", adpcm, QZWFCD_EXTENSIBLE, 52, out_ext(2, 1, 22050, 11155, 256, 4, 0, 34, coef12)},
        // An unknown sub-format leaves tag 0; its GUID is not kept.
        {"unknown sub", unknown, QZWFCD_ASSOURCE, 128,
         out_ext(0, 2, 48000, 192000, 4, 16, 3, 26, four)},
        {"unknown sub", unknown, QZWFCD_ASNEEDED, 128,
         out_plain(0, 2, 48000, 192000, 4, 16, 4, four)},
        // A custom mask goes extensible only when the extra bytes fit too.
        {"unknown side", unknown_side, QZWFCD_ASNEEDED, 44,
         out_ext(0, 2, 48000, 192000, 4, 16, 0x600, 26, four)},
        {"unknown side", unknown_side, QZWFCD_ASNEEDED, 43,
         out_plain(0, 2, 48000, 192000, 4, 16, 4, four)},
        // Tags 1 and 3 take their extra bytes at offset 16, over cbSize,
        // which then has the count added: 0xCDAB + 2.
        {"pcm12", pcm12, QZWFCD_PLAIN, 128, out_plain(1, 2, 44100, 176400, 4, 12, 0xCDAD)},
        // Room for one byte: 0xAB lands in the low byte of cbSize, then + 1.
        {"pcm12", pcm12, QZWFCD_PLAIN, 19, out_plain(1, 2, 44100, 176400, 4, 12, 0x00AC)},
        {"pcm12", pcm12, QZWFCD_ASSOURCE, 128,
         out_ext(1, 2, 44100, 176400, 4, 12, 3, 24, {0xAB, 0xCD})},
    };
    run_copy_rows(rows, std::size(rows));
}

// ---- record to record -----------------------------------------------------------------

TEST(WaveFormatCopy, RecordToRecordKeepsExtraSizeWholeOrNotAtAll) {
    const Wfx w = adpcm_source();  // 32 extra bytes
    const _qzwaveformat src = record_of(w);
    for (UINT room : {0u, 34u, 65u, 66u, 200u}) {
        alignas(8) uint8_t storage[sizeof(_qzwaveformat) + 16];
        std::memset(storage, 0xA5, sizeof storage);
        auto* dst = reinterpret_cast<_qzwaveformat*>(storage);
        EXPECT_EQ(QzAudio_GeneralCopyQzWaveFormat(dst, room, src, QZWFCD_PLAIN), dst);
        const bool whole = room >= 66;
        EXPECT_EQ(dst->size, whole ? 64u : 32u) << room;
        EXPECT_EQ(std::memcmp(storage + 4, reinterpret_cast<const uint8_t*>(&src) + 4, 28), 0)
            << room;
        const UINT capacity = std::max(room, 32u);
        if (whole) {
            EXPECT_EQ(dst->extraSize, 32);
            // The copy is limited to 32 + extraSize bytes, which leaves the
            // last two extra bytes behind, cleared.
            EXPECT_EQ(hex(dst->extra, 32), hex(w.extra.data(), 30) + " | 00 00");
        } else if (capacity >= 34) {
            EXPECT_EQ(dst->extraSize, 0) << room;
        }
        // The rest of the room is cleared, and nothing past it touched.
        for (UINT i = std::min<UINT>(capacity, 66); i < capacity; ++i)
            ASSERT_EQ(storage[i], 0) << room << " byte " << i;
        for (size_t i = capacity; i < sizeof storage; ++i)
            ASSERT_EQ(storage[i], 0xA5) << room << " byte " << i;
    }
}

// ---- allocation ---------------------------------------------------------------------

struct GlobalBlock {
    WAVEFORMATEX* p;
    explicit GlobalBlock(WAVEFORMATEX* wfx) : p(wfx) {}
    ~GlobalBlock() {
        if (!p) return;
        HGLOBAL h = GlobalHandle(p);
        GlobalUnlock(h);
        GlobalFree(h);
    }
    size_t size() const { return GlobalSize(GlobalHandle(p)); }
};

TEST(WaveFormatAlloc, BlockSizeFollowsTheDestination) {
    const _qzwaveformat stereo = record_of(plain(1, 2, 44100, 16));
    const _qzwaveformat stereo_ext = record_of(extensible(plain(1, 2, 44100, 16), 1, 3, 16));
    const _qzwaveformat side = record_of(extensible(plain(1, 2, 44100, 16), 1, 0x600, 16));
    const _qzwaveformat surround = record_of(plain(1, 6, 44100, 16));
    const _qzwaveformat adpcm = record_of(adpcm_source());
    struct Row {
        const char* name;
        const _qzwaveformat* rec;
        QZWAVEFORMAT_COPY_DEST dest;
        size_t size;
    };
    const Row rows[] = {
        {"stereo", &stereo, QZWFCD_EXTENSIBLE, 40},
        {"stereo", &stereo, QZWFCD_MULTICHANNEL, 18},
        {"from extensible", &stereo_ext, QZWFCD_ASSOURCE, 40},
        {"from extensible", &stereo_ext, QZWFCD_ASNEEDED, 18},
        {"side mask", &side, QZWFCD_ASNEEDED, 40},
        {"side mask", &side, QZWAVEFORMAT_COPY_DEST(7), 18},
        {"5.1 no mask", &surround, QZWFCD_MULTICHANNEL, 40},
        {"adpcm", &adpcm, QZWFCD_PLAIN, 18 + 32},
        {"adpcm", &adpcm, QZWFCD_EXTENSIBLE, 40 + 32},
    };
    for (const Row& r : rows) {
        GlobalBlock block(QzAudio_AllocAndCopyWfx(r.rec, r.dest));
        ASSERT_NE(block.p, nullptr) << r.name;
        EXPECT_EQ(block.size(), r.size) << r.name;
        // The contents are those GeneralCopyWfx writes into that room.
        alignas(8) uint8_t want[128] = {};
        QzAudio_GeneralCopyWfx(reinterpret_cast<WAVEFORMATEX*>(want), UINT(r.size), *r.rec, r.dest);
        EXPECT_EQ(hex(reinterpret_cast<uint8_t*>(block.p), r.size), hex(want, r.size)) << r.name;
    }
    EXPECT_EQ(QzAudio_AllocAndCopyWfx(static_cast<const _qzwaveformat*>(nullptr), QZWFCD_PLAIN),
              nullptr);
}

TEST(WaveFormatAlloc, StructureIsClonedWhenTheFormStays) {
    const Wfx adpcm = adpcm_source();
    const Wfx ext51 = extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24);
    Wfx odd_align = plain(1, 2, 44100, 16);
    odd_align.align = 2;  // a clone keeps even the bad block size
    struct Row {
        const char* name;
        Wfx in;
        QZWAVEFORMAT_COPY_DEST dest;
        Wfx expected;
    };
    const Row rows[] = {
        {"adpcm as needed", adpcm, QZWFCD_ASNEEDED, adpcm},
        {"bad pcm plain", odd_align, QZWFCD_PLAIN, odd_align},
        {"5.1 as source", ext51, QZWFCD_ASSOURCE, ext51},
        // Re-formed through a record:
        {"5.1 plain", ext51, QZWFCD_PLAIN, out_plain(1, 6, 48000, 864000, 18, 24)},
        {"bad pcm extensible", odd_align, QZWFCD_EXTENSIBLE,
         out_ext(1, 2, 44100, 176400, 4, 16, 0)},
    };
    for (const Row& r : rows) {
        WfxBuffer b(encode(r.in));
        GlobalBlock block(QzAudio_AllocAndCopyWfx(b.wfx(), r.dest));
        ASSERT_NE(block.p, nullptr) << r.name;
        const Bytes want = encode(r.expected);
        ASSERT_EQ(block.size(), want.size()) << r.name;
        EXPECT_EQ(hex(reinterpret_cast<uint8_t*>(block.p), want.size()),
                  hex(want.data(), want.size()))
            << r.name;
    }
    EXPECT_EQ(QzAudio_AllocAndCopyWfx(static_cast<const WAVEFORMATEX*>(nullptr), QZWFCD_PLAIN),
              nullptr);
}

TEST(WaveFormatAlloc, FailedAllocationGivesNull) {
    const _qzwaveformat rec = record_of(adpcm_source());
    WfxBuffer wfx(encode(adpcm_source()));
    for (DWORD dest = 0; dest <= 4; ++dest) {
        qz::testing::FaultPlan plan;
        plan.fail(qz::testing::FaultOp::Alloc, 1, 0);
        EXPECT_EQ(QzAudio_AllocAndCopyWfx(rec, QZWAVEFORMAT_COPY_DEST(dest)), nullptr) << dest;
        // Cloned or re-formed, a structure fails the same way.
        EXPECT_EQ(QzAudio_AllocAndCopyWfx(wfx.wfx(), QZWAVEFORMAT_COPY_DEST(dest)), nullptr)
            << dest;
        EXPECT_GE(plan.failures(qz::testing::FaultOp::Alloc), 2u);
    }
}

// ---- structure to structure, and the holders ----------------------------------------

TEST(WaveFormatCopy, CopyWfxGoesThroughA128ByteRecord) {
    Wfx big = plain(0x55, 2, 44100, 0);
    big.cb = 200;
    big.extra = count_bytes(200, 0);
    WfxBuffer src(encode(big));
    alignas(8) uint8_t out[400];
    std::memset(out, 0xEE, sizeof out);
    QzAudio_CopyWfx(reinterpret_cast<WAVEFORMATEX*>(out), sizeof out, src.wfx(), QZWFCD_ASNEEDED);
    // The temporary holds 94 extra bytes at most.
    Bytes first94(big.extra.begin(), big.extra.begin() + 94);
    const Bytes want = encode(out_plain(0x55, 2, 44100, 0, 0, 0, 94, first94));
    EXPECT_EQ(hex(out, want.size() + 1), hex(want.data(), want.size()) + " | EE");

    WfxBuffer ext(encode(extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24)));
    WAVEFORMATEXTENSIBLE wfe;
    std::memset(&wfe, 0xEE, sizeof wfe);
    QzAudio_CopyWfExt(&wfe, ext.wfx(), QZWFCD_ASNEEDED);
    const Bytes want_ext = encode(out_ext(1, 6, 48000, 864000, 18, 24, 0x3F));
    EXPECT_EQ(hex(reinterpret_cast<uint8_t*>(&wfe), 40), hex(want_ext.data(), 40));
}

TEST(WaveFormatHolders, PlainHelperNeverWritesTheExtensibleFormTheOtherKeepsTheSource) {
    const _qzwaveformat ext51 = record_of(extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24));
    _qzwaveformat_wfxcopyhelper h51(ext51);
    Bytes want = encode(out_plain(1, 6, 48000, 864000, 18, 24));
    EXPECT_EQ(hex(reinterpret_cast<const uint8_t*>(h51.wfx()), 18), hex(want.data(), 18));
    _qzwaveformat_wfxcopyhelper ha(record_of(adpcm_source()));
    want = encode(out_plain(2, 1, 22050, 11155, 256, 4, 0));
    const WAVEFORMATEX* as_pointer = ha;
    EXPECT_EQ(hex(reinterpret_cast<const uint8_t*>(as_pointer), 18), hex(want.data(), 18));

    _qzwaveformat_wfxecopyhelper e(record_of(extensible(plain(1, 2, 44100, 16), 1, 3, 16)));
    ASSERT_EQ(e.Size(), 40u);
    want = encode(out_ext(1, 2, 44100, 176400, 4, 16, 3));
    EXPECT_EQ(hex(reinterpret_cast<const uint8_t*>(e.wfx()), 40), hex(want.data(), 40));
    EXPECT_EQ(_qzwaveformat_wfxecopyhelper(record_of(plain(1, 2, 44100, 16))).Size(), 18u);
}

TEST(WaveFormatHolders, WfxPlusKeepsAllExtraBytes) {
    // The holder re-forms a structure through a full-size record: all 200
    // extra bytes survive.
    Wfx big = plain(0x55, 2, 44100, 0);
    big.cb = 200;
    big.extra = count_bytes(200, 0);
    WfxBuffer src(encode(big));
    _qzwaveformat_wfxplus plus;
    plus.Init(src.wfx(), QZWFCD_ASNEEDED);
    ASSERT_EQ(plus.Size(), 218u);
    EXPECT_EQ(hex(reinterpret_cast<const uint8_t*>(plus.wfx()), 218), hex(src.data, 218));
    plus.Init(static_cast<const WAVEFORMATEX*>(nullptr), QZWFCD_ASNEEDED);
    EXPECT_EQ(plus.Size(), 18u);
    EXPECT_EQ(plus.wfx()->wFormatTag, 0);
}

}  // namespace
