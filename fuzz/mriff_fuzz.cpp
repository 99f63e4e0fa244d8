// mriff_fuzz - walks arbitrary memory images with every reading operation
// of the mriff_ family, and writes wave headers into buffers of arbitrary
// capacity. The image sits in a heap block of exactly its size, so the
// sanitizer sees any byte read or written outside base .. capacity end.
//
// Input: a 16-byte parameter block (budget, start offset, sizes, choices),
// then the image. Shorter inputs are padded with zeros.
#include <cstdint>
#include <cstring>
#include <memory>

#include "qz/mriff.h"
#include "qz/qzwaveformat.h"
#include "qz/win32compat.h"

namespace {

struct Params {
    uint32_t budget;
    uint32_t start;
    uint16_t read_size;
    uint16_t buffer_size;
    uint8_t id_choice;
    uint8_t method;
    uint8_t capacity;
    uint8_t flags;
};

constexpr uint32_t make_id(const char (&s)[5]) {
    return uint32_t(uint8_t(s[0])) | uint32_t(uint8_t(s[1])) << 8 | uint32_t(uint8_t(s[2])) << 16 |
           uint32_t(uint8_t(s[3])) << 24;
}

constexpr uint32_t kIds[] = {make_id("fmt "), make_id("data"), make_id("LIST"), make_id("INFO"),
                             make_id("INAM"), make_id("RIFF"), make_id("WAVE"), make_id("adtl")};

uint32_t pick_id(const Params& p, const uint8_t* image, size_t size) {
    const size_t choice = p.id_choice % (std::size(kIds) + 1);
    if (choice < std::size(kIds)) return kIds[choice];
    // An id taken from the image itself, so the walk can find something.
    if (size < 4) return 0;
    const size_t at = (p.start % (size - 3));
    return uint32_t(image[at]) | uint32_t(image[at + 1]) << 8 | uint32_t(image[at + 2]) << 16 |
           uint32_t(image[at + 3]) << 24;
}

void free_global(void* p) {
    if (!p) return;
    HGLOBAL h = GlobalHandle(p);
    GlobalUnlock(h);
    GlobalFree(h);
}

// Every search, each time from the chosen start, with and without a budget.
void walk_searches(_tMRIFF* m, const Params& p, uint32_t id) {
    DWORD size = 0;
    DWORD budget = p.budget;
    mriff_RestoreLocation(m, p.start);
    mriff_FindChunkHeader(m, id, &size, &budget);
    mriff_RestoreLocation(m, p.start);
    mriff_FindChunkHeader(m, id, &size, nullptr);
    budget = p.budget;
    mriff_RestoreLocation(m, p.start);
    mriff_FindChunkHeaderInRIFF(m, id, &size, &budget);
    mriff_RestoreLocation(m, p.start);
    mriff_FindChunkHeaderInRIFF(m, id, &size, nullptr);
    budget = p.budget;
    mriff_RestoreLocation(m, p.start);
    mriff_FindListChunk(m, id, &size, &budget);
    mriff_RestoreLocation(m, p.start);
    mriff_FindListChunk(m, id, &size, nullptr);
    mriff_FindListChunkFromStart(m, id, &size);
    DWORD count = 0;
    budget = p.budget;
    mriff_RestoreLocation(m, p.start);
    mriff_GetNumListEntries(m, &count, &budget);
    mriff_GetNumListEntries(m, &count, nullptr);
    char text[256];
    budget = p.budget;
    mriff_GetInfoString(m, id, text, p.buffer_size % sizeof text, &budget);
    mriff_GetInfoString(m, id, text, p.buffer_size % sizeof text, nullptr);
}

// The chunk tree from the start, lists descended, as a browser would show it.
void walk_tree(_tMRIFF* m, DWORD remaining, int depth) {
    for (int guard = 0; guard < 4096 && remaining >= 8; ++guard) {
        DWORD id = 0, size = 0;
        if (FAILED(mriff_ReadChunkHeader(m, &id, &size))) return;
        remaining -= 8;
        if ((id == make_id("LIST") || id == make_id("RIFF")) && depth < 8 && size >= 4) {
            DWORD type = 0;
            DWORD offset = 0;
            mriff_SaveLocation(m, &offset);
            if (!mriff_ReadFile(m, &type, 4, nullptr, nullptr)) return;
            walk_tree(m, size - 4, depth + 1);
            mriff_RestoreLocation(m, offset);
        }
        const DWORD skipped = mriff_SkipChunk(m, size);
        remaining = skipped > remaining ? 0 : remaining - skipped;
    }
}

void read_bodies(_tMRIFF* m, const Params& p) {
    uint8_t buffer[1024];
    DWORD got = 0;
    mriff_RestoreLocation(m, p.start);
    mriff_ReadFile(m, buffer, p.read_size % sizeof buffer, &got, nullptr);
    mriff_RestoreLocation(m, p.start);
    mriff_ReadData(m, buffer, p.read_size % sizeof buffer);
    mriff_RestoreLocation(m, p.start);
    mriff_ReadDataBounded(m, buffer, p.buffer_size % sizeof buffer, p.budget);
    mriff_RestoreLocation(m, p.start);
    mriff_ReadDataBounded(m, buffer, p.read_size % sizeof buffer, p.buffer_size);
    QZRIFFDATA data{DWORD(p.read_size), nullptr};
    mriff_RestoreLocation(m, p.start);
    if (SUCCEEDED(mriff_ReadDataAlloc(m, &data))) free_global(data.pData);
    DWORD value = 0, other = 0;
    mriff_RestoreLocation(m, p.start);
    mriff_ReadChunkHeader(m, &value, &other);
    mriff_RestoreLocation(m, p.start);
    mriff_ReadListHeader(m, &value, &other);
    mriff_RestoreLocation(m, p.start);
    mriff_ReadFileID(m, &value, &other);
    mriff_SetFilePointer(m, p.budget, nullptr, p.method % 4);
    mriff_SkipChunk(m, p.budget);
    mriff_SeekDataStart(m);
    mriff_GetFilePointer(m);
}

// The wave reader and the record conversions on whatever format it found.
void read_wave(const uint8_t* image, size_t size, const Params& p) {
    WAVEFORMATEX wfx;
    DWORD data_size = 0;
    mriff_GetWfx(&wfx, image, DWORD(size), &data_size);
    _qzwaveformat rec;
    if (FAILED(mriff_GetWfx(&rec, image, DWORD(size), &data_size))) return;
    alignas(8) uint8_t out[40 + QZWAVEFORMAT_MAX_EXTRA];
    for (DWORD dest = 0; dest <= 5; ++dest) {
        // Forced extensible forms need 40 bytes whatever the room says.
        QzAudio_GeneralCopyWfx(reinterpret_cast<WAVEFORMATEX*>(out), sizeof out, rec,
                               QZWAVEFORMAT_COPY_DEST(dest));
        free_global(QzAudio_AllocAndCopyWfx(rec, QZWAVEFORMAT_COPY_DEST(dest)));
        free_global(QzAudio_AllocAndCopyWfx(reinterpret_cast<WAVEFORMATEX*>(out),
                                            QZWAVEFORMAT_COPY_DEST(dest)));
    }
    _qzwaveformat copy;
    QzAudio_GeneralCopyQzWaveFormat(&copy, p.buffer_size % (sizeof copy + 1), rec, QZWFCD_PLAIN);
    (void)(copy == rec);
    WCHAR text[32];
    QzAudio_GetSampleTypeText(&rec, text, 32);
    QzAudio_GetBitDepthText(&rec, text, 32, TRUE);

    // Write the header back into a buffer of a chosen capacity.
    const uint32_t capacity = p.capacity;
    std::unique_ptr<uint8_t[]> target(new uint8_t[capacity ? capacity : 1]);
    _tMRIFF w;
    mriff_Init(&w, target.get(), 0, capacity);
    mriff_WriteWaveHeader(&w, rec, data_size, p.budget);
    mriff_WriteWaveHeader(&w, &wfx, data_size, 0);
    mriff_WriteListHeader(&w, make_id("INFO"), p.budget);
    mriff_UpdateDataSize(&w, p.budget);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint8_t raw[sizeof(Params)] = {};
    const size_t head = size < sizeof raw ? size : sizeof raw;
    std::memcpy(raw, data, head);
    Params p;
    std::memcpy(&p, raw, sizeof p);
    const size_t image_size = size - head;
    // Exactly the image's size: any access past it is a heap overflow.
    std::unique_ptr<uint8_t[]> image(new uint8_t[image_size ? image_size : 1]);
    if (image_size) std::memcpy(image.get(), data + head, image_size);

    _tMRIFF m;
    if (FAILED(mriff_Init(&m, image.get(), DWORD(image_size), DWORD(image_size)))) return 0;
    const uint32_t id = pick_id(p, image.get(), image_size);
    walk_searches(&m, p, id);
    read_bodies(&m, p);
    mriff_RestoreLocation(&m, 0);
    walk_tree(&m, DWORD(image_size), 0);
    read_wave(image.get(), image_size, p);
    return 0;
}
