// iff_* and aiff_* on arbitrary bytes: the header readers, the searches with
// the budgets the headers give, the AIFF classification and format, the
// markers and the deletion, on a file holding the input; and the 80-bit rate
// conversion on the input's first ten bytes.
#include <cstdint>
#include <string>

#include "base/byteorder.h"
#include "fuzz/scratch_file.h"
#include "qzkernel.h"

namespace {

// Any rate that converts to at most 192000 encodes and converts back to itself.
void check_rate(const uint8_t* data, size_t size) {
    if (size < 10) return;
    WORD mantissa[4];
    for (int i = 0; i < 4; ++i) mantissa[i] = qz::base::load_be16(data + 2 + 2 * i);
    const DWORD rate = aiff_ConvertRate(qz::base::load_be16(data), mantissa);
    WORD exponent = 0;
    aiff_CreateRate(rate, &exponent, mantissa);
    if (rate <= 192000 && aiff_ConvertRate(exponent, mantissa) != rate) __builtin_trap();
}

// The top level with the FORM size as the budget: every header, and every
// chunk found again by the budgeted search. Returns the last id seen.
DWORD walk(HANDLE h, DWORD budget) {
    DWORD last = 0;
    SetFilePointer(h, 12, nullptr, FILE_BEGIN);
    for (int i = 0; i < 64 && budget >= 8; ++i) {
        QZIFFCHUNK header{};
        if (FAILED(iff_ReadChunkHdr(h, &header))) break;
        last = header.ckID;
        budget -= 8;
        const DWORD skipped = iff_SkipChunk(h, header.ckSize);
        budget = skipped < budget ? budget - skipped : 0;
    }
    DWORD remaining = budget, size = 0;
    SetFilePointer(h, 12, nullptr, FILE_BEGIN);
    if (last) iff_FindChunkHeader(h, last, &size, &remaining);
    return last;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    check_rate(data, size);
    const HANDLE h = open_scratch("qz_iff_fuzz.bin", data, size);
    if (h == INVALID_HANDLE_VALUE) return 0;

    QZIFFCHUNK header{};
    DWORD form = 0, found = 0, value = 0;
    WORD word = 0;
    iff_ReadFormType(h, &header, &form);
    iff_ReadDWORD(h, &value);
    iff_ReadWORD(h, &word);
    DWORD form_size = 0;
    BOOL compressed = FALSE, little = FALSE;
    iff_IsAIFFFileEx(h, &form_size, &compressed, &little);
    WAVEFORMATEX wfx{};
    DWORD frames = 0, at = 0;
    iff_GetAIFFWfx(h, &wfx, &frames, &at);
    iff_FindChunkFromStart(h, qz::base::fourcc_be("SSND"), &found);
    iff_SeekChunkHeader(h, qz::base::fourcc_be("COMM"), &found);
    QZAIFFMARKER marker{};
    iff_FindMarker(h, 1, &marker);
    iff_FindMarker(h, word, &marker);
    const DWORD last = walk(h, form_size);
    if (last) iff_DeleteChunk(h, last, &found);
    iff_IsAIFFFile(h, &form_size);
    iff_GetAIFFWfx(h, nullptr, &frames, nullptr);
    CloseHandle(h);
    return 0;
}
