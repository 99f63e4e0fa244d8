// riff_*: every failure of the platform layer comes back as the family's code.
#include <gtest/gtest.h>

#include "tests/support/fault_sweep.h"

using namespace qz::testing;

namespace {

// A WAVE file; the same without its odd chunk.
Bytes wave(bool with_odd = true) {
    return riff("WAVE", chunk("fmt ", pattern(16)) +
                            (with_odd ? chunk("odd ", pattern(5)) : Bytes{}) +
                            list("adtl", chunk("labl", pattern(3))) +
                            list("INFO", chunk("INAM", text("name") + Bytes{0})) +
                            chunk("data", pattern(9)));
}

}  // namespace

TEST(RiffFaults, ReadersWritersAndWalksReportTheFailingStep) {
    const Bytes w = wave();
    const DWORD body = DWORD(w.size() - 12);
    static WCHAR text_buffer[16];
    static const Bytes seven = pattern(7);
    const FaultCase cases[] = {
        {"ReadDataAlloc", w, 20,
         [](HANDLE h) {
             return read_alloc_checked(
                 [h](QZRIFFDATA* data) { return riff_ReadDataAlloc(h, data); }, pattern(5));
         },
         "R-R-M", unchanged},
        {"ReadANSIString", w, 12 + 24 + 14 + 24 + 12 + 8,
         [](HANDLE h) {
             DWORD count = 5;
             return riff_ReadANSIString(h, text_buffer, 16, &count);
         },
         "R-R-M", unchanged},
        {"FindChunkHeader", w, 12,
         [body](HANDLE h) {
             DWORD remaining = body;
             const HRESULT hr = riff_FindChunkHeader(h, cc("data"), nullptr, &remaining);
             EXPECT_TRUE(hr != QZE_FILE_READ || remaining == body);  // left as it was
             return hr;
         },
         "R-P--", unchanged},
        {"FindListChunkFromStart", w, 30,
         [](HANDLE h) { return riff_FindListChunkFromStart(h, cc("INFO"), nullptr); }, "R-P--",
         unchanged},
        {"WriteChunk", Bytes{}, 0,
         [](HANDLE h) {
             DWORD written = 1;
             const HRESULT hr = riff_WriteChunk(h, cc("odd "), seven.data(), 7, &written);
             EXPECT_TRUE(SUCCEEDED(hr) || written == 0);
             return hr;
         },
         "-W---", nothing_past(16)},
        {"WriteANSIString", Bytes{}, 0,
         [](HANDLE h) { return riff_WriteANSIString(h, QZTEXT("odd"), nullptr); }, "-W--M",
         nothing_past(4)},
        // Nothing written unless the write itself went through.
        {"SetRIFFSize", w, 40, [](HANDLE h) { return riff_SetRIFFSize(h, 1234); }, "-WW--",
         unchanged_unless_seek},
        {"UpdateRIFFSize", w, 50, [](HANDLE h) { return riff_UpdateRIFFSize(h, -4); }, "RWB--",
         unchanged_unless_seek},
        // Past the limit the cut-back is the only change, and only when it works.
        {"UpdateRIFFSize at the limit", w + pattern(6), 50,
         [](HANDLE h) {
             const HRESULT hr = riff_UpdateRIFFSize(h, 0xFFFFFFF0LL);
             return hr == QZE_SIZE_LIMIT ? S_FALSE : hr;  // the clean run "succeeds" here
         },
         "R-LW-",
         [w](const TempFile& f, const Bytes& original, FaultOp op) {
             const Bytes now = f.contents();
             EXPECT_TRUE(now == original || (op == FaultOp::Seek && now == w));
         }},
        // A failed cut leaves the moved file, with its lowered size, and the old
        // last bytes behind it.
        {"DeleteChunk", w + pattern(5000), 0,
         [](HANDLE h) { return riff_DeleteChunk(h, cc("odd "), nullptr, FALSE); }, "RWBW-",
         [](const TempFile& f, const Bytes& original, FaultOp op) {
             const Bytes moved =
                 wave(false) + pattern(5000) + Bytes(original.end() - 14, original.end());
             EXPECT_TRUE(op != FaultOp::Truncate || f.contents() == moved);
         }},
    };
    for (const FaultCase& c : cases) sweep(c);
}

TEST(RiffFaults, WriteFileIdLetsOnlyTheFormTypeDecide) {
    sweep_writes([](HANDLE h) { return riff_WriteFileID(h, cc("WAVE"), 20); },
                 {
                     // No id, so no size either; the form type still goes out.
                     {1, S_OK, text("WAVE")},
                     {2, S_OK, text("RIFFWAVE")},
                     {3, QZE_FILE_WRITE, text("RIFF") + le32(20)},
                 });
}
