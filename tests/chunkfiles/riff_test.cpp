// riff_*: headers, bodies, strings, positions, the searches and CD tracks.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstring>

#include "platform/posix/fault_plan.h"
#include "tests/support/riff_files.h"

using namespace qz::testing;
using qz::testing::FaultOp;
using qz::testing::FaultPlan;

namespace {

constexpr DWORD kNoBudget = 0xDEADBEEF;  // a remaining count that must not change

// A WAVE file: "fmt " (16), "junk" (odd: 5), a LIST "INFO" holding INAM, "data" (6).
Bytes sample_wave() {
    return riff("WAVE", chunk("fmt ", pattern(16)) + chunk("junk", pattern(5)) +
                            list("INFO", chunk("INAM", text("tone") + Bytes{0})) +
                            chunk("data", pattern(6)));
}

}  // namespace

// ---- headers --------------------------------------------------------------------

TEST(RiffHeaders, ValidateChecksOnlyTheSignAndZero) {
    struct Case {
        LONG size;
        HRESULT expected;
    } cases[] = {
        {0, QZE_ZERO_LENGTH_CHUNK},
        {1, S_OK},
        {0x7FFFFFFF, S_OK},
        {LONG(0x80000000u), QZE_MISALIGNED_CHUNK},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(riff_ValidateChunkHeader(cc("abcd"), c.size), c.expected) << c.size;
        EXPECT_EQ(riff_ValidateChunkHeader(0, c.size), c.expected) << c.size;
    }
}

TEST(RiffHeaders, HeaderReadsStopAtTheBodyAndListsReportSizeMinusFour) {
    struct Case {
        Bytes bytes;
        bool as_list;
        HRESULT expected;
        DWORD id, size;
    } cases[] = {
        {chunk("fmt ", pattern(3)), false, S_OK, cc("fmt "), 3},
        {list("INFO", chunk("INAM", text("ab"))), true, S_OK, cc("INFO"), 10},
        {chunk("junk", pattern(4)), true, QZE_NO_LIST_HEADER, 0, 0},
        {header("LIST", 4) + text("IN"), true, QZE_FILE_READ, 0, 0},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        DWORD id = 0, size = 0;
        EXPECT_EQ(c.as_list ? riff_ReadListHeader(f.handle(), &id, &size)
                            : riff_ReadChunkHeader(f.handle(), &id, &size),
                  c.expected);
        if (c.expected != S_OK) continue;
        EXPECT_EQ(id, c.id);
        EXPECT_EQ(size, c.size);
        EXPECT_EQ(f.position(), c.as_list ? 12u : 8u);
    }
}

TEST(RiffHeaders, ReadFileIdReportsTheBudgetAfterTheFormType) {
    struct Case {
        Bytes bytes;
        HRESULT expected;
        DWORD remaining;
        DWORD position;  // after the call
    } cases[] = {
        {riff("WAVE", pattern(10)), S_OK, 10, 12},
        {riff("CDDA", {}), S_OK, 0, 12},
        {header("RIFF", 2) + text("WAVE"), S_OK, 0xFFFFFFFE, 12},  // a size below 4 wraps
        // The id is judged first: a file that is not RIFF is left after it.
        {header("RIFX", 4) + text("WAVE"), QZE_NO_RIFF_HEADER, 0, 4},
        {text("RIFX"), QZE_NO_RIFF_HEADER, 0, 4},
        {header("RIFF", 4) + text("WA"), QZE_FILE_READ, 0, 10},
        {text("RI"), QZE_FILE_READ, 0, 2},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        DWORD remaining = 0x55, form = 0x55;
        EXPECT_EQ(riff_ReadFileID(f.handle(), &remaining, &form), c.expected);
        EXPECT_EQ(f.position(), c.position);
        EXPECT_EQ(remaining, c.expected == S_OK ? c.remaining : 0x55u);
    }
    TempFile f(riff("WAVE", {}));
    EXPECT_EQ(riff_ReadFileID(f.handle(), nullptr, nullptr), S_OK);
}

// ---- writers --------------------------------------------------------------------------

TEST(RiffWrite, ChunksArePaddedToEvenAndReportTheirLengthOnDisk) {
    struct Case {
        size_t size;
        DWORD reported;
    } cases[] = {{0, 8}, {1, 10}, {2, 10}, {5, 14}, {6, 14}};
    for (const Case& c : cases) {
        TempFile f({});
        const Bytes body = pattern(c.size);
        DWORD written = 99;
        ASSERT_EQ(riff_WriteChunk(f.handle(), cc("abcd"), body.data(), DWORD(c.size), &written),
                  S_OK);
        EXPECT_EQ(written, c.reported) << c.size;
        EXPECT_EQ(f.contents(), chunk("abcd", body)) << c.size;
    }
}

TEST(RiffWrite, LengthsPast32BitsAreHeldAtTheTop) {
    // Four GiB of body from a mapping no page of which is touched, written
    // to the null device.
    const size_t span = size_t(1) << 32;
    void* body = mmap(nullptr, span, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(body, MAP_FAILED);
    const HANDLE h = CreateFileW(u"/dev/null", GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    const DWORD cases[][2] = {
        {0xFFFFFFF6, 0xFFFFFFFE}, {0xFFFFFFF7, 0xFFFFFFFF}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& c : cases) {
        DWORD written = 0;
        EXPECT_EQ(riff_WriteChunk(h, cc("data"), body, c[0], &written), S_OK) << c[0];
        EXPECT_EQ(written, c[1]) << c[0];
    }
    CloseHandle(h);
    munmap(body, span);
}

TEST(RiffWrite, HeadersAreLittleEndianFieldsInFileOrder) {
    TempFile f({});
    ASSERT_EQ(riff_WriteFileID(f.handle(), cc("WAVE"), 0x11223344), S_OK);
    ASSERT_EQ(riff_WriteListHeader(f.handle(), cc("INFO"), 0x0000ABCD), S_OK);
    ASSERT_EQ(riff_WriteChunkHeader(f.handle(), cc("data"), 7), S_OK);
    EXPECT_EQ(f.contents(), header("RIFF", 0x11223344) + text("WAVE") + header("LIST", 0xABCD) +
                                text("INFO") + header("data", 7));
    ASSERT_EQ(riff_SeekDataStart(f.handle()), S_OK);
    EXPECT_EQ(f.position(), 12u);
}

// ---- bodies ---------------------------------------------------------------------------

TEST(RiffRead, ReadDataSkipsThePadOfAnOddCount) {
    TempFile f(pattern(5) + Bytes{0} + pattern(4));
    Bytes got(5);
    ASSERT_EQ(riff_ReadData(f.handle(), got.data(), 5), S_OK);
    EXPECT_EQ(got, pattern(5));
    EXPECT_EQ(f.position(), 6u);
    ASSERT_EQ(riff_ReadData(f.handle(), got.data(), 4), S_OK);
    EXPECT_EQ(f.position(), 10u);
    EXPECT_EQ(riff_ReadData(f.handle(), got.data(), 1), QZE_FILE_READ);
    EXPECT_EQ(riff_ReadData(f.handle(), nullptr, 1), E_INVALIDARG);
}

TEST(RiffRead, BoundedReadTakesThePadDecisionFromTheBufferSize) {
    struct Case {
        DWORD chunk_size, buffer_size;
        size_t read;
        uint64_t position;  // from the body start
    } cases[] = {
        {5, 5, 5, 6},  // whole odd body and its pad
        {5, 8, 5, 5},  // even buffer: no pad skipped, one byte short of the next header
        {5, 3, 3, 6},  // odd buffer: rest (2) + 1
        {6, 3, 3, 7},  // odd buffer on an even body: one byte past it
        {0, 7, 0, 1},  // nothing to read, still one pad byte for the odd buffer
    };
    for (const Case& c : cases) {
        TempFile f(pattern(16));
        Bytes got(16, 0xEE);
        ASSERT_EQ(riff_ReadDataBounded(f.handle(), got.data(), c.chunk_size, c.buffer_size), S_OK);
        EXPECT_EQ(f.position(), c.position) << c.chunk_size << "/" << c.buffer_size;
        EXPECT_EQ(Bytes(got.begin(), got.begin() + c.read), Bytes(pattern(c.read)));
        EXPECT_EQ(got[c.read], 0xEE);
    }
    TempFile f(pattern(3));
    Bytes got(8);
    EXPECT_EQ(riff_ReadDataBounded(f.handle(), got.data(), 8, 8), QZE_FILE_READ);
}

TEST(RiffRead, ReadDataAllocHandsOutGlobalMemory) {
    TempFile f(pattern(7) + Bytes{0});
    QZRIFFDATA data{7, nullptr};
    ASSERT_EQ(riff_ReadDataAlloc(f.handle(), &data), S_OK);
    ASSERT_NE(data.pData, nullptr);
    EXPECT_EQ(0, std::memcmp(data.pData, pattern(7).data(), 7));
    EXPECT_EQ(f.position(), 8u);
    const HGLOBAL block = GlobalHandle(data.pData);
    GlobalUnlock(block);
    EXPECT_EQ(GlobalFree(block), nullptr);

    QZRIFFDATA none{0, reinterpret_cast<LPVOID>(1)};
    EXPECT_EQ(riff_ReadDataAlloc(f.handle(), &none), S_OK);
    EXPECT_EQ(none.pData, nullptr);

    QZRIFFDATA too_long{9, nullptr};
    f.seek(0);
    EXPECT_EQ(riff_ReadDataAlloc(f.handle(), &too_long), QZE_FILE_READ);
    EXPECT_EQ(too_long.pData, nullptr);
    EXPECT_EQ(riff_ReadDataAlloc(f.handle(), nullptr), E_INVALIDARG);
}

// ---- strings --------------------------------------------------------------------------

TEST(RiffStrings, ReadAddsOneToTheCountWhateverItsParity) {
    struct Case {
        Bytes body;  // as stored, terminator included
        DWORD count;
        DWORD buffer_length;
        std::u16string expected;
        uint64_t position;
    } cases[] = {
        {text("tone") + Bytes{0, 0}, 5, 64, u"tone", 6},  // odd count: body and pad
        {text("abc") + Bytes{0}, 4, 64, u"abc", 4},       // even count: no pad
        {text("abcdefg") + Bytes{0}, 8, 4, u"abc", 8},    // cut to the buffer, whole body passed
        {text("\xE9t\xE9\x80") + Bytes{0, 0}, 5, 64, u"\u00E9t\u00E9\u20AC", 6},  // Windows-1252
        {{}, 0, 8, u"", 0},
        {text("xy"), 2, 2, u"x", 2},  // the last byte that fits is the terminator
    };
    for (const Case& c : cases) {
        TempFile f(c.body + text("NEXT"));
        std::u16string buffer(c.buffer_length, u'#');
        DWORD count = c.count;
        ASSERT_EQ(riff_ReadANSIString(f.handle(), buffer.data(), c.buffer_length, &count), S_OK);
        EXPECT_EQ(count, c.count + 1);
        EXPECT_EQ(std::u16string(buffer.c_str()), c.expected);
        EXPECT_EQ(buffer[c.buffer_length - 1], u'\0');
        EXPECT_EQ(f.position(), c.position);
    }
}

TEST(RiffStrings, ReadRefusesNullArgumentsAndShortBodies) {
    TempFile f(text("ab"));
    WCHAR buffer[8];
    DWORD count = 5;
    EXPECT_EQ(riff_ReadANSIString(f.handle(), nullptr, 8, &count), E_INVALIDARG);
    EXPECT_EQ(riff_ReadANSIString(f.handle(), buffer, 8, nullptr), E_INVALIDARG);
    EXPECT_EQ(riff_ReadANSIString(f.handle(), buffer, 8, &count), QZE_FILE_READ);
    EXPECT_EQ(count, 5u);
    count = 3;
    EXPECT_EQ(riff_ReadANSIString(f.handle(), buffer, 0, &count), S_OK);  // nothing to fill
    EXPECT_EQ(count, 4u);
}

TEST(RiffStrings, WriteTerminatesAndPadsInTheAnsiCodePage) {
    struct Case {
        const WCHAR* text;
        Bytes expected;
    } cases[] = {
        {u"abc", text("abc") + Bytes{0}},
        {u"abcd", text("abcd") + Bytes{0, 0}},
        {nullptr, Bytes{0, 0}},
        {u"\u00E9\u20AC", Bytes{0xE9, 0x80, 0, 0}},
        {u"\u4E2D", text("?") + Bytes{0}},  // not in the code page
    };
    for (const Case& c : cases) {
        TempFile f({});
        DWORD written = 0;
        ASSERT_EQ(riff_WriteANSIString(f.handle(), c.text, &written), S_OK);
        EXPECT_EQ(f.contents(), c.expected);
        EXPECT_EQ(written, c.expected.size());
    }
}

// ---- positions and the RIFF size ------------------------------------------------------

TEST(RiffPosition, SkipReturnsTheEvenAmount) {
    struct Case {
        DWORD size, skipped;
    } cases[] = {{0, 0}, {7, 8}, {0xFFFFFFFE, 0xFFFFFFFE}};
    for (const Case& c : cases) {
        TempFile f({});
        EXPECT_EQ(riff_SkipChunk(f.handle(), c.size), c.skipped);
        EXPECT_EQ(f.position(), c.skipped);
    }
    TempFile f({});
    riff_SkipChunk(f.handle(), 0xFFFFFFFF);  // one pad byte past 4 GiB - 1: forward, not back
    EXPECT_EQ(f.position(), 0x100000000u);
}

TEST(RiffSize, GetReportsTheFieldPlusFourAndSetKeepsThePosition) {
    TempFile f(riff("WAVE", pattern(20)));
    f.seek(17);
    ASSERT_EQ(riff_SetRIFFSize(f.handle(), 0xA1B2C3D4), S_OK);
    EXPECT_EQ(f.position(), 17u);
    EXPECT_EQ(f.contents(), header("RIFF", 0xA1B2C3D4) + text("WAVE") + pattern(20));
    DWORD size = 0;
    ASSERT_EQ(riff_GetFileSize(f.handle(), &size), S_OK);
    EXPECT_EQ(size, 0xA1B2C3D8u);
    EXPECT_EQ(f.position(), 12u);
    TempFile other(header("RIFX", 4) + text("WAVE"));
    EXPECT_EQ(riff_GetFileSize(other.handle(), &size), QZE_NO_RIFF_HEADER);
}

TEST(RiffSize, UpdateAddsTheSignedDelta) {
    struct Case {
        uint32_t size;
        LONGLONG delta;
        HRESULT expected;
        uint32_t stored;
    } cases[] = {
        {100, 20, S_OK, 120},
        {100, -120, S_OK, uint32_t(-20)},  // not caught: the low 32 bits are written
        {100, 0xFFFFFFF7LL - 100, S_OK, 0xFFFFFFF7},
        {100, 0xFFFFFFF8LL - 100, QZE_SIZE_LIMIT, 100},
        {100, 0x7FFFFFFFFFFFFFFFLL, QZE_SIZE_LIMIT, 100},  // no overflow in the sum
    };
    for (const Case& c : cases) {
        TempFile f(header("RIFF", c.size) + text("WAVE") + pattern(6));
        f.seek(9);
        EXPECT_EQ(riff_UpdateRIFFSize(f.handle(), c.delta), c.expected) << c.size << c.delta;
        EXPECT_EQ(f.position(), 9u);
        const Bytes bytes = f.contents();
        ASSERT_GE(bytes.size(), 8u);
        EXPECT_EQ(Bytes(bytes.begin() + 4, bytes.begin() + 8), le32(c.stored));
    }
}

TEST(RiffSize, UpdatePastTheLimitCutsTheFileBackToItsOldExtent) {
    // The RIFF body is 20 bytes (size 24); a writer appended 10 more and then
    // tried to count them into a size that would reach 4 GiB.
    TempFile f(riff("WAVE", pattern(20)) + pattern(10, 7));
    f.seek(38);
    EXPECT_EQ(riff_UpdateRIFFSize(f.handle(), 0xFFFFFFF8LL), QZE_SIZE_LIMIT);
    EXPECT_EQ(f.contents(), riff("WAVE", pattern(20)));
    EXPECT_EQ(f.position(), 38u);
    TempFile cut(text("RIF"));
    EXPECT_EQ(riff_UpdateRIFFSize(cut.handle(), 4), QZE_FILE_READ);
    EXPECT_EQ(cut.position(), 0u);
}

// ---- chunk search ---------------------------------------------------------------------

TEST(RiffFind, BudgetBelowEightIsNotFoundWithoutReading) {
    TempFile f(chunk("data", pattern(4)));
    for (DWORD budget : {0u, 4u, 7u}) {
        FaultPlan plan;
        DWORD remaining = budget, size = 99;
        EXPECT_EQ(riff_FindChunkHeader(f.handle(), cc("data"), &size, &remaining), QZE_NOT_FOUND);
        EXPECT_EQ(remaining, budget);
        EXPECT_EQ(size, 99u);
        EXPECT_EQ(plan.calls(FaultOp::Read), 0u);
        EXPECT_EQ(f.position(), 0u);
    }
}

TEST(RiffFind, WalksWithinTheBudgetAndSkipsPads) {
    const Bytes odd =
        chunk("a   ", pattern(1)) + chunk("b   ", pattern(3)) + chunk("c   ", pattern(2));
    const Bytes big = chunk("big ", pattern(40)) + chunk("data", pattern(2));
    const Bytes wave = sample_wave();
    const DWORD wave_body = DWORD(wave.size() - 12);
    struct Case {
        const char* name;
        const Bytes& bytes;
        uint64_t start;
        const char* wanted;
        DWORD budget;  // kNoBudget: none given
        HRESULT expected;
        DWORD size, remaining;
        uint64_t position;
    } cases[] = {
        {"found keeps its body", wave, 12, "data", wave_body, S_OK, 6, 6, wave.size() - 6},
        {"missing, no budget", wave, 12, "cue ", kNoBudget, QZE_FILE_READ, 0, 0, wave.size()},
        {"missing, budget", wave, 12, "cue ", wave_body, QZE_NOT_FOUND, 0, 0, wave.size()},
        {"odd bodies and pads", odd, 0, "c   ", 32, S_OK, 2, 2, 30},
        {"body past the budget clamps", big, 0, "data", 20, QZE_NOT_FOUND, 0, 0, 48},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        f.seek(c.start);
        DWORD size = 0, remaining = c.budget;
        EXPECT_EQ(riff_FindChunkHeader(f.handle(), cc(c.wanted), &size,
                                       c.budget == kNoBudget ? nullptr : &remaining),
                  c.expected)
            << c.name;
        EXPECT_EQ(size, c.expected == S_OK ? c.size : 0u) << c.name;
        EXPECT_EQ(remaining, c.budget == kNoBudget ? kNoBudget : c.remaining) << c.name;
        EXPECT_EQ(f.position(), c.position) << c.name;
    }
}

TEST(RiffFind, HugeSizesEndAtTheEndOfTheFile) {
    // 0xFFFFFFFF taken as a signed distance would step back and read the
    // same header again; the walk must move forward and end.
    TempFile f(header("huge", 0xFFFFFFFF) + pattern(8) + header("ohno", 0xFFFFFFF0));
    EXPECT_EQ(riff_FindChunkHeader(f.handle(), cc("data"), nullptr, nullptr), QZE_FILE_READ);
    EXPECT_GE(f.position(), 0x100000000u);
    f.seek(0);
    DWORD remaining = 1000;
    EXPECT_EQ(riff_FindChunkHeader(f.handle(), cc("data"), nullptr, &remaining), QZE_NOT_FOUND);
    EXPECT_EQ(remaining, 0u);
}

TEST(RiffFind, InRiffRewindsAndUsesTheHeaderBudget) {
    // A chunk after the RIFF body is not part of the file's top level.
    TempFile f(sample_wave() + chunk("tail", pattern(2)));
    f.seek(30);
    DWORD size = 0, remaining = 0;
    ASSERT_EQ(riff_FindChunkHeaderInRIFF(f.handle(), cc("junk"), &size, &remaining), S_OK);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(f.position(), 12u + 24 + 8);
    EXPECT_EQ(remaining, sample_wave().size() - 12 - 24 - 8);
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(f.handle(), cc("tail"), &size, &remaining), QZE_NOT_FOUND);
    EXPECT_EQ(remaining, 0u);
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(f.handle(), cc("data"), nullptr, nullptr), S_OK);
    TempFile other(header("RIFX", 4) + text("WAVE"));
    EXPECT_EQ(riff_FindChunkHeaderInRIFF(other.handle(), cc("data"), &size, &remaining),
              QZE_NO_RIFF_HEADER);
}

// ---- list search ---------------------------------------------------------------------

TEST(RiffFindList, BudgetsPadsAndShortListsEndWhereTheBytesSay) {
    struct Case {
        const char* name;
        Bytes bytes;
        DWORD budget;
        HRESULT expected;
        DWORD remaining;
        uint64_t position;
    } cases[] = {
        {"budget holds the header, not the type", list("INFO", {}), 11, QZE_NOT_FOUND, 3, 8},
        {"budget holds the type", list("INFO", {}), 12, S_OK, 0, 12},
        {"odd list skipped with its pad",
         list("odd ", chunk("a   ", pattern(1)) + pattern(1)) + list("INFO", chunk("b   ", {})), 44,
         S_OK, 8, 36},
        // A damaged LIST of size 2 ends 10 bytes after its start, where the next one begins.
        {"list smaller than its type", header("LIST", 2) + text("xy") + list("INFO", {}), 22, S_OK,
         0, 22},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        DWORD remaining = c.budget, size = 7;
        EXPECT_EQ(riff_FindListChunk(f.handle(), cc("INFO"), &size, &remaining), c.expected)
            << c.name;
        EXPECT_EQ(remaining, c.remaining) << c.name;
        EXPECT_EQ(f.position(), c.position) << c.name;
    }
}

// ---- list entries ----------------------------------------------------------------------

TEST(RiffListEntries, CountRestoresThePositionAndConsumesTheBudget) {
    // Entries of 12, 8 and 14 bytes, then "next" (10) to the end of the file.
    TempFile f(chunk("a   ", pattern(3)) + chunk("b   ", {}) + chunk("c   ", pattern(6)) +
               chunk("next", pattern(2)));
    struct Case {
        DWORD budget;
        HRESULT expected;
        DWORD count, remaining;
    } cases[] = {
        {34, S_OK, 3, 0},
        {41, S_OK, 3, 7},                          // a tail too short for a header stays
        {kNoBudget, QZE_FILE_READ, 4, kNoBudget},  // runs to the end of the file
        // Ending inside a body wraps instead of clamping, so the count runs on;
        // the failed header read counts too.
        {31, QZE_FILE_READ, 4, DWORD(31 - 44 - 8)},
    };
    for (const Case& c : cases) {
        DWORD count = 0, remaining = c.budget;
        EXPECT_EQ(riff_GetNumListEntries(f.handle(), &count,
                                         c.budget == kNoBudget ? nullptr : &remaining),
                  c.expected)
            << c.budget;
        EXPECT_EQ(count, c.count) << c.budget;
        EXPECT_EQ(remaining, c.remaining) << c.budget;
        EXPECT_EQ(f.position(), 0u);
    }
    EXPECT_EQ(riff_GetNumListEntries(f.handle(), nullptr, nullptr), E_INVALIDARG);
}

TEST(RiffListEntries, SeekStopsAtTheHeaderOfTheIndexedEntry) {
    const Bytes entries = chunk("a   ", pattern(3)) + chunk("b   ", {}) + chunk("c   ", pattern(6));
    TempFile f(entries + chunk("next", {}));
    struct Case {
        DWORD index;
        DWORD budget;
        HRESULT expected;
        uint64_t position;
    } cases[] = {
        {0, 0, S_OK, 0},  // index 0 never moves, whatever the budget
        {2, 34, S_OK, 20},
        {3, 34, QZE_NOT_FOUND, 34},  // the end of the last entry needs 8 bytes
                                     // to spare
        {3, 42, S_OK, 34},
        {5, 42, QZE_NOT_FOUND, 42},
        {5, kNoBudget, QZE_FILE_READ, 42},
    };
    for (const Case& c : cases) {
        f.seek(0);
        DWORD remaining = c.budget;
        EXPECT_EQ(
            riff_SeekListEntry(f.handle(), c.index, c.budget == kNoBudget ? nullptr : &remaining),
            c.expected)
            << c.index << "/" << c.budget;
        EXPECT_EQ(f.position(), c.position) << c.index << "/" << c.budget;
    }
}

// ---- CD-audio track files -------------------------------------------------------------

namespace {

// Track 5 of a disc with serial 0x1234ABCD, starting at sector 33000 (7:20:00)
// and lasting 15000 sectors (3:20:00).
Bytes cdda_record() {
    return Bytes{1, 0, 5, 0} + le32(0x1234ABCD) + le32(33000) + le32(15000) + Bytes{0, 20, 7, 0} +
           Bytes{0, 20, 3, 0};
}

}  // namespace

TEST(RiffCda, ReadsTheTrackRecord) {
    TempFile f(riff("CDDA", chunk("fmt ", cdda_record())));
    QZRIFFCDDA record{};
    ASSERT_EQ(riff_ReadRIFFCDDA(f.handle(), &record), S_OK);
    const Bytes stored = cdda_record();
    EXPECT_EQ(0, std::memcmp(&record, stored.data(), stored.size()));
}

TEST(RiffCda, RefusesOtherFormsAndOtherRecordSizes) {
    struct Case {
        Bytes bytes;
        HRESULT expected;
    } cases[] = {
        {riff("WAVE", chunk("fmt ", cdda_record())), QZE_CORRUPT_OR_UNKNOWN},
        {riff("CDDA", chunk("fmt ", pattern(16))), QZE_UNSUPPORTED_VERSION},
        {riff("CDDA", chunk("data", cdda_record())), QZE_NOT_FOUND},
        {prefix(riff("CDDA", chunk("fmt ", cdda_record())), 30), QZE_FILE_READ},
        {text("RIFX"), QZE_NO_RIFF_HEADER},
    };
    for (const Case& c : cases) {
        TempFile f(c.bytes);
        QZRIFFCDDA record{};
        EXPECT_EQ(riff_ReadRIFFCDDA(f.handle(), &record), c.expected);
    }
}

TEST(RiffCda, ReadCdaFileFillsEveryOutputEvenAfterAFailure) {
    TempDir dir;
    const std::string track = dir.file("Track05.cda");
    write_file(track, riff("CDDA", chunk("fmt ", cdda_record())));
    DWORD number = 0, start = 0, frames = 0, length = 0, serial = 0;
    ASSERT_EQ(riff_ReadCDAFile(wide(track).c_str(), &number, &start, &frames, &length, &serial),
              S_OK);
    EXPECT_EQ(number, 5u);
    EXPECT_EQ(start, 33000u);
    EXPECT_EQ(frames, (7u * 60 + 20) * 75);
    EXPECT_EQ(length, 15000u);
    EXPECT_EQ(serial, 0x1234ABCDu);

    const std::string wave = dir.file("not-a-track.wav");
    write_file(wave, riff("WAVE", chunk("fmt ", cdda_record())));
    for (const std::string& path : {dir.file("missing.cda"), wave}) {
        number = start = frames = length = serial = 0xAAAA;
        EXPECT_NE(riff_ReadCDAFile(wide(path).c_str(), &number, &start, &frames, &length, &serial),
                  S_OK);
        EXPECT_EQ(number | start | frames | length | serial, 0u) << path;
    }
    EXPECT_EQ(riff_ReadCDAFile(nullptr, &number, nullptr, nullptr, nullptr, nullptr),
              QZE_FILE_OPEN);
}
