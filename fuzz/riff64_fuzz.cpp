// riff64_* on arbitrary bytes: the file header, the searches, the list
// walks, every body reader, the size update and the deletion, on a file
// holding the input.
#include <cstdint>
#include <string>

#include "fuzz/scratch_file.h"
#include "qzkernel.h"

namespace {

GUID wave64(uint32_t name) {
    return {name, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
}
constexpr GUID kList = QZ_RIFF64_LIST_LABEL;

// Walks `budget` bytes of chunks from the position, reading every body
// and descending into lists.
void walk(HANDLE h, LONGLONG budget, int depth) {
    DWORD count = 0;
    LONGLONG copy = budget;
    riff64_GetNumListEntries(h, &count, &copy);
    while (budget >= 24) {
        ULONGLONG at = 0, size = 0;
        GUID label{};
        riff64_SaveLocation(h, &at);
        if (FAILED(riff64_ReadChunkHeader(h, &label, &size))) return;
        riff64_ValidateChunkHeader(label, size + 24);
        BYTE body[64];
        if (label == kList && depth < 8) {
            riff64_RestoreLocation(h, at);
            GUID type{};
            ULONGLONG inner = 0;
            if (SUCCEEDED(riff64_ReadListHeader(h, &type, &inner)))
                walk(h, LONGLONG(inner > INT64_MAX ? INT64_MAX : inner), depth + 1);
            riff64_RestoreLocation(h, at + 24);
        } else if (depth % 2) {
            riff64_ReadDataBounded(h, body, DWORD(size), sizeof body);
            riff64_RestoreLocation(h, at + 24);
        } else {
            QZRIFFDATA data{DWORD(size < 4096 ? size : 4096), nullptr};
            if (SUCCEEDED(riff64_ReadDataAlloc(h, &data)) && data.pData) {
                GlobalUnlock(GlobalHandle(data.pData));
                GlobalFree(GlobalHandle(data.pData));
            }
            riff64_RestoreLocation(h, at + 24);
        }
        budget -= 24;
        const ULONGLONG skipped = riff64_SkipChunk(h, size);
        if (skipped > ULONGLONG(budget)) return;
        budget -= LONGLONG(skipped);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const HANDLE h = open_scratch("qz_riff64_fuzz.bin", data, size);
    if (h == INVALID_HANDLE_VALUE) return 0;

    LONGLONG remaining = 0;
    GUID form{};
    ULONGLONG found = 0, removed = 0;
    if (SUCCEEDED(riff64_ReadFileID(h, &remaining, &form))) walk(h, remaining, 0);
    riff64_FindChunkHeaderInRIFF(h, wave64(0x61746164), &found, &remaining);  // "data"
    riff64_FindListChunkFromStart(h, wave64(0x4F464E49), &found);             // "INFO"
    riff64_SeekDataStart(h);
    DWORD count = 0;
    riff64_GetNumListEntries(h, &count, nullptr);
    remaining = LONGLONG(size) - 40;
    riff64_SeekListEntry(h, 3, &remaining);
    riff64_SeekDataStart(h);
    remaining = LONGLONG(size) - 40;
    riff64_FindListChunk(h, wave64(0x6C746461), &found, &remaining);  // "adtl"
    riff64_RestoreLocation(h, 40);
    BYTE bytes[16];
    riff64_ReadData(h, bytes, size % 17);
    riff64_UpdateRIFFSize(h, -LONGLONG(size));
    riff64_DeleteChunk(h, wave64(0x6B6E756A), &removed);  // "junk"
    riff64_DeleteChunk(h, wave64(0x20746D66), &removed);  // "fmt "
    CloseHandle(h);
    return 0;
}
