// waveformat_record.cpp - the members of the wave-format record.
#include <algorithm>
#include <cstring>

#include "audioformat/waveformat_internal.h"

using namespace qz::wave;

namespace {

BYTE* bytes_of(_qzwaveformat* rec) {
    return reinterpret_cast<BYTE*>(rec);
}

// Clears a record whose buffer holds `size` bytes. A buffer below 33 bytes
// is taken as the bare 32-byte record: the size field is overwritten, so
// only bytes 4..31 need clearing, and nothing past byte 31 is touched.
void clear_record(_qzwaveformat* rec, DWORD size) {
    if (size < kRecordBase + 1) {
        std::memset(bytes_of(rec) + sizeof rec->size, 0, kRecordBase - sizeof rec->size);
        rec->size = kRecordBase;
        return;
    }
    const DWORD clamped = std::min(size, kRecordMax);
    std::memset(bytes_of(rec), 0, clamped);
    rec->size = clamped;
}

// The record's final size: 32, or 32 + extraSize once there is room for
// the extraSize field at all.
void settle_size(_qzwaveformat* rec) {
    rec->size = rec->size < kRecordWithExtra ? kRecordBase : kRecordBase + rec->extraSize;
}

WORD repaired_pcm_block_align(const WAVEFORMATEX& wfx) {
    WAVEFORMATEX copy{};
    std::memcpy(&copy, &wfx, kWfxPcmSize);
    QzAudio_FixBadWfx(&copy);
    return copy.nBlockAlign;
}

// Some writers emit an extensible header with an empty sub-format. When its
// numbers are those of plain PCM or float, the width tells which. The check
// multiplies channels by bits, not bytes: a real PCM header never passes
// it, only the broken writers' output, which this acceptance is for.
QZSAMPLETYPE broken_extensible_type(const WAVEFORMATEX& wfx) {
    const WAVEFORMATEXTENSIBLE* ext = as_extensible(&wfx);
    static const GUID kNull{};
    if (std::memcmp(&ext->SubFormat, &kNull, sizeof kNull) != 0) return QZST_NONE;
    if (wfx.cbSize != 0 && wfx.cbSize != kExtensibleCbSize) return QZST_NONE;
    if (DWORD(wfx.nChannels) * wfx.wBitsPerSample != wfx.nBlockAlign) return QZST_NONE;
    if (wfx.nSamplesPerSec * DWORD(wfx.nBlockAlign) != wfx.nAvgBytesPerSec) return QZST_NONE;
    switch (wfx.wBitsPerSample) {
        case 8:
            return QZST_PCM8;
        case 16:
            return QZST_PCM16;
        case 24:
            return QZST_PCM24;
        case 32:
            return QZST_FLOAT32;
        case 64:
            return QZST_FLOAT64;
        default:
            return QZST_NONE;
    }
}

// Keeps the codec bytes of a foreign structure, as many as the record's
// buffer holds. PCM and float headers hold none (their cbSize is no
// length), so a foreign PCM or float record comes without.
void copy_foreign_extra(_qzwaveformat* rec, const WAVEFORMATEX& wfx) {
    const DWORD offset = wfx_extra_offset(wfx);
    const DWORD length = wfx_held_size(wfx) - offset;
    const BYTE* source = reinterpret_cast<const BYTE*>(&wfx) + offset;
    if (length == 0 || rec->size < kRecordWithExtra) return;
    const DWORD count =
        std::min<DWORD>({length, rec->size - kRecordWithExtra, QZWAVEFORMAT_MAX_EXTRA});
    std::memcpy(rec->extra, source, count);
    rec->extraSize = WORD(count);
}

DWORD effective_mask(DWORD mask, UINT channels) {
    return mask != 0 ? mask : default_channel_mask(channels);
}

bool masks_match(DWORD a, DWORD b, UINT channels) {
    return a == b || effective_mask(a, channels) == effective_mask(b, channels);
}

}  // namespace

void _qzwaveformat::Init(DWORD rate, QZSAMPLETYPE type, UINT channelCount, DWORD mask,
                         DWORD capacity) {
    clear_record(this, capacity);
    sampleType = type;
    samplesPerSec = rate;
    channels = WORD(channelCount);
    channelMask = mask;
    blockAlign = WORD(QzAudio_BytesFromSampleType(type) * channels);
    avgBytesPerSec = DWORD(blockAlign) * rate;
}

void _qzwaveformat::InitAsWfx(WORD tag, DWORD rate, WORD bits, WORD channelCount, DWORD mask,
                              DWORD capacity) {
    clear_record(this, capacity);
    if (tag == kTagPcm && bits == 20) bits = 24;
    sampleType = QzAudio_GetSampleType2(tag, bits);
    if (sampleType == QZST_NONE) {
        flags |= QZWF_FOREIGN;
        formatTag = tag;
        bitsPerSample = bits;
    }
    channels = channelCount;
    channelMask = mask;
    blockAlign = WORD(int(channelCount) * int(bits) / 8);
    samplesPerSec = rate;
    avgBytesPerSec = DWORD(blockAlign) * rate;
}

void _qzwaveformat::Init(DWORD capacity, const WAVEFORMATEX& wfx) {
    clear_record(this, capacity);
    samplesPerSec = wfx.nSamplesPerSec;
    channels = wfx.nChannels;
    blockAlign = wfx.nBlockAlign;
    avgBytesPerSec = wfx.nAvgBytesPerSec;
    sampleType = QzAudio_GetSampleType(&wfx);
    if (wfx.wFormatTag == kTagPcm) blockAlign = repaired_pcm_block_align(wfx);
    if (wfx.wFormatTag == kTagExtensible) {
        flags |= QZWF_EXTENSIBLE;
        channelMask = as_extensible(&wfx)->dwChannelMask;
        if (sampleType == QZST_NONE) sampleType = broken_extensible_type(wfx);
    }
    if (sampleType == QZST_NONE) {
        formatTag = QzAudio_GetWaveFormatTag(&wfx);
        bitsPerSample = wfx.wBitsPerSample;
        flags |= QZWF_FOREIGN;
        copy_foreign_extra(this, wfx);
    }
    settle_size(this);
}

DWORD _qzwaveformat::UpdateBlockAlign() {
    if (sampleType != QZST_NONE) {
        blockAlign = WORD(QzAudio_BytesFromSampleType(QZSAMPLETYPE(sampleType)) * channels);
        avgBytesPerSec = DWORD(blockAlign) * samplesPerSec;
    }
    return blockAlign;
}

WORD _qzwaveformat::FormatTag() const {
    return (flags & QZWF_FOREIGN) ? formatTag
                                  : QzAudio_FormatTagFromSampleType(QZSAMPLETYPE(sampleType));
}

WORD _qzwaveformat::BitsPerSample() const {
    return (flags & QZWF_FOREIGN) ? bitsPerSample
                                  : WORD(QzAudio_BitsFromSampleType(QZSAMPLETYPE(sampleType)));
}

WORD _qzwaveformat::BytesPerSample() const {
    return WORD(BitsPerSample() >> 3);
}

bool _qzwaveformat::IsCompressed() const {
    return (flags & QZWF_FOREIGN) != 0;
}

bool _qzwaveformat::operator==(const _qzwaveformat& other) const {
    if (sampleType != other.sampleType || samplesPerSec != other.samplesPerSec ||
        channels != other.channels)
        return false;
    if ((flags & QZWF_FOREIGN) != (other.flags & QZWF_FOREIGN)) return false;
    if (!masks_match(channelMask, other.channelMask, channels)) return false;
    if (!(flags & QZWF_FOREIGN)) return true;
    const WORD extra_size = record_extra_size(*this);
    return formatTag == other.formatTag && avgBytesPerSec == other.avgBytesPerSec &&
           bitsPerSample == other.bitsPerSample && extra_size == record_extra_size(other) &&
           std::memcmp(extra, other.extra, extra_size) == 0;
}

bool _qzwaveformat::operator==(const WAVEFORMATEX& wfx) const {
    if (samplesPerSec != wfx.nSamplesPerSec || channels != wfx.nChannels) return false;
    const bool foreign = (flags & QZWF_FOREIGN) != 0;
    if (foreign) {
        // The raw tag: a foreign record never equals an extensible structure.
        if (formatTag != wfx.wFormatTag || avgBytesPerSec != wfx.nAvgBytesPerSec ||
            bitsPerSample != wfx.wBitsPerSample)
            return false;
    } else if (sampleType != DWORD(QzAudio_GetSampleType(&wfx))) {
        return false;
    }
    const bool extensible = wfx.wFormatTag == kTagExtensible;
    const DWORD wfx_mask = extensible ? as_extensible(&wfx)->dwChannelMask : 0;
    if (!masks_match(channelMask, wfx_mask, channels)) return false;
    if (!foreign) return true;
    // 16-bit arithmetic on purpose: a short extensible header wraps to a
    // length no record can have.
    const WORD wfx_extra = extensible ? WORD(wfx.cbSize - kExtensibleCbSize) : wfx.cbSize;
    const WORD extra_size = record_extra_size(*this);
    if (extra_size != wfx_extra) return false;
    // A PCM or float structure holds no codec bytes, whatever its cbSize
    // says, so a record that has some cannot be shown equal to one.
    const DWORD offset = wfx_extra_offset(wfx);
    if (extra_size > wfx_held_size(wfx) - offset) return false;
    return std::memcmp(extra, reinterpret_cast<const BYTE*>(&wfx) + offset, extra_size) == 0;
}
