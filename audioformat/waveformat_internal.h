/*
 * waveformat_internal.h - helpers shared by the wave-format files.
 */
#ifndef QZ_AUDIOFORMAT_WAVEFORMAT_INTERNAL_H
#define QZ_AUDIOFORMAT_WAVEFORMAT_INTERNAL_H

#include "qz/qzwaveformat.h"

namespace qz::wave {

constexpr WORD kTagPcm = WAVE_FORMAT_PCM;
constexpr WORD kTagFloat = WAVE_FORMAT_IEEE_FLOAT;
constexpr WORD kTagExtensible = WAVE_FORMAT_EXTENSIBLE;
constexpr WORD kTagPcm24In32 = QZWAVE_FORMAT_PCM24IN32;
constexpr WORD kTagPcmSigned = QZWAVE_FORMAT_PCM_SIGNED;
constexpr WORD kTagPcmBigEndian = QZWAVE_FORMAT_PCM_BIGENDIAN;
constexpr WORD kTagRa = QZWAVE_FORMAT_RA;

constexpr DWORD kWfxSize = sizeof(WAVEFORMATEX);                // 18
constexpr DWORD kWfxPcmSize = 16;                               // without cbSize
constexpr DWORD kWfxeSize = sizeof(WAVEFORMATEXTENSIBLE);       // 40
constexpr WORD kExtensibleCbSize = kWfxeSize - kWfxSize;        // 22
constexpr DWORD kRecordBase = QZWAVEFORMAT_BASE_SIZE;           // 32
constexpr DWORD kRecordWithExtra = QZWAVEFORMAT_BASE_SIZE + 2;  // 34
constexpr DWORD kRecordMax = QZWAVEFORMAT_MAX_SIZE;

/* One bit per channel from bit 0; every bit from 32 channels on. */
DWORD default_channel_mask(UINT channels);

/* A mask that is neither 0 nor the default of the channel count. */
bool is_custom_mask(DWORD mask, UINT channels);

/*
 * True when bytes 2..15 of the GUID are those of the wave-tag sub-format
 * family xxxxxxxx-0000-0010-8000-00AA00389B71 (Data1 holds a 16-bit tag).
 */
bool is_wave_tag_subformat(const GUID& guid);
/* The sub-format of a wave tag, and the exact test for one. */
GUID wave_tag_subformat(WORD tag);
bool is_subformat_of_tag(const GUID& guid, WORD tag);

/* The structure viewed as extensible; only for tag 0xFFFE. */
inline const WAVEFORMATEXTENSIBLE* as_extensible(const WAVEFORMATEX* wfx) {
    return reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wfx);
}
inline WAVEFORMATEXTENSIBLE* as_extensible(WAVEFORMATEX* wfx) {
    return reinterpret_cast<WAVEFORMATEXTENSIBLE*>(wfx);
}

/*
 * What a structure holds, and so all that is ever read of it: 18 bytes for
 * PCM and float, whose cbSize is no length (codec bytes of those tags are
 * written over it, see QzAudio_GeneralCopyWfx); the 40 extensible bytes,
 * plus cbSize - 22 when that is positive, for tag 0xFFFE; 18 + cbSize for
 * every other tag. Codec bytes start at wfx_extra_offset.
 */
DWORD wfx_held_size(const WAVEFORMATEX& wfx);
inline DWORD wfx_extra_offset(const WAVEFORMATEX& wfx) {
    return wfx.wFormatTag == kTagExtensible ? kWfxeSize : kWfxSize;
}

/*
 * Turns the plain structure already written in `wfx` into the extensible
 * form: tag 0xFFFE, cbSize 22, valid bits, mask and the sub-format of
 * `tag`. Rate, channels, block size and byte rate stay as written.
 */
void make_extensible(WAVEFORMATEX* wfx, WORD tag, DWORD channelMask);

/* Writes a plain structure with blockAlign (bits / 8) x channels and cbSize 0. */
void write_plain_wfx(WAVEFORMATEX* wfx, WORD tag, DWORD samplesPerSec, WORD bits, WORD channels);

/*
 * Extra bytes of a record: none unless size >= 34 (a smaller buffer has no
 * extraSize field), and never more than a record can hold.
 */
inline WORD record_extra_size(const _qzwaveformat& rec) {
    if (rec.size < kRecordWithExtra) return 0;
    return rec.extraSize < QZWAVEFORMAT_MAX_EXTRA ? rec.extraSize : WORD(QZWAVEFORMAT_MAX_EXTRA);
}

}  // namespace qz::wave

#endif
