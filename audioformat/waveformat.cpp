// waveformat.cpp - sample types and the queries on Microsoft wave structures.
#include <bit>
#include <cstring>

#include "audioformat/waveformat_internal.h"

namespace qz::wave {

namespace {

// The fixed tail of the sub-format GUIDs that carry a wave tag in Data1.
constexpr WORD kFamilyData2 = 0x0000;
constexpr WORD kFamilyData3 = 0x0010;
constexpr BYTE kFamilyData4[8] = {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

}  // namespace

DWORD default_channel_mask(UINT channels) {
    if (channels >= 32) return 0xFFFFFFFFu;
    return (DWORD(1) << channels) - 1;
}

bool is_custom_mask(DWORD mask, UINT channels) {
    return mask != 0 && mask != default_channel_mask(channels);
}

bool is_wave_tag_subformat(const GUID& guid) {
    // Bytes 2 and 3 of the GUID are the high word of Data1.
    return (guid.Data1 >> 16) == 0 && guid.Data2 == kFamilyData2 && guid.Data3 == kFamilyData3 &&
           std::memcmp(guid.Data4, kFamilyData4, sizeof kFamilyData4) == 0;
}

GUID wave_tag_subformat(WORD tag) {
    GUID guid{};
    guid.Data1 = tag;
    guid.Data2 = kFamilyData2;
    guid.Data3 = kFamilyData3;
    std::memcpy(guid.Data4, kFamilyData4, sizeof kFamilyData4);
    return guid;
}

bool is_subformat_of_tag(const GUID& guid, WORD tag) {
    return is_wave_tag_subformat(guid) && guid.Data1 == tag;
}

DWORD wfx_held_size(const WAVEFORMATEX& wfx) {
    switch (wfx.wFormatTag) {
        case kTagPcm:
        case kTagFloat:
            return kWfxSize;
        case kTagExtensible:
            return kWfxeSize +
                   (wfx.cbSize > kExtensibleCbSize ? wfx.cbSize - kExtensibleCbSize : 0);
        default:
            return kWfxSize + wfx.cbSize;
    }
}

void make_extensible(WAVEFORMATEX* wfx, WORD tag, DWORD channelMask) {
    WAVEFORMATEXTENSIBLE* ext = as_extensible(wfx);
    wfx->wFormatTag = kTagExtensible;
    wfx->cbSize = kExtensibleCbSize;
    ext->Samples.wValidBitsPerSample = wfx->wBitsPerSample;
    ext->dwChannelMask = channelMask;
    ext->SubFormat = wave_tag_subformat(tag);
}

void write_plain_wfx(WAVEFORMATEX* wfx, WORD tag, DWORD samplesPerSec, WORD bits, WORD channels) {
    wfx->wFormatTag = tag;
    wfx->nChannels = channels;
    wfx->nSamplesPerSec = samplesPerSec;
    wfx->wBitsPerSample = bits;
    wfx->nBlockAlign = WORD((bits / 8) * channels);
    wfx->nAvgBytesPerSec = DWORD(wfx->nBlockAlign) * samplesPerSec;
    wfx->cbSize = 0;
}

}  // namespace qz::wave

namespace {

using namespace qz::wave;

struct SampleTypeInfo {
    QZSAMPLETYPE type;
    WORD bits;
    WORD bytes;
    WORD tag;
};

// The types that map back to a tag and width. The 0xFE03 types (128, 129)
// are deliberately absent: their tag maps into the enumeration but nothing
// maps back out of it.
constexpr SampleTypeInfo kSampleTypes[] = {
    {QZST_PCM8, 8, 1, kTagPcm},
    {QZST_PCM16, 16, 2, kTagPcm},
    {QZST_PCM24, 24, 3, kTagPcm},
    {QZST_PCM32, 32, 4, kTagPcm},
    {QZST_FLOAT32, 32, 4, kTagFloat},
    {QZST_FLOAT64, 64, 8, kTagFloat},
    {QZST_PCM24IN32, 32, 4, kTagPcm24In32},
    {QZST_PCM8S, 8, 1, kTagPcmSigned},
    {QZST_PCM16BE, 16, 2, kTagPcmBigEndian},
    {QZST_PCM24BE, 24, 3, kTagPcmBigEndian},
    {QZST_PCM32BE, 32, 4, kTagPcmBigEndian},
};

const SampleTypeInfo* find_sample_type(DWORD type) {
    for (const SampleTypeInfo& info : kSampleTypes)
        if (info.type == type) return &info;
    return nullptr;
}

// Integer PCM by width, shared by tag 1 and the signed tag 0xFE01.
QZSAMPLETYPE integer_pcm_type(int bits, QZSAMPLETYPE eight_bit) {
    switch (bits) {
        case 8:
            return eight_bit;
        case 16:
            return QZST_PCM16;
        case 20:  // 20-bit PCM is stored in 24-bit containers
        case 24:
            return QZST_PCM24;
        case 32:
            return QZST_PCM32;
        default:
            return QZST_NONE;
    }
}

QZSAMPLETYPE big_endian_pcm_type(int bits) {
    switch (bits) {
        // 8-bit samples have no byte order: the plain PCM type serves.
        case 8:
            return QZST_PCM8;
        case 16:
            return QZST_PCM16BE;
        case 24:
            return QZST_PCM24BE;
        case 32:
            return QZST_PCM32BE;
        default:
            return QZST_NONE;
    }
}

bool is_pcm_or_float_subformat(const WAVEFORMATEXTENSIBLE* ext) {
    return is_subformat_of_tag(ext->SubFormat, kTagPcm) ||
           is_subformat_of_tag(ext->SubFormat, kTagFloat);
}

}  // namespace

QZ_EXTERN_C QZ_API QZSAMPLETYPE QZ_STDCALL QzAudio_GetSampleType2(UINT formatTag, int bits) {
    switch (formatTag) {
        case kTagPcm:
            return integer_pcm_type(bits, QZST_PCM8);
        case kTagPcmSigned:
            return integer_pcm_type(bits, QZST_PCM8S);
        case kTagFloat:
            return bits == 32 ? QZST_FLOAT32 : bits == 64 ? QZST_FLOAT64 : QZST_NONE;
        case kTagPcm24In32:
            return bits == 24 || bits == 32 ? QZST_PCM24IN32 : QZST_NONE;
        case kTagPcmBigEndian:
            return big_endian_pcm_type(bits);
        case kTagRa:
            return bits == 16 ? QZST_RA16 : bits == 24 ? QZST_RA24 : QZST_NONE;
        default:
            return QZST_NONE;
    }
}

QZ_EXTERN_C QZ_API QZSAMPLETYPE QZ_STDCALL QzAudio_GetSampleType(const WAVEFORMATEX* wfx) {
    if (!wfx) return QZST_NONE;
    if (wfx->wFormatTag != kTagExtensible)
        return QzAudio_GetSampleType2(wfx->wFormatTag, wfx->wBitsPerSample);
    // cbSize is not consulted: the sub-format alone decides.
    const WAVEFORMATEXTENSIBLE* ext = as_extensible(wfx);
    if (!is_wave_tag_subformat(ext->SubFormat)) return QZST_NONE;
    const QZSAMPLETYPE type =
        QzAudio_GetSampleType2(ext->SubFormat.Data1 & 0xFFFF, wfx->wBitsPerSample);
    if (type == QZST_PCM32 && ext->Samples.wValidBitsPerSample == 24) return QZST_PCM24IN32;
    return type;
}

QZ_EXTERN_C QZ_API WORD QZ_STDCALL QzAudio_GetWaveFormatTag(const WAVEFORMATEX* wfx) {
    if (!wfx) return 0;
    if (wfx->wFormatTag != kTagExtensible || wfx->cbSize < kExtensibleCbSize)
        return wfx->wFormatTag;
    const GUID& sub = as_extensible(wfx)->SubFormat;
    return is_wave_tag_subformat(sub) ? WORD(sub.Data1) : 0;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzAudio_GetFormatTagExtensible(WAVEFORMATEXTENSIBLE* wfx,
                                                                  DWORD* tag) {
    if (!wfx || wfx->Format.wFormatTag != kTagExtensible || wfx->Format.cbSize < kExtensibleCbSize)
        return FALSE;
    DWORD found = 0;
    if (is_subformat_of_tag(wfx->SubFormat, kTagPcm))
        found = kTagPcm;
    else if (is_subformat_of_tag(wfx->SubFormat, kTagFloat))
        found = kTagFloat;
    else
        return FALSE;
    if (tag) *tag = found;
    return TRUE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzAudio_IsCompressedExtensible(WAVEFORMATEXTENSIBLE* wfx) {
    if (!wfx || wfx->Format.cbSize < kExtensibleCbSize) return TRUE;
    return is_pcm_or_float_subformat(wfx) ? FALSE : TRUE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzAudio_IsCompressed(const WAVEFORMATEX* wfx) {
    if (!wfx) return TRUE;
    const WORD tag = wfx->wFormatTag;
    if (tag == kTagExtensible)
        return QzAudio_IsCompressedExtensible(
            const_cast<WAVEFORMATEXTENSIBLE*>(as_extensible(wfx)));
    const bool linear =
        tag == kTagPcm || tag == kTagFloat || (tag >= kTagPcm24In32 && tag <= kTagPcmBigEndian);
    if (!linear) return TRUE;
    // An uncompressed frame is exactly (bits / 8) bytes per channel.
    return wfx->nBlockAlign != (wfx->wBitsPerSample / 8) * wfx->nChannels ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzAudio_InitWfx(WAVEFORMATEX* wfx, DWORD samplesPerSec,
                                                   QZSAMPLETYPE type, DWORD channels) {
    if (!wfx) return;
    write_plain_wfx(wfx, QzAudio_FormatTagFromSampleType(type), samplesPerSec,
                    WORD(QzAudio_BitsFromSampleType(type)), WORD(channels));
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzAudio_InitWfxFlex(WAVEFORMATEX* wfx, DWORD tag,
                                                       DWORD samplesPerSec, DWORD bits,
                                                       DWORD channels, DWORD channelMask,
                                                       UINT room) {
    if (!wfx) return;
    write_plain_wfx(wfx, WORD(tag), samplesPerSec, WORD(bits), WORD(channels));
    if (channelMask == 0) return;
    // A mask naming more speakers than there are channels cannot be right;
    // it is written as 0. Whether the caller asked for something beyond the
    // default layout is still judged on the mask as given.
    const DWORD written_mask = DWORD(std::popcount(channelMask)) > channels ? 0 : channelMask;
    bool is_default = false;
    if (channels < 3) is_default = channelMask == default_channel_mask(channels);
    if ((channels > 2 || !is_default) && room >= kWfxeSize)
        make_extensible(wfx, WORD(tag), written_mask);
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzAudio_FixBadWfx(WAVEFORMATEX* wfx) {
    if (!wfx || wfx->wFormatTag != kTagPcm) return FALSE;
    bool changed = false;
    if (wfx->wBitsPerSample == 20) {
        wfx->wBitsPerSample = 24;
        changed = true;
    }
    const WORD align = WORD((wfx->wBitsPerSample / 8) * wfx->nChannels);
    if (wfx->nBlockAlign != align) {
        wfx->nBlockAlign = align;
        changed = true;
    }
    return changed ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzAudio_BitsFromSampleType(QZSAMPLETYPE type) {
    const SampleTypeInfo* info = find_sample_type(type);
    return info ? info->bits : 0;
}

QZ_EXTERN_C QZ_API UINT QZ_STDCALL QzAudio_BytesFromSampleType(QZSAMPLETYPE type) {
    const SampleTypeInfo* info = find_sample_type(type);
    return info ? info->bytes : 0;
}

QZ_EXTERN_C QZ_API WORD QZ_STDCALL QzAudio_FormatTagFromSampleType(QZSAMPLETYPE type) {
    const SampleTypeInfo* info = find_sample_type(type);
    return info ? info->tag : 0;
}
