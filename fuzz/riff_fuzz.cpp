// riff_* on arbitrary bytes: the searches, the list walks, the string and
// CD-track readers and the deletion, on a file holding the input.
#include <cstdint>
#include <string>

#include "base/byteorder.h"
#include "fuzz/scratch_file.h"
#include "qzkernel.h"

namespace {

// Reads every entry of the list the position is in, as text where it fits.
void read_entries(HANDLE h, DWORD budget) {
    DWORD count = 0, copy = budget;
    riff_GetNumListEntries(h, &count, &copy);
    for (DWORD i = 0; i < count && budget >= 8; ++i) {
        DWORD id = 0, size = 0;
        if (FAILED(riff_ReadChunkHeader(h, &id, &size))) return;
        budget -= 8;
        WCHAR text[64];
        DWORD bytes = size;
        if (FAILED(riff_ReadANSIString(h, text, 64, &bytes))) return;
        budget -= bytes < budget ? bytes : budget;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const HANDLE h = open_scratch("qz_riff_fuzz.bin", data, size);
    if (h == INVALID_HANDLE_VALUE) return 0;

    DWORD found = 0, remaining = 0, count = 0;
    riff_FindChunkHeaderInRIFF(h, qz::base::fourcc("data"), &found, &remaining);
    if (SUCCEEDED(riff_FindListChunkFromStart(h, qz::base::fourcc("INFO"), &found)))
        read_entries(h, found);
    riff_SeekDataStart(h);
    riff_GetNumListEntries(h, &count, nullptr);
    riff_SeekDataStart(h);
    remaining = size > 12 ? DWORD(size - 12) : 0;
    riff_SeekListEntry(h, 3, &remaining);
    riff_RestoreLocation(h, 0);
    QZRIFFCDDA record{};
    riff_ReadRIFFCDDA(h, &record);
    riff_DeleteChunk(h, qz::base::fourcc("INFO"), &found, TRUE);
    riff_DeleteChunk(h, qz::base::fourcc("fmt "), &found, FALSE);
    riff_GetFileSize(h, &found);
    CloseHandle(h);
    return 0;
}
