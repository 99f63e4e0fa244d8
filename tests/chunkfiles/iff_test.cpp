// iff_*, aiff_*: fields, headers, the budgeted walk, AIFF formats, markers, deletion, rates.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "platform/posix/fault_plan.h"
#include "tests/support/riff_files.h"

using namespace qz::testing;
using std::make_tuple;

namespace {

constexpr DWORD kNone = 0xDEADBEEF;  // an output left alone

Bytes be16(uint16_t v) {
    return {uint8_t(v >> 8), uint8_t(v)};
}
Bytes be32(uint32_t v) {
    return be16(uint16_t(v >> 16)) + be16(uint16_t(v));
}
uint32_t id(const char* c) {
    return __builtin_bswap32(cc(c));
}
Bytes ck(const char (&name)[5], const Bytes& body) {
    Bytes out = text(name) + be32(uint32_t(body.size())) + body;
    if (body.size() & 1) out.push_back(0);
    return out;
}
Bytes form(const char (&type)[5], const Bytes& body) {
    return text("FORM") + be32(uint32_t(body.size() + 4)) + text(type) + body;
}
// "COMM": channels, frames, bits, the rate's 10 bytes, an AIFF-C compression type.
Bytes comm(uint16_t channels, uint32_t frames, uint16_t bits, const Bytes& rate,
           const std::string& compression = "") {
    return ck("COMM", be16(channels) + be32(frames) + be16(bits) + rate + text(compression));
}
const Bytes k44100 = {0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0};
Bytes ssnd(uint32_t offset, size_t bytes) {
    return ck("SSND", be32(offset) + be32(0) + pattern(bytes));
}

}  // namespace

TEST(IffFields, WritersAreBigEndianAndReadersSwapBack) {
    TempFile f({});
    const HANDLE h = f.handle();
    const QZIFFCHUNK junk = {id("junk"), 3};
    ASSERT_EQ(iff_WriteFileID(h, id("AIFF"), 0x102), S_OK);
    ASSERT_EQ(iff_WriteChunk(h, &junk), S_OK);
    WriteFile(h, "abc\0", 4, nullptr, nullptr);  // an odd body and its pad
    ASSERT_EQ(iff_WriteDWORD(h, 0x01020304), S_OK);
    ASSERT_EQ(aiff_WriteByteSwap32(h, 0x0A0B0C0D), S_OK);
    ASSERT_EQ(iff_WriteWORD(h, 0xA1B2), S_OK);
    ASSERT_EQ(aiff_WriteByteSwap16(h, 0x0E0F), S_OK);
    const Bytes fields = {0, 1, 2, 3, 4, 10, 11, 12, 13, 0xA1, 0xB2, 14, 15};  // pad first
    EXPECT_EQ(f.contents(),
              text("FORM") + be32(0x102) + text("AIFFjunk") + be32(3) + text("abc") + fields);
    f.seek(20);
    QZIFFCHUNK header{};
    DWORD dword = 0, dword2 = 0;
    WORD word = 0, word2 = 0;
    EXPECT_EQ(iff_SkipChunk(h, 3), 4u);
    EXPECT_EQ(iff_ReadDWORD(h, &dword), S_OK);
    EXPECT_EQ(iff_ReadDWORD(h, &dword2), S_OK);
    EXPECT_EQ(iff_ReadWORD(h, &word), S_OK);
    EXPECT_EQ(iff_ReadWORD(h, &word2), S_OK);
    EXPECT_EQ(make_tuple(dword, dword2, word, word2),
              make_tuple(0x01020304u, 0x0A0B0C0Du, WORD(0xA1B2), WORD(0x0E0F)));
    EXPECT_EQ(iff_ReadWORD(h, &word), QZE_FILE_READ);
    EXPECT_EQ(iff_ReadDWORD(h, &dword), QZE_FILE_READ);
    f.seek(12);
    EXPECT_EQ(iff_ReadChunkHdr(h, &header), S_OK);
    EXPECT_EQ(make_tuple(header.ckID, header.ckSize), make_tuple(id("junk"), 3u));
    EXPECT_EQ(iff_ReadChunkHdr(h, nullptr), E_INVALIDARG);
    Bytes words = {1, 2, 3, 4, 5, 6, 7, 8};
    iff_ByteSwap16(words.data(), 2);
    EXPECT_EQ(words, (Bytes{2, 1, 4, 3, 5, 6, 7, 8}));
    iff_ByteSwap32(words.data(), 2);
    EXPECT_EQ(words, (Bytes{3, 4, 1, 2, 8, 7, 6, 5}));
}

TEST(IffHeaders, ReadFormTypeWantsFormAndFromStartSaysWhyItStopped) {
    // The bytes; ReadFormType's result, form type and position; FindChunkFromStart's result.
    const std::tuple<Bytes, HRESULT, DWORD, uint64_t, HRESULT> cases[] = {
        {form("AIFF", ck("COMM", {})), S_OK, id("AIFF"), 12, S_OK},
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
    const Bytes file = form("AIFF", comm(1, 1, 16, k44100) + ck("odd ", pattern(5)) + ssnd(0, 2)) +
                       ck("tail", pattern(2));
    // The id sought, the budget given; the result, the size, the budget after, the position.
    const std::tuple<const char*, DWORD, HRESULT, DWORD, DWORD, uint64_t> cases[] = {
        {"SSND", 62, S_OK, 10, 62 - 26 - 14 - 8, 60},
        {"SSND", 7, QZE_NOT_FOUND, kNone, 7, 12},   // no header fits: nothing read
        {"SSND", 48, S_OK, 10, 48, 60},             // exactly 0 left: not stored
        {"none", 62, QZE_NOT_FOUND, kNone, 4, 70},  // the FORM size counts its type
        {"tail", 62, QZE_NOT_FOUND, kNone, 4, 70},
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
    f.seek(12);
    EXPECT_EQ(iff_SeekChunkHeader(f.handle(), id("tail"), &size), S_OK);
    EXPECT_EQ(iff_SeekChunkHeader(f.handle(), id("COMM"), &size), QZE_FILE_READ);
    EXPECT_EQ(iff_FindChunkFromStart(f.handle(), id("tail"), &size), S_OK);
    EXPECT_EQ(make_tuple(size, f.position()), make_tuple(2u, uint64_t(78)));
}

TEST(IffAiff, ClassifiesAiffAndTheAifcCompressionsItReads) {
    // The bytes; the answer, compressed, little-endian.
    const std::tuple<Bytes, BOOL, BOOL, BOOL> cases[] = {
        {form("AIFF", {}), TRUE, FALSE, FALSE},
        {form("AIFC", ck("FVER", be32(0xA2805140)) + comm(2, 0, 16, k44100, "NONE")), TRUE, TRUE,
         FALSE},
        {form("AIFC", comm(2, 0, 16, k44100, "sowt")), TRUE, TRUE, TRUE},
        {form("AIFC", comm(2, 0, 16, k44100, "ulaw")), FALSE, TRUE, FALSE},
        {form("AIFC", comm(2, 0, 16, k44100) + ck("NONE", {})), FALSE, TRUE, FALSE},  // 18 bytes
        {form("AIFC", {}), FALSE, TRUE, FALSE},
        {form("8SVX", {}), FALSE, FALSE, FALSE},
    };
    for (const auto& [bytes, answer, compressed, little] : cases) {
        TempFile f(bytes);
        DWORD size = 0, size2 = 0;
        BOOL c = 9, l = 9;
        EXPECT_EQ(iff_IsAIFFFileEx(f.handle(), &size, &c, &l), answer);
        EXPECT_EQ(make_tuple(size, c, l), make_tuple(DWORD(bytes.size() - 8), compressed, little));
        EXPECT_EQ(iff_IsAIFFFile(f.handle(), &size2), answer);
        EXPECT_TRUE(!answer || f.position() == 12u);
    }
    TempFile riff_file(text("RIFF") + be32(4) + text("WAVE"));
    DWORD size = 9;
    EXPECT_FALSE(iff_IsAIFFFile(riff_file.handle(), &size));
    EXPECT_EQ(size, 0u);
}

TEST(IffAiff, WaveFormatFramesAndFirstSampleAsTheFileSays) {
    const Bytes k192000 = {0x40, 0x10, 0xBB, 0x80, 0, 0, 0, 0, 0, 0};
    // The file; the result, the 18 bytes of WAVEFORMATEX, the frames, the data
    // position, the position after the call.
    const std::tuple<Bytes, HRESULT, Bytes, DWORD, DWORD, uint64_t> cases[] = {
        {form("AIFF", comm(2, 100, 16, k44100) + ssnd(0, 40)),
         S_OK,
         {0x02, 0xFE, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0, 0, 0},
         10,
         54,
         54},
        // "SSND" first, an offset of 4 bytes, fewer frames in "COMM" than bytes.
        {form("AIFF", ssnd(4, 40) + comm(1, 5, 8, k44100)),
         S_OK,
         {0x01, 0xFE, 1, 0, 0x44, 0xAC, 0, 0, 0x44, 0xAC, 0, 0, 1, 0, 8, 0, 0, 0},
         5,
         32,
         28},
        {form("AIFC", comm(2, 9, 24, k192000, "sowt") + ssnd(0, 30)),
         S_OK,
         {0x01, 0x00, 2, 0, 0x00, 0xEE, 2, 0, 0x00, 0x94, 0x11, 0, 6, 0, 24, 0, 0, 0},
         5,
         58,
         58},
        // Under a byte per sample: no byte rate, block align 1; an offset past the chunk.
        {form("AIFF", comm(3, 7, 4, k44100) + ssnd(99, 6)),
         S_OK,
         {0x02, 0xFE, 3, 0, 0x44, 0xAC, 0, 0, 0, 0, 0, 0, 1, 0, 4, 0, 0, 0},
         0,
         153,
         54},
        {form("AIFF", comm(1, 1, 16, k44100)), QZE_NOT_FOUND, {}, kNone, kNone, 0},
        {form("AIFF", ssnd(0, 2)), QZE_NOT_FOUND, {}, kNone, kNone, 0},
        {form("AIFC", comm(1, 1, 16, k44100, "fl32") + ssnd(0, 2)),
         QZE_CORRUPT_OR_UNKNOWN,
         {},
         kNone,
         kNone,
         0},
        {prefix(form("AIFF", comm(1, 1, 16, k44100)), 28), QZE_FILE_READ, {}, kNone, kNone, 0},
        {form("AIFF", comm(1, 1, 16, k44100) + text("SSND") + be32(8)),
         QZE_FILE_READ,
         {},
         kNone,
         kNone,
         0},
    };
    for (const auto& [bytes, expected, wfx, frames, at, end] : cases) {
        TempFile f(bytes);
        WAVEFORMATEX format;
        std::memset(&format, 0xEE, sizeof format);
        DWORD n = kNone, position = kNone;
        EXPECT_EQ(iff_GetAIFFWfx(f.handle(), &format, &n, &position), expected);
        const auto* raw = reinterpret_cast<const uint8_t*>(&format);
        EXPECT_TRUE(wfx.empty() || Bytes(raw, raw + sizeof format) == wfx);
        EXPECT_EQ(make_tuple(n, position), make_tuple(frames, at));
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
    const Bytes sound = form("AIFF", comm(1, 1, 16, k44100));  // "MARK" follows at 38
    // The file, the marker sought; the result, the entry read, the position after.
    const std::tuple<Bytes, WORD, HRESULT, WORD, DWORD, BYTE, uint64_t> cases[] = {
        {sound + ck("MARK", be16(2) + marks), 7, S_OK, 7, 2500, 4, 67},
        {sound + ck("MARK", be16(2) + marks), 9, QZE_NOT_FOUND, 7, 2500, 4, 72},
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
        EXPECT_EQ(make_tuple(marker.wId, marker.dwPosition, marker.cbName, f.position()),
                  make_tuple(got_id, position, length, at));
    }
    TempFile f(sound);
    EXPECT_EQ(iff_FindMarker(f.handle(), 1, nullptr), E_INVALIDARG);
}

TEST(IffDelete, RemovesThroughABlockOfAtMostTheTailAndLowersTheFormSize) {
    const Bytes head = comm(1, 1, 16, k44100);
    // Tails of 0, 4094, 4096 and 10010 bytes: none, one short block, one whole, several.
    for (size_t n : {size_t(0), size_t(4086), size_t(4088), size_t(10001)}) {
        const Bytes rest = n ? ck("data", pattern(n)) : Bytes{};
        TempFile f(form("AIFF", head + ck("odd ", pattern(11)) + rest));
        DWORD removed = 0;
        ASSERT_EQ(iff_DeleteChunk(f.handle(), id("odd "), &removed), S_OK) << n;
        EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(form("AIFF", head + rest), 20u));
    }
    const Bytes file = form("AIFF", head + ck("odd ", pattern(11)) + ssnd(0, 4));
    const std::tuple<Bytes, const char*, HRESULT> refused[] = {
        {file, "none", QZE_NOT_FOUND},
        {text("RIFF") + Bytes(file.begin() + 4, file.end()), "SSND", QZE_CORRUPT_OR_UNKNOWN},
        // "COMM" runs past the FORM size of 20; "SSND" past the end of the file.
        {text("FORM") + be32(20) + text("AIFF") + head, "COMM", QZE_CORRUPT_OR_UNKNOWN},
        {prefix(file, file.size() - 1), "SSND", QZE_CORRUPT_OR_UNKNOWN},
    };
    for (const auto& [bytes, name, expected] : refused) {
        TempFile f(bytes);
        DWORD removed = 9;
        EXPECT_EQ(iff_DeleteChunk(f.handle(), id(name), &removed), expected) << name;
        EXPECT_EQ(make_tuple(f.contents(), removed), make_tuple(bytes, 0u)) << name;
    }
    TempFile f(file);
    FaultPlan plan;
    plan.fail(FaultOp::Alloc, 1);
    EXPECT_EQ(iff_DeleteChunk(f.handle(), id("odd "), nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(f.contents(), file);
}

TEST(AiffRate, EncodesAndDecodesTheExtendedRateWithItsCeiling) {
    // The rate; the exponent and mantissa words made of it; what they convert back to.
    const std::tuple<DWORD, WORD, Bytes, DWORD> cases[] = {
        {44100, 0x400E, {0xAC, 0x44, 0, 0, 0, 0, 0, 0}, 44100},
        {1, 0x3FFF, {0x80, 0, 0, 0, 0, 0, 0, 0}, 1},
        {0, 0x3FFF, {0, 0, 0, 0, 0, 0, 0, 0}, 0},
        {66151, 0x400F, {0x81, 0x33, 0x80, 0, 0, 0, 0, 0}, 66151},
        {192000, 0x4010, {0xBB, 0x80, 0, 0, 0, 0, 0, 0}, 192000},
        {352800, 0x4011, {0xAC, 0x44, 0, 0, 0, 0, 0, 0}, 176400},  // the first doubling past 96000
        {0xFFFFFFFF, 0x401E, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, 131071},
    };
    for (const auto& [rate, exponent, words, back] : cases) {
        WORD e = 0, m[4] = {1, 1, 1, 1};
        aiff_CreateRate(rate, &e, m);
        Bytes got;
        for (WORD w : m) got = got + be16(w);
        EXPECT_EQ(make_tuple(e, got, aiff_ConvertRate(e, m)), make_tuple(exponent, words, back))
            << rate;
    }
    for (DWORD rate = 0; rate <= 192000; rate += 7) {
        WORD e = 0, m[4] = {};
        aiff_CreateRate(rate, &e, m);
        ASSERT_EQ(aiff_ConvertRate(e, m), rate);
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
