// The "fmt " chunk body, encoded and decoded field by field.
#include "audioformat/wave_chunk.h"

#include <algorithm>
#include <cstring>

#include "base/byteorder.h"

namespace qz::wave {

using base::load_le16;
using base::load_le32;
using base::store_le16;
using base::store_le32;

DWORD encode_format_body(const WAVEFORMATEX& wfx, BYTE (&body)[kWfxBytes]) {
    const bool pcm = wfx.wFormatTag == WAVE_FORMAT_PCM;
    const WORD align = pcm ? WORD((wfx.wBitsPerSample / 8) * wfx.nChannels) : wfx.nBlockAlign;
    store_le16(body + 0, wfx.wFormatTag);
    store_le16(body + 2, wfx.nChannels);
    store_le32(body + 4, wfx.nSamplesPerSec);
    store_le32(body + 8, pcm ? DWORD(align) * wfx.nSamplesPerSec : wfx.nAvgBytesPerSec);
    store_le16(body + 12, align);
    store_le16(body + 14, wfx.wBitsPerSample);
    if (pcm) return kPcmBodyBytes;
    store_le16(body + 16, wfx.cbSize);
    return kWfxBytes;
}

void decode_wfx(const BYTE* bytes, WAVEFORMATEX* wfx) {
    wfx->wFormatTag = load_le16(bytes + 0);
    wfx->nChannels = load_le16(bytes + 2);
    wfx->nSamplesPerSec = load_le32(bytes + 4);
    wfx->nAvgBytesPerSec = load_le32(bytes + 8);
    wfx->nBlockAlign = load_le16(bytes + 12);
    wfx->wBitsPerSample = load_le16(bytes + 14);
    wfx->cbSize = load_le16(bytes + 16);
}

void decode_format_body(const BYTE* bytes, DWORD length, BYTE* out) {
    length = std::min(length, kFormatChunkRoom);
    auto* wfx = reinterpret_cast<WAVEFORMATEX*>(out);
    decode_wfx(bytes, wfx);
    const DWORD present = length > kWfxBytes ? length - kWfxBytes : 0;
    wfx->cbSize = WORD(std::min<DWORD>(wfx->cbSize, present));
    DWORD raw_from = kWfxBytes;
    if (wfx->wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        auto* ext = reinterpret_cast<WAVEFORMATEXTENSIBLE*>(out);
        ext->Samples.wValidBitsPerSample = load_le16(bytes + 18);
        ext->dwChannelMask = load_le32(bytes + 20);
        ext->SubFormat.Data1 = load_le32(bytes + 24);
        ext->SubFormat.Data2 = load_le16(bytes + 28);
        ext->SubFormat.Data3 = load_le16(bytes + 30);
        std::memcpy(ext->SubFormat.Data4, bytes + 32, sizeof ext->SubFormat.Data4);
        raw_from = kWfxeBytes;
    }
    if (length > raw_from) std::memcpy(out + raw_from, bytes + raw_from, length - raw_from);
}

}  // namespace qz::wave
