// mriff_*: wave headers written into and format chunks read from an image.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "chunkfiles/mriff_io.h"
#include "qz/qzwaveformat.h"

using namespace qz::mriff;

namespace {

constexpr DWORD kPcmBodyBytes = 16;  // WAVEFORMAT + bits, no cbSize
constexpr DWORD kWfxBytes = sizeof(WAVEFORMATEX);
constexpr DWORD kWfxeBytes = sizeof(WAVEFORMATEXTENSIBLE);
// "WAVE", the "fmt " header and the "data" header around the format body.
constexpr DWORD kWaveOverhead = 4 + 8 + 8;
// A whole format chunk as the record overload keeps it.
constexpr DWORD kFormatRoom = kWfxeBytes + QZWAVEFORMAT_MAX_EXTRA;

// The format body as it goes into the file; returns its size. PCM bodies
// are rebuilt from the three numbers that define them, so a caller's stale
// block size or byte rate never reaches the file.
DWORD encode_format_body(const WAVEFORMATEX& wfx, BYTE (&body)[kWfxBytes]) {
    if (wfx.wFormatTag == WAVE_FORMAT_PCM) {
        const WORD align = WORD((wfx.wBitsPerSample / 8) * wfx.nChannels);
        qz::base::store_le16(body + 0, WAVE_FORMAT_PCM);
        qz::base::store_le16(body + 2, wfx.nChannels);
        qz::base::store_le32(body + 4, wfx.nSamplesPerSec);
        qz::base::store_le32(body + 8, DWORD(align) * wfx.nSamplesPerSec);
        qz::base::store_le16(body + 12, align);
        qz::base::store_le16(body + 14, wfx.wBitsPerSample);
        return kPcmBodyBytes;
    }
    qz::base::store_le16(body + 0, wfx.wFormatTag);
    qz::base::store_le16(body + 2, wfx.nChannels);
    qz::base::store_le32(body + 4, wfx.nSamplesPerSec);
    qz::base::store_le32(body + 8, wfx.nAvgBytesPerSec);
    qz::base::store_le16(body + 12, wfx.nBlockAlign);
    qz::base::store_le16(body + 14, wfx.wBitsPerSample);
    qz::base::store_le16(body + 16, wfx.cbSize);
    return kWfxBytes;
}

// The RIFF size of a wave header: format body, samples, the caller's room
// and the headers, raised to even. A recorder that streams writes data
// size 0xFFFFFFFF while the length is not known yet, so a sum that does
// not fit 32 bits (or whose pad would not) is held at 0xFFFFFFFF, which
// readers of streamed files take as "to the end of the file".
DWORD riff_size_for(DWORD body_size, DWORD data_size, DWORD extra_size) {
    uint64_t size = uint64_t(body_size) + data_size + extra_size + kWaveOverhead;
    size += size & 1;
    return size > 0xFFFFFFFFu ? 0xFFFFFFFFu : DWORD(size);
}

// The 18 bytes of a format body, field by field.
void decode_wfx(const BYTE* bytes, WAVEFORMATEX* wfx) {
    wfx->wFormatTag = qz::base::load_le16(bytes + 0);
    wfx->nChannels = qz::base::load_le16(bytes + 2);
    wfx->nSamplesPerSec = qz::base::load_le32(bytes + 4);
    wfx->nAvgBytesPerSec = qz::base::load_le32(bytes + 8);
    wfx->nBlockAlign = qz::base::load_le16(bytes + 12);
    wfx->wBitsPerSample = qz::base::load_le16(bytes + 14);
    wfx->cbSize = qz::base::load_le16(bytes + 16);
}

// A whole format chunk of `length` bytes: the extensible fields when the
// tag says so, the codec bytes as they are. cbSize is cut to the bytes
// really present, so that nothing reading the structure runs past them.
void decode_format_chunk(const BYTE* bytes, DWORD length, BYTE* out) {
    auto* wfx = reinterpret_cast<WAVEFORMATEX*>(out);
    decode_wfx(bytes, wfx);
    const DWORD present = length > kWfxBytes ? length - kWfxBytes : 0;
    wfx->cbSize = WORD(std::min<DWORD>(wfx->cbSize, present));
    DWORD raw_from = kWfxBytes;
    if (wfx->wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        auto* ext = reinterpret_cast<WAVEFORMATEXTENSIBLE*>(out);
        ext->Samples.wValidBitsPerSample = qz::base::load_le16(bytes + 18);
        ext->dwChannelMask = qz::base::load_le32(bytes + 20);
        ext->SubFormat.Data1 = qz::base::load_le32(bytes + 24);
        ext->SubFormat.Data2 = qz::base::load_le16(bytes + 28);
        ext->SubFormat.Data3 = qz::base::load_le16(bytes + 30);
        std::memcpy(ext->SubFormat.Data4, bytes + 32, sizeof ext->SubFormat.Data4);
        raw_from = kWfxeBytes;
    }
    std::memcpy(out + raw_from, bytes + raw_from, kFormatRoom - raw_from);
}

struct WaveImage {
    DWORD format_bytes = 0;  // bytes of the format body copied
    DWORD data_size = 0;     // the data chunk's size field
};

// Finds "fmt " and "data" in a wave image and copies up to `room` bytes of
// the format body into `format` (which the caller has zeroed).
HRESULT read_wave_image(LPCVOID base, DWORD size, BYTE* format, DWORD room, WaveImage* out) {
    _tMRIFF m;
    HRESULT hr = mriff_Init(&m, const_cast<LPVOID>(base), size, size);
    if (FAILED(hr)) return hr;
    DWORD form = 0;
    hr = mriff_ReadFileID(&m, nullptr, &form);
    if (FAILED(hr)) return hr;
    if (form != kWaveForm) return E_FAIL;

    MemorySource image(m);
    image.move_to(0);
    DWORD budget = size;
    DWORD format_size = 0;
    hr = mriff_FindChunkHeaderInRIFF(&m, kFmtId, &format_size, &budget);
    if (FAILED(hr)) return hr;
    const DWORD format_at = image.offset();

    image.move_to(0);
    budget = size;
    DWORD data_size = 0;
    hr = mriff_FindChunkHeaderInRIFF(&m, kDataId, &data_size, &budget);
    if (FAILED(hr)) return hr;

    // The body may run past the image; the copy stops at its end.
    image.move_to(format_at);
    out->format_bytes = image.read_some(format, std::min(format_size, room));
    out->data_size = data_size;
    return S_OK;
}

}  // namespace

QZ_API HRESULT QZ_STDCALL mriff_WriteWaveHeader(_tMRIFF* m, const WAVEFORMATEX* wfx, DWORD dataSize,
                                                DWORD extraSize) {
    if (!m || !wfx) return E_POINTER;
    BYTE body[kWfxBytes] = {};
    const DWORD body_size = encode_format_body(*wfx, body);
    const DWORD riff_size = riff_size_for(body_size, dataSize, extraSize);

    HRESULT hr = mriff_WriteChunkHeader(m, kRiffId, riff_size);
    if (SUCCEEDED(hr) && !MemorySource(*m).write_u32(kWaveForm)) hr = QZE_FILE_WRITE;
    const HRESULT fmt = mriff_WriteChunkHeader(m, kFmtId, body_size);
    if (SUCCEEDED(hr)) hr = fmt;
    if (!MemorySource(*m).write(body, body_size) && SUCCEEDED(hr)) hr = QZE_FILE_WRITE;
    // The caller writes the samples after this header and knows how far
    // its buffer reaches; the data header's own fit is not reported.
    mriff_WriteChunkHeader(m, kDataId, dataSize);
    return hr;
}

QZ_API HRESULT QZ_STDCALL mriff_WriteWaveHeader(_tMRIFF* m, const _qzwaveformat& rec,
                                                DWORD dataSize, DWORD extraSize) {
    const _qzwaveformat_wfxcopyhelper wfx(rec);
    return mriff_WriteWaveHeader(m, wfx.wfx(), dataSize, extraSize);
}

QZ_API HRESULT QZ_STDCALL mriff_GetWfx(WAVEFORMATEX* wfx, LPCVOID base, DWORD size,
                                       DWORD* dataSize) {
    if (!wfx) return E_POINTER;
    BYTE body[kWfxBytes] = {};
    WaveImage found;
    const HRESULT hr = read_wave_image(base, size, body, kWfxBytes, &found);
    if (FAILED(hr)) return hr;
    decode_wfx(body, wfx);
    if (dataSize) *dataSize = found.data_size;
    return S_OK;
}

QZ_API HRESULT QZ_STDCALL mriff_GetWfx(_qzwaveformat* rec, LPCVOID base, DWORD size,
                                       DWORD* dataSize) {
    if (!rec) return E_POINTER;
    BYTE body[kFormatRoom] = {};
    WaveImage found;
    const HRESULT hr = read_wave_image(base, size, body, kFormatRoom, &found);
    if (FAILED(hr)) return hr;
    alignas(8) BYTE wfx[kFormatRoom] = {};
    decode_format_chunk(body, found.format_bytes, wfx);
    rec->Init(QZWAVEFORMAT_TEMP_SIZE, *reinterpret_cast<const WAVEFORMATEX*>(wfx));
    if (dataSize) *dataSize = found.data_size;
    return S_OK;
}
