// riff_*: every failure of the platform layer comes back as the family's code.
//
// Each case runs once without faults to count the reads, writes, seeks,
// truncations and allocations it makes; then it runs again on a fresh copy of
// its file once for each of those calls, with just that call failing, and the
// result must be the code the family gives for that kind of failure.
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <set>

#include "platform/posix/fault_plan.h"
#include "support/riff_files.h"

using namespace riff_test;
using qz::testing::FaultOp;
using qz::testing::FaultPlan;

namespace {

using Codes = std::set<HRESULT>;

struct FaultCase {
    const char* name;
    Bytes file;
    uint64_t start;
    std::function<HRESULT(HANDLE)> run;
    Codes on_read, on_write, on_seek, on_truncate, on_alloc;
    // Checks the file after a failed run (the fault kind is given).
    std::function<void(const TempFile&, const Bytes& original, FaultOp)> check;
};

const Codes kRead{QZE_FILE_READ};
const Codes kWrite{QZE_FILE_WRITE};
const Codes kMemory{E_OUTOFMEMORY};
const Codes kNone{};

void unchanged(const TempFile& f, const Bytes& original, FaultOp) {
    EXPECT_EQ(f.contents(), original);
}

Bytes wave() {
    return riff("WAVE", chunk("fmt ", pattern(16)) + chunk("odd ", pattern(5)) +
                            list("adtl", chunk("labl", pattern(3))) +
                            list("INFO", chunk("INAM", text("name") + Bytes{0})) +
                            chunk("data", pattern(9)));
}

constexpr FaultOp kOps[] = {FaultOp::Read, FaultOp::Write, FaultOp::Seek, FaultOp::Truncate,
                            FaultOp::Alloc};

const Codes& expected_for(const FaultCase& c, FaultOp op) {
    switch (op) {
        case FaultOp::Read:
            return c.on_read;
        case FaultOp::Write:
            return c.on_write;
        case FaultOp::Seek:
            return c.on_seek;
        case FaultOp::Truncate:
            return c.on_truncate;
        default:
            return c.on_alloc;
    }
}

const char* op_name(FaultOp op) {
    static const char* names[] = {"read", "write", "seek", "truncate", "alloc"};
    return names[int(op)];
}

void sweep(const FaultCase& c) {
    unsigned counted[int(FaultOp::kCount)] = {};
    {
        TempFile f(c.file);
        f.seek(c.start);
        FaultPlan count;
        ASSERT_TRUE(SUCCEEDED(c.run(f.handle()))) << c.name << ": the clean run must succeed";
        for (FaultOp op : kOps) counted[int(op)] = count.calls(op);
    }
    for (FaultOp op : kOps) {
        if (counted[int(op)] && expected_for(c, op).empty())
            ADD_FAILURE() << c.name << " makes " << op_name(op)
                          << " calls the case does not expect";
        for (unsigned n = 1; n <= counted[int(op)]; ++n) {
            TempFile f(c.file);
            f.seek(c.start);
            HRESULT hr;
            {
                FaultPlan plan;
                plan.fail(op, n);
                hr = c.run(f.handle());
                EXPECT_EQ(plan.failures(op), 1u) << c.name << " " << op_name(op) << " #" << n;
            }
            EXPECT_TRUE(expected_for(c, op).count(hr))
                << c.name << ": " << op_name(op) << " #" << n << " failing gave 0x" << std::hex
                << uint32_t(hr);
            if (c.check) c.check(f, c.file, op);
        }
    }
}

}  // namespace

TEST(RiffFaults, ReadersReportReadErrors) {
    const Bytes w = wave();
    DWORD a = 0, b = 0;
    static Bytes sink(64);
    static WCHAR text_buffer[16];
    const FaultCase cases[] = {
        {"ReadChunkHeader", w, 12, [&](HANDLE h) { return riff_ReadChunkHeader(h, &a, &b); }, kRead,
         kNone, kNone, kNone, kNone, unchanged},
        {"ReadListHeader", w, 12 + 24 + 14,
         [&](HANDLE h) { return riff_ReadListHeader(h, &a, &b); }, kRead, kNone, kNone, kNone,
         kNone, unchanged},
        {"ReadFileID", w, 0, [&](HANDLE h) { return riff_ReadFileID(h, &a, &b); }, kRead, kNone,
         kNone, kNone, kNone, unchanged},
        {"ReadData", w, 12 + 24 + 8, [&](HANDLE h) { return riff_ReadData(h, sink.data(), 5); },
         kRead, kNone, kRead, kNone, kNone, unchanged},
        {"ReadDataBounded", w, 20,
         [&](HANDLE h) { return riff_ReadDataBounded(h, sink.data(), 16, 5); }, kRead, kNone, kRead,
         kNone, kNone, unchanged},
        {"ReadDataAlloc", w, 20,
         [&](HANDLE h) {
             QZRIFFDATA data{5, nullptr};
             const HRESULT hr = riff_ReadDataAlloc(h, &data);
             if (FAILED(hr)) {
                 EXPECT_EQ(data.pData, nullptr);
             }
             if (data.pData) {
                 GlobalUnlock(GlobalHandle(data.pData));
                 GlobalFree(GlobalHandle(data.pData));
             }
             return hr;
         },
         kRead, kNone, kRead, kNone, kMemory, unchanged},
        {"ReadANSIString", w, 12 + 24 + 14 + 24 + 12 + 8,
         [&](HANDLE h) {
             DWORD count = 5;
             return riff_ReadANSIString(h, text_buffer, 16, &count);
         },
         kRead, kNone, kRead, kNone, kMemory, unchanged},
        {"GetFileSize", w, 30, [&](HANDLE h) { return riff_GetFileSize(h, &a); }, kRead, kNone,
         kRead, kNone, kNone, unchanged},
        {"ReadRIFFCDDA", riff("CDDA", chunk("odd ", pattern(3)) + chunk("fmt ", pattern(24))), 0,
         [&](HANDLE h) {
             QZRIFFCDDA record{};
             return riff_ReadRIFFCDDA(h, &record);
         },
         kRead, kNone, kRead, kNone, kNone, unchanged},
    };
    for (const FaultCase& c : cases) sweep(c);
}

TEST(RiffFaults, WalksReportReadErrors) {
    const Bytes w = wave();
    const DWORD body = DWORD(w.size() - 12);
    DWORD a = 0;
    const FaultCase cases[] = {
        {"FindChunkHeader", w, 12,
         [&](HANDLE h) {
             DWORD remaining = body;
             const HRESULT hr = riff_FindChunkHeader(h, riff_test::cc("data"), &a, &remaining);
             if (hr == QZE_FILE_READ) {
                 EXPECT_EQ(remaining, body);
             }
             return hr;
         },
         kRead, kNone, kRead, kNone, kNone, unchanged},
        {"FindChunkHeaderInRIFF", w, 30,
         [&](HANDLE h) { return riff_FindChunkHeaderInRIFF(h, riff_test::cc("data"), &a, &a); },
         kRead, kNone, kRead, kNone, kNone, unchanged},
        {"FindListChunk", w, 12,
         [&](HANDLE h) {
             DWORD remaining = body;
             return riff_FindListChunk(h, riff_test::cc("INFO"), &a, &remaining);
         },
         kRead, kNone, kRead, kNone, kNone, unchanged},
        {"FindListChunkFromStart", w, 30,
         [&](HANDLE h) { return riff_FindListChunkFromStart(h, riff_test::cc("INFO"), &a); }, kRead,
         kNone, kRead, kNone, kNone, unchanged},
        {"GetNumListEntries", w, 12,
         [&](HANDLE h) {
             DWORD remaining = body;
             return riff_GetNumListEntries(h, &a, &remaining);
         },
         kRead, kNone, kRead, kNone, kNone, unchanged},
        {"SeekListEntry", w, 12,
         [&](HANDLE h) {
             DWORD remaining = body;
             return riff_SeekListEntry(h, 4, &remaining);
         },
         kRead, kNone, kRead, kNone, kNone, unchanged},
    };
    for (const FaultCase& c : cases) sweep(c);
}

TEST(RiffFaults, WritersReportWriteErrors) {
    static const Bytes body = pattern(7);
    const auto nothing_past = [](size_t length) {
        return [length](const TempFile& f, const Bytes&, FaultOp) { EXPECT_LE(f.size(), length); };
    };
    const FaultCase cases[] = {
        {"WriteChunkHeader",
         {},
         0,
         [](HANDLE h) { return riff_WriteChunkHeader(h, riff_test::cc("data"), 4); },
         kNone,
         kWrite,
         kNone,
         kNone,
         kNone,
         nothing_past(8)},
        {"WriteChunk",
         {},
         0,
         [](HANDLE h) {
             DWORD written = 1;
             const HRESULT hr = riff_WriteChunk(h, riff_test::cc("odd "), body.data(), 7, &written);
             if (FAILED(hr)) {
                 EXPECT_EQ(written, 0u);
             }
             return hr;
         },
         kNone,
         kWrite,
         kNone,
         kNone,
         kNone,
         nothing_past(16)},
        {"WriteListHeader",
         {},
         0,
         [](HANDLE h) { return riff_WriteListHeader(h, riff_test::cc("INFO"), 4); },
         kNone,
         kWrite,
         kNone,
         kNone,
         kNone,
         nothing_past(12)},
        {"WriteANSIString",
         {},
         0,
         [](HANDLE h) { return riff_WriteANSIString(h, u"odd", nullptr); },
         kNone,
         kWrite,
         kNone,
         kNone,
         kMemory,
         nothing_past(4)},
        {"SetRIFFSize", wave(), 40, [](HANDLE h) { return riff_SetRIFFSize(h, 1234); }, kNone,
         kWrite, kWrite, kNone, kNone,
         [](const TempFile& f, const Bytes& original, FaultOp op) {
             // Nothing written unless the write itself went through.
             if (op != FaultOp::Seek) {
                 EXPECT_EQ(f.contents(), original);
             }
         }},
    };
    for (const FaultCase& c : cases) sweep(c);
}

TEST(RiffFaults, WriteFileIdLetsOnlyTheFormTypeDecide) {
    struct Case {
        unsigned failing_write;
        HRESULT expected;
        Bytes contents;
    } cases[] = {
        {1, S_OK, text("WAVE")},  // no id, so no size either; the form type still goes out
        {2, S_OK, text("RIFF") + text("WAVE")},
        {3, QZE_FILE_WRITE, text("RIFF") + le32(20)},
    };
    for (const Case& c : cases) {
        TempFile f({});
        FaultPlan plan;
        plan.fail(FaultOp::Write, c.failing_write);
        EXPECT_EQ(riff_WriteFileID(f.handle(), riff_test::cc("WAVE"), 20), c.expected);
        EXPECT_EQ(f.contents(), c.contents) << c.failing_write;
    }
}

TEST(RiffFaults, SizeUpdatesLeaveTheFileAsItWas) {
    const Bytes w = wave();
    const Bytes appended = w + pattern(6);
    const FaultCase cases[] = {
        {"UpdateRIFFSize", w, 50, [](HANDLE h) { return riff_UpdateRIFFSize(h, -4); }, kRead,
         kWrite, Codes{QZE_FILE_READ, QZE_FILE_WRITE}, kNone, kNone,
         [](const TempFile& f, const Bytes& original, FaultOp op) {
             if (op != FaultOp::Seek) {
                 EXPECT_EQ(f.contents(), original);
             }
         }},
        // Past the limit: the cut-back is the only change, and only when it works.
        {"UpdateRIFFSize at the limit", appended, 50,
         [](HANDLE h) {
             const HRESULT hr = riff_UpdateRIFFSize(h, 0xFFFFFFF0LL);
             return hr == QZE_SIZE_LIMIT ? S_FALSE : hr;  // the clean run "succeeds" here
         },
         kRead, kNone, Codes{QZE_FILE_READ, QZE_FILE_WRITE, S_FALSE}, kWrite, kNone,
         [w](const TempFile& f, const Bytes& original, FaultOp op) {
             const Bytes now = f.contents();
             EXPECT_TRUE(now == original || (op == FaultOp::Seek && now == w));
         }},
    };
    for (const FaultCase& c : cases) sweep(c);
}

TEST(RiffFaults, DeleteReportsTheFailingStep) {
    const Bytes w = wave();
    const FaultCase cases[] = {
        {"DeleteChunk", w + pattern(5000), 0,
         [](HANDLE h) { return riff_DeleteChunk(h, riff_test::cc("odd "), nullptr, FALSE); }, kRead,
         kWrite, Codes{QZE_FILE_READ, QZE_FILE_WRITE}, kWrite, kNone, nullptr},
        {"DeleteChunk of a list", w, 0,
         [](HANDLE h) { return riff_DeleteChunk(h, riff_test::cc("adtl"), nullptr, TRUE); }, kRead,
         kWrite, Codes{QZE_FILE_READ, QZE_FILE_WRITE}, kWrite, kNone, nullptr},
    };
    for (const FaultCase& c : cases) sweep(c);
}
