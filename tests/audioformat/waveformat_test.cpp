// The wave-format record: sample types, the structure queries, reading
// structures into records and writing records out in every copy form.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "tests/support/faults.h"
#include "qz/qzwaveformat.h"
#include "qz/win32compat.h"
#include "tests/support/riff_files.h"
#include "tests/support/waveformat_bytes.h"

namespace {

using namespace qz::testing;

std::string hex(const void* data, size_t n) {
    static const char* digits = "0123456789ABCDEF";
    const auto* p = static_cast<const uint8_t*>(data);
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        if (i) s += ' ';
        s += digits[p[i] >> 4];
        s += digits[p[i] & 15];
    }
    return s;
}
std::string hex(const Bytes& b) {
    return hex(b.data(), b.size());
}
// `b` followed by `fill` up to `n` bytes: what a guarded buffer must hold.
std::string hex_padded(Bytes b, size_t n, uint8_t fill) {
    b.resize(std::max(n, b.size()), fill);
    return hex(b);
}

_qzwaveformat record_of(const Wfx& w, DWORD capacity = QZWAVEFORMAT_TEMP_SIZE) {
    WfxBuffer buffer(encode(w));
    _qzwaveformat rec;
    std::memset(&rec, 0xCC, sizeof rec);
    rec.Init(capacity, *buffer.wfx());
    return rec;
}

// Expected structures; extensible ones have valid bits = bits.
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

Wfx with_align(Wfx w, WORD align) {
    w.align = align;
    return w;
}
Wfx with_cb(Wfx w, WORD cb, Bytes extra = {}) {
    w.cb = cb;
    w.extra = std::move(extra);
    return w;
}

const Wfx kAdpcm = out_plain(2, 1, 22050, 11155, 256, 4, 32, pattern(32, 0x40));
Wfx unknown_sub_source() {
    Wfx w = with_cb(extensible(plain(1, 2, 48000, 16), 1, 3, 16), 26, {9, 8, 7, 6});
    w.custom_guid = true;
    std::memcpy(w.guid, "\x12\x34\x56\x78\x9A\xBC\xDE\xF0\x11\x22\x33\x44\x55\x66\x77\x88", 16);
    return w;
}
const Wfx kUnknownSub = unknown_sub_source();
const Wfx kExtPcm12 = out_ext(1, 2, 44100, 176400, 4, 12, 3, 24, {0xAB, 0xCD});
const Wfx kExt51 = extensible(plain(1, 6, 48000, 24), 1, 0x3F, 24);
const Wfx kPcm16 = plain(1, 2, 44100, 16);
const Wfx kExtPcm16 = extensible(kPcm16, 1, 3, 16);
const Wfx kExt24In32 = extensible(plain(1, 2, 44100, 32), 1, 3, 24);

// Float at 7 bits is foreign; its codec bytes go out over cbSize when the
// record is written as a plain structure, leaving cbSize 0x1000 + 4.
const Wfx kFloat7 =
    with_cb(extensible(plain(3, 2, 44100, 7), 3, 3, 7), 26, {0x00, 0x10, 0x01, 0x02});

// The bytes of a vector sized exactly to them, so that the sanitizer sees
// any read past them.
const WAVEFORMATEX* as_wfx(const Bytes& b) {
    return reinterpret_cast<const WAVEFORMATEX*>(b.data());
}

TEST(WaveFormatSampleType, PrivateTagsTakeTheirOwnWidths) {
    // 8-bit samples have no byte order; the real-audio tag knows 16 and 24.
    const UINT rows[][3] = {{0xFE02, 8, 16}, {0xFE02, 16, 64},  {0xFE02, 24, 65}, {0xFE02, 32, 66},
                            {0xFE02, 12, 0}, {0xFE03, 24, 129}, {0xFE03, 8, 0},   {0xFE00, 16, 0}};
    for (const auto& r : rows)
        EXPECT_EQ(UINT(QzAudio_GetSampleType2(r[0], int(r[1]))), r[2]) << r[0] << " " << r[1];
}

TEST(WaveFormatQueries, SampleTypeWaveFormatTagAndFormatTagExtensible) {
    // GetWaveFormatTag looks through the extensible form; GetFormatTagExtensible
    // knows only PCM and float (0 = FALSE, tag left alone). The sample type
    // follows the sub-format and does not consult cbSize.
    Wfx high_data1 = kExtPcm16;
    high_data1.custom_guid = true;
    std::memcpy(high_data1.guid, "\x01\x00\x01\x00", 4);  // Data1 = 0x00010001
    std::memcpy(high_data1.guid + 4, qz::testing::kFamilyTail, 12);
    const struct {
        Wfx wfx;
        WORD tag;
        DWORD ext_tag, type;
    } rows[] = {
        {plain(0x55, 2, 44100, 0), 0x55, 0, 0},
        {extensible(plain(1, 2, 44100, 32), 0xFE00, 3, 24), 0xFE00, 0, 48},
        {kUnknownSub, 0, 0, 0},
        {high_data1, 0, 0, 0},
        {with_cb(extensible(kPcm16, 3, 3, 16), 21), 0xFFFE, 0, 0},
        {kExtPcm16, 1, 1, 17},
        {extensible(plain(1, 2, 44100, 24), 1, 3, 20), 1, 1, 18},
        {extensible(plain(1, 2, 44100, 32), 3, 3, 32), 3, 3, 32},
        {kPcm16, 1, 0, 17},
        {kExt24In32, 1, 1, 48},
        {with_cb(extensible(plain(1, 2, 44100, 24), 1, 3, 24), 0), 0xFFFE, 0, 18},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        WfxBuffer b(encode(rows[i].wfx));
        EXPECT_EQ(QzAudio_GetWaveFormatTag(b.wfx()), rows[i].tag) << "row " << i;
        EXPECT_EQ(DWORD(QzAudio_GetSampleType(b.wfx())), rows[i].type) << "row " << i;
        DWORD tag = 77;
        auto* ext = reinterpret_cast<WAVEFORMATEXTENSIBLE*>(b.data);
        EXPECT_EQ(QzAudio_GetFormatTagExtensible(ext, &tag), rows[i].ext_tag != 0) << "row " << i;
        EXPECT_EQ(tag, rows[i].ext_tag ? rows[i].ext_tag : 77) << "row " << i;
    }
    EXPECT_EQ(QzAudio_GetWaveFormatTag(nullptr), 0);
    EXPECT_EQ(QzAudio_GetSampleType(nullptr), QZST_NONE);
}

// Compressed means not a linear frame layout; FixBadWfx repairs the width
// and blockAlign of PCM only (0 bits = left as it was).
TEST(WaveFormatQueries, CompressedAndFixBadWfx) {
    const struct {
        Wfx in;
        BOOL compressed;
        WORD fixed_bits, fixed_align;
    } rows[] = {
        {kPcm16, FALSE, 0, 0},
        {with_align(kPcm16, 2), TRUE, 16, 4},
        {with_align(plain(1, 2, 44100, 20), 5), TRUE, 24, 6},
        {with_align(plain(3, 2, 44100, 32), 2), TRUE, 0, 0},  // float is left alone
        {with_align(plain(0xFE02, 2, 44100, 24), 8), TRUE, 0, 0},
        {plain(0xFE03, 2, 44100, 16), TRUE, 0, 0},  // above the linear tags
        {plain(2, 1, 22050, 4), TRUE, 0, 0},
        {extensible(plain(1, 2, 44100, 32), 3, 3, 32), FALSE, 0, 0},
        {extensible(plain(1, 2, 44100, 32), 0xFE00, 3, 24), TRUE, 0, 0},
        {with_cb(kExtPcm16, 20), TRUE, 0, 0},
        // The extensible check looks at the sub-format only.
        {with_align(kExtPcm16, 7), FALSE, 0, 0},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const auto& r = rows[i];
        WfxBuffer b(encode(r.in));
        EXPECT_EQ(QzAudio_IsCompressed(b.wfx()), r.compressed) << "row " << i;
        EXPECT_EQ(QzAudio_FixBadWfx(b.wfx()), r.fixed_bits != 0) << "row " << i;
        Wfx want = r.in;  // the byte rate is not touched
        if (r.fixed_bits) want.bits = r.fixed_bits, want.align = r.fixed_align;
        EXPECT_EQ(hex(b.data, 18), hex(prefix(encode(want), 18))) << "row " << i;
    }
}

// The fields of a record: type, channels, blockAlign, rate, byte rate,
// mask, flags, tag, bits and size, then the extra bytes it holds.
std::string fields(const _qzwaveformat& r) {
    std::string s;
    for (DWORD v :
         {r.sampleType, DWORD(r.channels), DWORD(r.blockAlign), r.samplesPerSec, r.avgBytesPerSec,
          r.channelMask, r.flags, DWORD(r.formatTag), DWORD(r.bitsPerSample), r.size})
        s += std::to_string(v) + " ";
    return s + hex(r.extra, r.size >= 34 ? r.extraSize : 0);
}

// Extensible headers with an empty sub-format, as some writers emit them.
TEST(WaveFormatRecordFromWfx, BrokenExtensibleNeedsTheUnscaledProduct) {
    const DWORD rows[][6] = {
        // channels, bits, blockAlign, byte rate, cbSize, type
        {2, 8, 16, 44100 * 16, 0, 16},  {2, 16, 32, 44100 * 32, 22, 17},
        {2, 32, 64, 44100 * 64, 0, 32},  // 32 bits is float
        {2, 16, 4, 44100 * 4, 0, 0},     // blockAlign in bytes is not accepted
        {2, 16, 32, 44100 * 4, 0, 0},    // the byte rate must agree
        {2, 16, 32, 44100 * 32, 10, 0}, {2, 12, 24, 44100 * 24, 0, 0},
    };
    for (const auto& r : rows) {
        Wfx w = out_ext(0, WORD(r[0]), 44100, r[3], WORD(r[2]), WORD(r[1]), 0, WORD(r[4]));
        w.valid = 0;
        w.custom_guid = true;  // sub-format all zeros
        const _qzwaveformat rec = record_of(w);
        const std::string name = std::to_string(r[1]) + " bits, align " + std::to_string(r[2]);
        EXPECT_EQ(rec.sampleType, r[5]) << name;
        EXPECT_EQ(rec.flags, r[5] ? 16u : 24u) << name;
        // A rejected one is foreign with the raw tag (cbSize < 22) or tag 0.
        EXPECT_EQ(rec.formatTag, r[5] ? 0 : r[4] < 22 ? 0xFFFE : 0) << name;
    }
}

TEST(WaveFormatRecordFromWfx, CapacityBoundsTheExtraBytes) {
    // capacity, size, extra bytes
    const DWORD rows[][3] = {{0, 32, 0}, {33, 32, 0}, {34, 32, 0}, {35, 33, 1}, {66, 64, 32}};
    WfxBuffer b(encode(kAdpcm));
    for (const auto& r : rows) {
        // The record lives in `capacity` bytes (at least 32), then guard bytes.
        alignas(8) uint8_t storage[256];
        std::memset(storage, 0xA5, sizeof storage);
        auto* rec = reinterpret_cast<_qzwaveformat*>(storage);
        rec->Init(r[0], *b.wfx());
        EXPECT_EQ(rec->size, r[1]) << r[0];
        // extraSize is there only from 34 bytes on.
        if (r[1] >= 34) {
            EXPECT_EQ(hex(rec->extra, rec->extraSize), hex(kAdpcm.extra.data(), r[2])) << r[0];
        }
        const size_t end = std::max<DWORD>(r[0], 32);
        EXPECT_EQ(hex(storage + end, sizeof storage - end),
                  hex_padded({}, sizeof storage - end, 0xA5))
            << "capacity " << r[0];
    }
    // However large the capacity, at most 1024 extra bytes are kept.
    Wfx big = out_plain(0x55, 2, 44100, 0, 0, 0, 1500, pattern(1500, 0));
    const _qzwaveformat rec = record_of(big, 5000);
    EXPECT_EQ(rec.size, 32u + 1024u);
    EXPECT_EQ(rec.extra[1023], 20);  // byte 1023 of the pattern
}

TEST(WaveFormatRecordInit, InitAsWfxAndInitFromType) {
    _qzwaveformat rec;
    std::memset(&rec, 0xCC, sizeof rec);
    rec.InitAsWfx(1, 44100, 20, 2, 0, 32);  // pcm20 taken as 24
    EXPECT_EQ(fields(rec), "18 2 6 44100 264600 0 0 0 0 32 ") << "pcm20";
    // blockAlign follows the width given, not the container of the type.
    rec.InitAsWfx(0xFE00, 44100, 24, 2, 3, 32);
    EXPECT_EQ(fields(rec), "48 2 6 44100 264600 3 0 0 0 32 ") << "24-in-32 given 24 bits";
    rec.InitAsWfx(1, 8000, 12, 3, 0, 32);
    EXPECT_EQ(fields(rec), "0 3 4 8000 32000 0 8 1 12 32 ") << "pcm12 truncating";
    // From a type, the container width counts.
    rec.Init(44100, QZST_PCM24IN32, 2, 0, 128);
    EXPECT_EQ(fields(rec), "48 2 8 44100 352800 0 0 0 0 128 ") << "24-in-32";
    rec.Init(8000, QZST_RA24, 1, 0, 16);
    EXPECT_EQ(fields(rec), "129 1 0 8000 0 0 0 0 0 32 ") << "0xFE03 has no width";
    // 16-bit arithmetic: 8 bytes x 10000 channels wraps.
    rec.Init(1, QZST_FLOAT64, 10000, 0, 32);
    EXPECT_EQ(rec.blockAlign, WORD(80000));
}

TEST(WaveFormatRecordInit, UpdateBlockAlignAndAccessorsFollowTheForeignBit) {
    _qzwaveformat rec = record_of(kPcm16);
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
    EXPECT_FALSE(known.IsCompressed());
    const _qzwaveformat pcm12 = record_of(plain(1, 1, 8000, 12));
    EXPECT_EQ(pcm12.BitsPerSample(), 12);
    EXPECT_TRUE(pcm12.IsCompressed());  // foreign counts as compressed
}

// Records compare their identity, not their bookkeeping; against a structure
// the raw tag counts too (0 against 0xFFFE for an unknown sub-format).
TEST(WaveFormatEquality, RecordsAgainstRecordsAndStructures) {
    Wfx adpcm_other_extra = kAdpcm, adpcm_short = kAdpcm;
    adpcm_other_extra.extra[31] ^= 1;
    adpcm_short.cb = 31;
    adpcm_short.extra.pop_back();
    const struct {
        Wfx a, b;
        bool records_equal, structure_equal;
    } rows[] = {
        {kPcm16, kExtPcm16, true, true},  // mask 0 is the default stereo mask
        {kPcm16, plain(1, 2, 48000, 16), false, false},
        {kExt51, extensible(plain(1, 6, 48000, 24), 1, 0x60F, 24), false, false},
        {plain(0xFE00, 2, 44100, 32), kExt24In32, true, true},
        {kAdpcm, kAdpcm, true, true},  // codec bytes filling the structure
        {kAdpcm, adpcm_other_extra, false, false},
        {kAdpcm, adpcm_short, false, false},
        {plain(1, 1, 8000, 12), plain(1, 1, 8000, 16), false, false},
        {kUnknownSub, kUnknownSub, true, false},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const _qzwaveformat a = record_of(rows[i].a), b = record_of(rows[i].b);
        EXPECT_EQ(a == b, rows[i].records_equal) << "row " << i;
        EXPECT_EQ(b == a, rows[i].records_equal) << "row " << i;
        WfxBuffer wfx(encode(rows[i].b));
        EXPECT_EQ(a == *wfx.wfx(), rows[i].structure_equal) << "row " << i;
    }
    const _qzwaveformat pcm = record_of(kPcm16);
    _qzwaveformat other = pcm;
    other.blockAlign = 2;
    other.avgBytesPerSec = 1;
    EXPECT_TRUE(pcm == other);
    other.channelMask = 0x600;
    EXPECT_FALSE(pcm == other);

    // A float structure holds its 18 bytes whatever cbSize says: a record
    // with as many codec bytes as that cbSize counts is not compared past
    // them, and so is not equal.
    const Bytes float18 = encode(out_plain(3, 2, 44100, 0, 0, 7, 4));
    EXPECT_FALSE(record_of(kFloat7) == *as_wfx(float18));
}

// Each source goes through a full-size record, then out into `room` bytes of
// a guarded buffer; nothing past the expected structure may be written.
TEST(WaveFormatCopy, EveryKindIntoEveryDestination) {
    const Wfx pcm24_ext = extensible(plain(1, 2, 48000, 24), 1, 3, 24);
    const Wfx ra16 = plain(0xFE03, 2, 8000, 16);
    const Wfx plain51 = plain(1, 6, 48000, 16);
    const Wfx side = extensible(plain(1, 2, 44100, 32), 3, 0x600, 32);
    const Wfx too_many = extensible(plain(1, 2, 44100, 32), 3, 0x33, 32);
    const Bytes coef12(kAdpcm.extra.begin(), kAdpcm.extra.begin() + 12), four = {9, 8, 7, 6};
    Wfx unknown_side = kUnknownSub;
    unknown_side.mask = 0x600;
    struct Row {
        Wfx source;
        QZWAVEFORMAT_COPY_DEST dest;
        UINT room;
        Wfx expected;
    };
    const auto AS_SOURCE = QZWFCD_ASSOURCE, AS_NEEDED = QZWFCD_ASNEEDED, PLAIN = QZWFCD_PLAIN,
               EXT = QZWFCD_EXTENSIBLE, MULTI = QZWFCD_MULTICHANNEL;
    const Row rows[] = {
        {kPcm16, QZWAVEFORMAT_COPY_DEST(9), 128, out_plain(1, 2, 44100, 176400, 4, 16)},
        // The forced extensible form ignores a room too small for it.
        {plain(1, 1, 22050, 8), EXT, 18, out_ext(1, 1, 22050, 22050, 1, 8, 0)},
        // From an extensible structure with the default stereo mask.
        {pcm24_ext, AS_SOURCE, 40, out_ext(1, 2, 48000, 288000, 6, 24, 3)},
        {pcm24_ext, AS_SOURCE, 39, out_plain(1, 2, 48000, 288000, 6, 24)},
        // 24-in-32 goes out under its private tag, 32 valid bits.
        {kExt24In32, AS_SOURCE, 128, out_ext(0xFE00, 2, 44100, 352800, 8, 32, 3)},
        {plain(0xFE01, 1, 8000, 8), EXT, 128, out_ext(0xFE01, 1, 8000, 8000, 1, 8, 0)},
        // No tag or width comes back out of the 0xFE03 types.
        {ra16, EXT, 128, out_ext(0, 2, 8000, 0, 0, 0, 0)},
        // Multichannel and masks.
        {kExt51, AS_NEEDED, 40, out_ext(1, 6, 48000, 864000, 18, 24, 0x3F)},
        {kExt51, AS_NEEDED, 39, out_plain(1, 6, 48000, 864000, 18, 24)},
        // With 32 channels every bit is the default mask: a foreign record goes plain.
        {out_ext(1, 32, 8000, 512000, 64, 12, 0xFFFFFFFF), AS_NEEDED, 128,
         out_plain(1, 32, 8000, 512000, 64, 12)},
        // Mask 0: plain unless the destination forces the extensible form.
        {plain51, AS_NEEDED, 128, out_plain(1, 6, 48000, 576000, 12, 16)},
        {plain51, MULTI, 128, out_ext(1, 6, 48000, 576000, 12, 16, 0)},
        {side, MULTI, 40, out_ext(3, 2, 44100, 352800, 8, 32, 0x600)},
        // More speakers than channels: the flexible writer drops the mask,
        // the forced extensible form keeps it.
        {too_many, AS_NEEDED, 40, out_ext(3, 2, 44100, 352800, 8, 32, 0)},
        {too_many, AS_SOURCE, 40, out_ext(3, 2, 44100, 352800, 8, 32, 0x33)},
        // Foreign records keep their numbers and as many extra bytes as fit.
        {kAdpcm, PLAIN, 50, kAdpcm},  // exactly the room it needs
        {kAdpcm, PLAIN, 30, out_plain(2, 1, 22050, 11155, 256, 4, 12, coef12)},
        {kAdpcm, PLAIN, 18, out_plain(2, 1, 22050, 11155, 256, 4, 0)},
        {kAdpcm, EXT, 52, out_ext(2, 1, 22050, 11155, 256, 4, 0, 34, coef12)},
        // An unknown sub-format leaves tag 0; its GUID is not kept.
        {kUnknownSub, AS_SOURCE, 128, out_ext(0, 2, 48000, 192000, 4, 16, 3, 26, four)},
        // A custom mask goes extensible only when the extra bytes fit too.
        {unknown_side, AS_NEEDED, 44, out_ext(0, 2, 48000, 192000, 4, 16, 0x600, 26, four)},
        {unknown_side, AS_NEEDED, 43, out_plain(0, 2, 48000, 192000, 4, 16, 4, four)},
        // Tags 1 and 3 take their extra bytes at offset 16, over cbSize,
        // which then has the count added: 0xCDAB + 2.
        {kExtPcm12, PLAIN, 128, out_plain(1, 2, 44100, 176400, 4, 12, 0xCDAD)},
        // Room for one byte: 0xAB lands in the low byte of cbSize, then + 1.
        {kExtPcm12, PLAIN, 19, out_plain(1, 2, 44100, 176400, 4, 12, 0x00AC)},
        {kExtPcm12, AS_SOURCE, 128, kExtPcm12},
        {kFloat7, PLAIN, 64, out_plain(3, 2, 44100, 0, 0, 7, 0x1004, {0x01, 0x02})},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const auto& r = rows[i];
        const _qzwaveformat rec = record_of(r.source);
        alignas(8) uint8_t out[256];
        std::memset(out, 0xEE, sizeof out);
        WAVEFORMATEX* dst = reinterpret_cast<WAVEFORMATEX*>(out);
        EXPECT_EQ(QzAudio_GeneralCopyWfx(dst, r.room, rec, r.dest), dst);
        EXPECT_EQ(hex(out, sizeof out), hex_padded(encode(r.expected), sizeof out, 0xEE))
            << "row " << i << ": dest " << r.dest << " room " << r.room;
    }
}

TEST(WaveFormatCopy, RecordToRecordKeepsExtraSizeWholeOrNotAtAll) {
    const _qzwaveformat src = record_of(kAdpcm);  // 32 extra bytes
    for (UINT room : {0u, 34u, 65u, 66u, 200u}) {
        alignas(8) uint8_t storage[sizeof(_qzwaveformat) + 16];
        std::memset(storage, 0xA5, sizeof storage);
        auto* dst = reinterpret_cast<_qzwaveformat*>(storage);
        EXPECT_EQ(QzAudio_GeneralCopyQzWaveFormat(dst, room, src, QZWFCD_PLAIN), dst);
        const bool whole = room >= 66;
        EXPECT_EQ(dst->size, whole ? 64u : 32u) << room;
        EXPECT_EQ(hex(storage + 4, 28), hex(reinterpret_cast<const uint8_t*>(&src) + 4, 28));
        const UINT capacity = std::max(room, 32u);
        if (whole) {
            EXPECT_EQ(dst->extraSize, 32);
            // The copy is limited to 32 + extraSize bytes, which leaves the
            // last two extra bytes behind, cleared.
            EXPECT_EQ(hex(dst->extra, 32), hex(kAdpcm.extra.data(), 30) + " 00 00");
        } else if (capacity >= 34) {
            EXPECT_EQ(dst->extraSize, 0) << room;
        }
        // The rest of the room is cleared, and nothing past it touched.
        const UINT end = std::min<UINT>(capacity, 66);
        EXPECT_EQ(hex(storage + end, sizeof storage - end),
                  hex_padded(Bytes(capacity - end), sizeof storage - end, 0xA5))
            << room;
    }
}

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

TEST(WaveFormatAlloc, RecordsSizeByDestinationStructuresCloneWhenTheFormStays) {
    const _qzwaveformat stereo = record_of(kPcm16), stereo_ext = record_of(kExtPcm16),
                        side = record_of(extensible(kPcm16, 1, 0x600, 16)),
                        surround = record_of(plain(1, 6, 44100, 16)), adpcm = record_of(kAdpcm);
    const struct {
        const _qzwaveformat* rec;
        QZWAVEFORMAT_COPY_DEST dest;
        size_t size;
    } rows[] = {
        {&stereo, QZWFCD_MULTICHANNEL, 18},   {&stereo_ext, QZWFCD_ASSOURCE, 40},
        {&stereo_ext, QZWFCD_ASNEEDED, 18},   {&side, QZWFCD_ASNEEDED, 40},
        {&surround, QZWFCD_MULTICHANNEL, 40}, {&adpcm, QZWFCD_PLAIN, 18 + 32},
        {&adpcm, QZWFCD_EXTENSIBLE, 40 + 32},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const auto& r = rows[i];
        GlobalBlock block(QzAudio_AllocAndCopyWfx(r.rec, r.dest));
        ASSERT_NE(block.p, nullptr) << "row " << i;
        EXPECT_EQ(block.size(), r.size) << "row " << i;
        // The contents are those GeneralCopyWfx writes into that room.
        alignas(8) uint8_t want[128] = {};
        QzAudio_GeneralCopyWfx(reinterpret_cast<WAVEFORMATEX*>(want), UINT(r.size), *r.rec, r.dest);
        EXPECT_EQ(hex(block.p, r.size), hex(want, r.size)) << "row " << i;
    }
    // A structure is cloned while its form stays, even with a bad block size,
    // and re-formed through a record otherwise. The clone takes what the
    // structure holds: 18 bytes of PCM and float whatever cbSize says, at
    // least 40 of an extensible one. Each source sits in a block of exactly
    // that size.
    const Wfx odd_align = with_align(kPcm16, 2);
    // The float record written plain: 18 bytes and the two codec bytes past them.
    const Bytes float7_out = encode(out_plain(3, 2, 44100, 0, 0, 7, 0x1004, {0x01, 0x02}));
    const struct {
        Bytes in;
        QZWAVEFORMAT_COPY_DEST dest;
        size_t held;  // 0: re-formed into `out`
        Bytes out = {};
    } clones[] = {
        {encode(kAdpcm), QZWFCD_ASNEEDED, 18 + 32},
        {encode(odd_align), QZWFCD_PLAIN, 18},
        {float7_out, QZWFCD_PLAIN, 18},                        // cbSize 0x1004
        {encode(with_cb(kExtPcm16, 0)), QZWFCD_ASSOURCE, 40},  // short cbSize
        {encode(kUnknownSub), QZWFCD_EXTENSIBLE, 40 + 4},
        {encode(odd_align), QZWFCD_EXTENSIBLE, 0, encode(out_ext(1, 2, 44100, 176400, 4, 16, 0))},
    };
    for (size_t i = 0; i < std::size(clones); ++i) {
        const auto& c = clones[i];
        const Bytes want = c.held ? prefix(c.in, c.held) : c.out;
        GlobalBlock block(QzAudio_AllocAndCopyWfx(as_wfx(c.in), c.dest));
        ASSERT_EQ(block.size(), want.size()) << "clone " << i;
        EXPECT_EQ(hex(block.p, block.size()), hex(want)) << "clone " << i;
    }
    EXPECT_EQ(QzAudio_AllocAndCopyWfx(static_cast<const _qzwaveformat*>(nullptr), QZWFCD_PLAIN),
              nullptr);
    EXPECT_EQ(QzAudio_AllocAndCopyWfx(static_cast<const WAVEFORMATEX*>(nullptr), QZWFCD_PLAIN),
              nullptr);
}

#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
TEST(WaveFormatAlloc, FailedAllocationGivesNull) {
    const _qzwaveformat rec = record_of(kAdpcm);
    WfxBuffer wfx(encode(kAdpcm));
    // From a record, and from a structure cloned (as needed) or re-formed (extensible).
    for (auto dest : {QZWFCD_ASNEEDED, QZWFCD_EXTENSIBLE}) {
        qz::testing::FaultPlan plan;
        plan.fail(qz::testing::FaultOp::Alloc, 1, 0);
        EXPECT_EQ(QzAudio_AllocAndCopyWfx(rec, dest), nullptr) << dest;
        EXPECT_EQ(QzAudio_AllocAndCopyWfx(wfx.wfx(), dest), nullptr) << dest;
        EXPECT_GE(plan.failures(qz::testing::FaultOp::Alloc), 2u);
    }
}
#endif

TEST(WaveFormatCopy, CopyWfxGoesThroughA128ByteRecord) {
    const Wfx big = out_plain(0x55, 2, 44100, 0, 0, 0, 200, pattern(200, 0));
    WfxBuffer src(encode(big));
    alignas(8) uint8_t out[400];
    std::memset(out, 0xEE, sizeof out);
    QzAudio_CopyWfx(reinterpret_cast<WAVEFORMATEX*>(out), sizeof out, src.wfx(), QZWFCD_ASNEEDED);
    // The temporary holds 94 extra bytes at most.
    const Bytes want = encode(out_plain(0x55, 2, 44100, 0, 0, 0, 94, pattern(94, 0)));
    EXPECT_EQ(hex(out, want.size() + 1), hex(want) + " EE");

    WfxBuffer ext(encode(kExt51));
    WAVEFORMATEXTENSIBLE wfe;
    std::memset(&wfe, 0xEE, sizeof wfe);
    QzAudio_CopyWfExt(&wfe, ext.wfx(), QZWFCD_ASNEEDED);
    EXPECT_EQ(hex(&wfe, 40), hex(encode(kExt51)));
}

TEST(WaveFormatHolders, PlainHelperDropsTheExtensibleFormOthersKeepTheSource) {
    _qzwaveformat_wfxcopyhelper h51(record_of(kExt51));
    EXPECT_EQ(hex(h51.wfx(), 18), hex(encode(out_plain(1, 6, 48000, 864000, 18, 24))));
    _qzwaveformat_wfxcopyhelper ha(record_of(kAdpcm));
    const WAVEFORMATEX* as_pointer = ha;
    EXPECT_EQ(hex(as_pointer, 18), hex(encode(out_plain(2, 1, 22050, 11155, 256, 4, 0))));

    _qzwaveformat_wfxecopyhelper e(record_of(kExtPcm16));
    ASSERT_EQ(e.Size(), 40u);
    EXPECT_EQ(hex(e.wfx(), 40), hex(encode(kExtPcm16)));
    EXPECT_EQ(_qzwaveformat_wfxecopyhelper(record_of(kPcm16)).Size(), 18u);

    // wfxplus re-forms through a full-size record: all 200 extra bytes survive.
    WfxBuffer src(encode(out_plain(0x55, 2, 44100, 0, 0, 0, 200, pattern(200, 0))));
    _qzwaveformat_wfxplus plus;
    plus.Init(src.wfx(), QZWFCD_ASNEEDED);
    ASSERT_EQ(plus.Size(), 218u);
    EXPECT_EQ(hex(plus.wfx(), 218), hex(src.data, 218));
    plus.Init(static_cast<const WAVEFORMATEX*>(nullptr), QZWFCD_ASNEEDED);
    EXPECT_EQ(plus.Size(), 18u);
    EXPECT_EQ(plus.wfx()->wFormatTag, 0);
}

}  // namespace
