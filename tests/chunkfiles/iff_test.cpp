// iff_*, aiff_*: fields, headers, the budgeted walk, AIFF formats, markers, deletion, rates.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "tests/support/faults.h"
#include "tests/support/riff_files.h"
#if QZ_TEST_FAULTS
#include "tests/support/fault_sweep.h"
#endif

using namespace qz::testing;
using std::make_tuple;

namespace {

constexpr DWORD kNone = 0xDEADBEEF;  // an output left alone

uint32_t id(const char* c) {
    return __builtin_bswap32(cc(c));
}
Bytes ck(const char (&name)[5], const Bytes& body) {
    return text(name) + be32(uint32_t(body.size())) + body + Bytes(body.size() & 1, 0);
}
Bytes form(const char (&type)[5], const Bytes& body) {
    return text("FORM") + be32(uint32_t(body.size() + 4)) + text(type) + body;
}
Bytes comm(uint16_t channels, uint32_t frames, uint16_t bits, const std::string& compression = "",
           const Bytes& rate = hex("400E AC44 0000 0000 0000")) {
    return ck("COMM", be16(channels) + be32(frames) + be16(bits) + rate + text(compression));
}
Bytes ssnd(uint32_t offset, size_t bytes) {  // offset, block size, samples
    return ck("SSND", be32(offset) + be32(0) + pattern(bytes));
}

}  // namespace

TEST(IffFields, WritersAreBigEndianReadersSwapBackAndOddBodiesSkipTheirPad) {
    TempFile f({});
    const HANDLE h = f.handle();
    const QZIFFCHUNK odd = {id("odd "), 3};
    ASSERT_EQ(iff_WriteFileID(h, id("AIFF"), 0x102), S_OK);
    ASSERT_EQ(iff_WriteChunk(h, &odd), S_OK);
    WriteFile(h, "abc", 4, nullptr, nullptr);  // the body and its pad
    ASSERT_TRUE(iff_WriteDWORD(h, 0x01020304) == S_OK &&
                aiff_WriteByteSwap32(h, 0x0A0B0C0D) == S_OK && iff_WriteWORD(h, 0xA1B2) == S_OK &&
                aiff_WriteByteSwap16(h, 0x0E0F) == S_OK);
    EXPECT_EQ(f.contents(),
              text("FORM") + hex("00000102") + text("AIFFodd ") + hex("00000003") + text("abc") +
                  hex("00 01020304 0A0B0C0D A1B2 0E0F"));  // the pad, then the fields
    f.seek(12);
    QZIFFCHUNK header{};
    DWORD d1 = 0, d2 = 0;
    WORD w1 = 0, w2 = 0;
    EXPECT_EQ(iff_ReadChunkHdr(h, &header), S_OK);
    EXPECT_EQ(iff_SkipChunk(h, header.ckSize), 4u);
    EXPECT_TRUE(iff_ReadDWORD(h, &d1) == S_OK && iff_ReadDWORD(h, &d2) == S_OK &&
                iff_ReadWORD(h, &w1) == S_OK && iff_ReadWORD(h, &w2) == S_OK);
    EXPECT_EQ(make_tuple(header.ckID, header.ckSize, d1, d2, w1, w2),
              make_tuple(id("odd "), 3u, 0x01020304u, 0x0A0B0C0Du, WORD(0xA1B2), WORD(0x0E0F)));
    EXPECT_EQ(iff_ReadWORD(h, &w1), QZE_FILE_READ);
    EXPECT_EQ(iff_ReadChunkHdr(h, nullptr), E_INVALIDARG);
    Bytes words = {1, 2, 3, 4, 5, 6, 7, 8};
    iff_ByteSwap16(words.data(), 2);
    iff_ByteSwap32(words.data() + 4, 1);
    EXPECT_EQ(words, (Bytes{2, 1, 4, 3, 8, 7, 6, 5}));
}

TEST(IffHeaders, ReadFormTypeWantsFormAndFromStartSaysWhyItStopped) {
    // The bytes; ReadFormType's result, form type and position; FindChunkFromStart's result.
    const std::tuple<Bytes, HRESULT, DWORD, uint64_t, HRESULT> cases[] = {
        {form("AIFF", {}), S_OK, id("AIFF"), 12, QZE_NOT_FOUND},  // runs to the end
        {text("RIFF") + be32(4) + text("WAVE"), QZE_CORRUPT_OR_UNKNOWN, kNone, 8,
         QZE_NO_RIFF_HEADER},
        {text("FORM") + be32(4) + text("AI"), QZE_FILE_READ, kNone, 10, QZE_NO_RIFF_HEADER},
        {text("FORM") + be16(0), QZE_FILE_READ, kNone, 6, QZE_FILE_READ},
    };
    for (const auto& [bytes, read, type, position, from_start] : cases) {
        TempFile f(bytes);
        QZIFFCHUNK header{};
        DWORD form_type = kNone, size = kNone;
        EXPECT_EQ(iff_ReadFormType(f.handle(), &header, &form_type), read);
        EXPECT_EQ(make_tuple(form_type, f.position()), make_tuple(type, position));
        EXPECT_EQ(iff_FindChunkFromStart(f.handle(), id("COMM"), &size), from_start);
        EXPECT_EQ(size, 0u);
    }
}

TEST(IffWalk, TheBudgetWrapsAndAFindLeavingZeroKeepsTheCallersCount) {
    // FORM AIFF: COMM (18), "odd " (5 + pad), SSND (8 + 2); a "tail" chunk past the FORM.
    const Bytes file =
        form("AIFF", comm(1, 1, 16) + ck("odd ", pattern(5)) + ssnd(0, 2)) + ck("tail", pattern(2));
    // The id sought, the budget given; the result, the size, the budget after, the position.
    const std::tuple<const char*, DWORD, HRESULT, DWORD, DWORD, uint64_t> cases[] = {
        {"SSND", 7, QZE_NOT_FOUND, kNone, 7, 12},   // no header fits: nothing read
        {"SSND", 48, S_OK, 10, 48, 60},             // exactly 0 left: not stored
        {"tail", 62, QZE_NOT_FOUND, kNone, 4, 70},  // the FORM size counts its type
        // 20 - 26 wraps: the walk goes on past the FORM to the end of the file.
        {"tail", 20, S_OK, 2, DWORD(20 - 26 - 14 - 18 - 8), 78},
        {"none", 20, QZE_FILE_READ, kNone, 20, 80},
    };
    for (const auto& [name, budget, expected, size, left, position] : cases) {
        TempFile f(file);
        f.seek(12);
        DWORD found = kNone, remaining = budget;
        EXPECT_EQ(iff_FindChunkHeader(f.handle(), id(name), &found, &remaining), expected);
        EXPECT_EQ(make_tuple(found, remaining, f.position()), make_tuple(size, left, position))
            << name << " " << budget;
    }
    TempFile f(file);
    DWORD size = 0;
    EXPECT_EQ(iff_FindChunkHeader(f.handle(), id("COMM"), &size, nullptr), E_INVALIDARG);
    EXPECT_EQ(iff_FindChunkFromStart(f.handle(), id("tail"), &size), S_OK);
    EXPECT_EQ(iff_SeekChunkHeader(f.handle(), id("COMM"), &size), QZE_FILE_READ);
}

TEST(IffAiff, ClassifiesAiffAndTheAifcCompressionsItReads) {
    // The bytes; the answer, the FORM size, compressed, little-endian.
    const std::tuple<Bytes, BOOL, DWORD, BOOL, BOOL> cases[] = {
        {form("AIFC", ck("FVER", be32(0xA2805140)) + comm(2, 0, 16, "NONE")), TRUE, 46, TRUE,
         FALSE},
        {form("AIFC", comm(2, 0, 16, "sowt")), TRUE, 34, TRUE, TRUE},
        {form("AIFC", comm(2, 0, 16, "ulaw")), FALSE, 34, TRUE, FALSE},
        {form("AIFC", comm(2, 0, 16) + ck("NONE", {})), FALSE, 38, TRUE, FALSE},  // 18 bytes
        {form("AIFC", {}), FALSE, 4, TRUE, FALSE},
        {form("8SVX", {}), FALSE, 4, FALSE, FALSE},
        {text("RIFF") + be32(4) + text("WAVE"), FALSE, 0, FALSE, FALSE},
    };
    for (const auto& [bytes, answer, size, compressed, little] : cases) {
        TempFile f(bytes);
        DWORD form_size = 9;
        BOOL c = 9, l = 9;
        const BOOL aiff = iff_IsAIFFFileEx(f.handle(), &form_size, &c, &l);
        EXPECT_EQ(make_tuple(aiff, form_size, c, l), make_tuple(answer, size, compressed, little));
        EXPECT_EQ(iff_IsAIFFFile(f.handle(), nullptr), answer);
        EXPECT_TRUE(!answer || f.position() == 12u);
    }
}

TEST(IffAiff, WaveFormatFramesAndFirstSampleAsTheFileSays) {
    // The file; the result, the WAVEFORMATEX (tag, channels, rate, byte rate, block align,
    // bits, cbSize), the frames, the data position, the position after.
    const std::tuple<Bytes, HRESULT, const char*, DWORD, DWORD, uint64_t> cases[] = {
        // "COMM" straddles the end of the first 512 bytes read.
        {form("AIFF", ck("ANNO", pattern(488)) + comm(2, 100, 16) + ssnd(0, 40)), S_OK,
         "02FE 0200 44AC0000 10B10200 0400 1000 0000", 10, 550, 550},
        // "SSND" first, an offset of 4 bytes, fewer frames in "COMM" than bytes.
        {form("AIFF", ssnd(4, 40) + comm(1, 5, 8)), S_OK,
         "01FE 0100 44AC0000 44AC0000 0100 0800 0000", 5, 32, 28},
        {form("AIFC", comm(2, 9, 24, "sowt", hex("4010 BB80 0000 0000 0000")) + ssnd(0, 30)), S_OK,
         "0100 0200 00EE0200 00941100 0600 1800 0000", 5, 58, 58},
        // Under a byte per sample: no byte rate, block align 1; an offset past the chunk.
        {form("AIFF", comm(3, 7, 4) + ssnd(99, 6)), S_OK,
         "02FE 0300 44AC0000 00000000 0100 0400 0000", 0, 153, 54},
        {form("AIFF", comm(1, 1, 16)), QZE_NOT_FOUND, "", kNone, kNone, 0},
        {form("AIFF", ssnd(0, 2)), QZE_NOT_FOUND, "", kNone, kNone, 0},
        {form("AIFC", comm(1, 1, 16, "fl32") + ssnd(0, 2)), QZE_CORRUPT_OR_UNKNOWN, "", kNone,
         kNone, 0},
        {prefix(form("AIFF", comm(1, 1, 16)), 28), QZE_FILE_READ, "", kNone, kNone, 0},
        {form("AIFF", comm(1, 1, 16) + text("SSND") + be32(8)), QZE_FILE_READ, "", kNone, kNone, 0},
    };
    for (const auto& [bytes, expected, wfx, frames, at, end] : cases) {
        TempFile f(bytes);
        Bytes format(sizeof(WAVEFORMATEX), 0xEE);
        DWORD n = kNone, position = kNone;
        const HRESULT hr = iff_GetAIFFWfx(
            f.handle(), reinterpret_cast<WAVEFORMATEX*>(format.data()), &n, &position);
        EXPECT_EQ(make_tuple(hr, n, position), make_tuple(expected, frames, at));
        EXPECT_TRUE(!*wfx || format == hex(wfx)) << wfx;
        EXPECT_TRUE(!end || f.position() == end) << f.position();
        n = kNone;
        EXPECT_EQ(iff_GetAIFFWfx(f.handle(), nullptr, &n, nullptr), expected);
        EXPECT_EQ(n, frames);
    }
}

TEST(IffMarkers, FindsByIdWithinTheChunkAndItsCount) {
    // id 1 at 100 "intro" (odd: no pad), id 7 at 2500 "drop" (even: pad).
    const Bytes marks = be16(1) + be32(100) + Bytes{5} + text("intro") + be16(7) + be32(2500) +
                        Bytes{4} + text("drop") + Bytes{0};
    const Bytes sound = form("AIFF", comm(1, 1, 16));  // "MARK" follows at 38
    // The file, the marker sought; the result, the entry read, the position after.
    const std::tuple<Bytes, WORD, HRESULT, WORD, DWORD, BYTE, uint64_t> cases[] = {
        {sound + ck("MARK", be16(2) + marks), 7, S_OK, 7, 2500, 4, 67},
        {sound + ck("MARK", be16(2) + marks), 9, QZE_NOT_FOUND, 7, 2500, 4, 72},  // count used up
        {sound + ck("MARK", be16(0) + marks), 1, QZE_NOT_FOUND, 0, 0, 0, 48},
        // The count claims more entries than the chunk holds; what follows stays unread.
        {sound + ck("MARK", be16(3) + marks) + ck("next", pattern(12)), 5, QZE_NOT_FOUND, 7, 2500,
         4, 72},
        {sound + text("MARK") + be32(26) + be16(2) + prefix(marks, 10), 7, QZE_NO_RIFF_HEADER, 1,
         100, 5, 60},
        {sound, 1, QZE_NOT_FOUND, 0, 0, 0, 38},
    };
    for (const auto& [bytes, wanted, expected, got_id, position, length, at] : cases) {
        TempFile f(bytes);
        QZAIFFMARKER marker{};
        EXPECT_EQ(iff_FindMarker(f.handle(), wanted, &marker), expected);
        EXPECT_EQ(make_tuple(marker.wId, DWORD(marker.dwPosition), marker.cbName, f.position()),
                  make_tuple(got_id, position, length, at));
    }
}

TEST(IffDelete, RemovesThroughABlockOfAtMostTheTailAndLowersTheFormSize) {
    const Bytes head = comm(1, 1, 16);
    // Tails of 0, 4094, 4096 and 10010 bytes: none, one short block, one whole, several.
    for (size_t n : {size_t(0), size_t(4086), size_t(4088), size_t(10001)}) {
        const Bytes rest = n ? ck("data", pattern(n)) : Bytes{};
        TempFile f(form("AIFF", head + ck("odd ", pattern(11)) + rest));
        DWORD removed = 0;
        ASSERT_EQ(iff_DeleteChunk(f.handle(), id("odd "), &removed), S_OK) << n;
        EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(form("AIFF", head + rest), 20u));
    }
    const Bytes file = form("AIFF", head + ck("odd ", pattern(11)) + ssnd(0, 4));
    // The file, the chunk; the result. "COMM" runs past a FORM size of 20, "SSND" past the end.
    const std::tuple<Bytes, const char*, HRESULT> refused[] = {
        {file, "none", QZE_NOT_FOUND},
        {text("RIFF") + Bytes(file.begin() + 4, file.end()), "SSND", QZE_CORRUPT_OR_UNKNOWN},
        {text("FORM") + be32(20) + text("AIFF") + head, "COMM", QZE_CORRUPT_OR_UNKNOWN},
        {prefix(file, file.size() - 1), "SSND", QZE_CORRUPT_OR_UNKNOWN},
    };
    for (const auto& [bytes, name, expected] : refused) {
        TempFile f(bytes);
        DWORD removed = 9;
        EXPECT_EQ(iff_DeleteChunk(f.handle(), id(name), &removed), expected) << name;
        EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(bytes, 0u)) << name;
    }
#if QZ_TEST_FAULTS  // the fault plan exists on POSIX only
    // Each platform call fails in turn. A failed read or move before the walk
    // reads as a file that is not AIFF; a failed cut leaves the moved file,
    // with its lowered size, and the old last 20 bytes behind it.
    const Bytes moved = form("AIFF", head + ssnd(0, 4)) + Bytes(file.end() - 20, file.end());
    sweep({"DeleteChunk", file, 0, [](HANDLE h) { return iff_DeleteChunk(h, id("odd "), nullptr); },
           "CWCWM",
           [moved](const TempFile& f, const Bytes&, FaultOp op) {
               EXPECT_TRUE(op != FaultOp::Truncate || f.contents() == moved);
           }});
#endif
}

TEST(AiffRate, EncodesAndDecodesTheExtendedRateWithItsCeiling) {
    // The rate; the exponent and mantissa words made of it; what they convert back to.
    const std::tuple<DWORD, const char*, DWORD> cases[] = {
        {44100, "400E AC44 0000 0000 0000", 44100},
        {2, "4000 8000 0000 0000 0000", 2},
        {0, "3FFF 0000 0000 0000 0000", 0},
        {192000, "4010 BB80 0000 0000 0000", 192000},
        {352800, "4011 AC44 0000 0000 0000", 176400},  // the first doubling past 96000
        {0xFFFFFFFF, "401E FFFF FFFF 0000 0000", 131071},
    };
    for (const auto& [rate, words, back] : cases) {
        WORD e = 0, m[4] = {1, 1, 1, 1};
        aiff_CreateRate(rate, &e, m);
        EXPECT_EQ(be16(e) + be16(m[0]) + be16(m[1]) + be16(m[2]) + be16(m[3]), hex(words));
        EXPECT_EQ(aiff_ConvertRate(e, m), back);
    }
    // Sign, infinity, NaN, a denormal, exponents below the bias and past 64 bits, no mantissa.
    const WORD ones[4] = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF}, tiny[4] = {0, 0, 0, 1};
    const WORD integer[4] = {0x8000, 0, 0, 0}, nan[4] = {0xC000, 0, 0, 0};
    const std::tuple<WORD, const WORD*, DWORD> hostile[] = {
        {0xC00E, integer, 44100}, {0x7FFF, integer, 131072}, {0x7FFF, nan, 98304},
        {0x0000, tiny, 131072},   {0x3FFE, ones, 131072},    {0x43FF, ones, 131072},
        {0x400E, nullptr, 0},
    };
    for (const auto& [exponent, mantissa, rate] : hostile)
        EXPECT_EQ(aiff_ConvertRate(exponent, mantissa), rate) << std::hex << exponent;
}
