// waveformat_copy.cpp - records turned into Microsoft structures and back,
// and the holders that build a structure for one call.
#include <algorithm>
#include <cstring>
#include <new>

#include "audioformat/waveformat_internal.h"
#include "base/caller_memory.h"
#include "platform/win32api.h"

using namespace qz::wave;

namespace {

BYTE* bytes_of(void* p) {
    return static_cast<BYTE*>(p);
}

// Whether `dest` forces the 40-byte form. `mask` is the mask the output
// carries: PLAIN drops it.
bool forces_extensible(QZWAVEFORMAT_COPY_DEST dest, const _qzwaveformat& rec, UINT room) {
    switch (dest) {
        case QZWFCD_ASSOURCE:
            return room >= kWfxeSize &&
                   ((rec.flags & QZWF_EXTENSIBLE) || is_custom_mask(rec.channelMask, rec.channels));
        case QZWFCD_MULTICHANNEL:
            return rec.channels > 2;
        case QZWFCD_EXTENSIBLE:
            return true;
        default:
            return false;
    }
}

void copy_foreign(WAVEFORMATEX* dst, UINT room, const _qzwaveformat& rec, DWORD mask, bool force) {
    dst->wFormatTag = rec.formatTag;
    dst->nChannels = rec.channels;
    dst->nSamplesPerSec = rec.samplesPerSec;
    dst->wBitsPerSample = rec.bitsPerSample;
    dst->nBlockAlign = rec.blockAlign;
    dst->nAvgBytesPerSec = rec.avgBytesPerSec;
    dst->cbSize = 0;
    const WORD extra = record_extra_size(rec);
    const bool plain =
        mask == 0 || mask == default_channel_mask(rec.channels) || room < DWORD(extra) + kWfxeSize;
    if (force || !plain) make_extensible(dst, rec.formatTag, mask);
    if (extra == 0) return;
    const long long fits = (long long)room - dst->cbSize - kWfxSize;
    if (fits <= 0) return;
    const WORD count = WORD(std::min<long long>(fits, extra));
    // PCM and float structures have their codec bytes written from offset
    // 16, over the cbSize field, which then has the count added to it.
    // Hosts that read these structures expect exactly this layout. It
    // leaves a cbSize that is no length, so the library's readers take
    // such structures as their 18 bytes only (wfx_held_size).
    const bool linear = dst->wFormatTag == kTagPcm || dst->wFormatTag == kTagFloat;
    const DWORD offset = linear ? kWfxPcmSize : kWfxSize + dst->cbSize;
    std::memcpy(bytes_of(dst) + offset, rec.extra, count);
    dst->cbSize = WORD(dst->cbSize + count);
}

// The allocation a record needs for `dest`: the 18- or 40-byte structure
// and its extra bytes.
DWORD alloc_size(const _qzwaveformat& rec, QZWAVEFORMAT_COPY_DEST dest) {
    DWORD base = kWfxSize;
    switch (dest) {
        case QZWFCD_ASSOURCE:
        case QZWFCD_ASNEEDED:
            if ((dest == QZWFCD_ASSOURCE && (rec.flags & QZWF_EXTENSIBLE)) ||
                is_custom_mask(rec.channelMask, rec.channels))
                base = kWfxeSize;
            break;
        case QZWFCD_MULTICHANNEL:
            if (rec.channels >= 3) base = kWfxeSize;
            break;
        case QZWFCD_EXTENSIBLE:
            base = kWfxeSize;
            break;
        default:
            break;
    }
    return base + record_extra_size(rec);
}

// The library's own temporary: a record read into 128 bytes.
void read_temporary(_qzwaveformat* tmp, const WAVEFORMATEX& wfx) {
    tmp->Init(QZWAVEFORMAT_TEMP_SIZE, wfx);
}

}  // namespace

QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_GeneralCopyWfx(WAVEFORMATEX* dst, UINT room,
                                                       const _qzwaveformat& rec,
                                                       QZWAVEFORMAT_COPY_DEST dest) {
    if (!dst) return dst;
    const DWORD mask = dest == QZWFCD_PLAIN ? 0 : rec.channelMask;
    const bool force = forces_extensible(dest, rec, room);
    if (rec.flags & QZWF_FOREIGN) {
        copy_foreign(dst, room, rec, mask, force);
        return dst;
    }
    const QZSAMPLETYPE type = QZSAMPLETYPE(rec.sampleType);
    const WORD tag = QzAudio_FormatTagFromSampleType(type);
    const WORD bits = WORD(QzAudio_BitsFromSampleType(type));
    if (force) {
        write_plain_wfx(dst, tag, rec.samplesPerSec, bits, rec.channels);
        make_extensible(dst, tag, mask);
    } else {
        QzAudio_InitWfxFlex(dst, tag, rec.samplesPerSec, bits, rec.channels, mask, room);
    }
    return dst;
}

QZ_API _qzwaveformat* QZ_STDCALL QzAudio_GeneralCopyQzWaveFormat(_qzwaveformat* dst, UINT room,
                                                                 const _qzwaveformat& src,
                                                                 QZWAVEFORMAT_COPY_DEST) {
    if (!dst) return dst;
    // A record is at least its 32-byte part; room beyond the largest
    // record would only be cleared.
    const DWORD capacity =
        std::clamp<DWORD>(room == 0 ? kRecordBase : room, kRecordBase, kRecordMax);
    // The source's bytes in use are its size (0 meaning 32), limited to
    // 32 + extraSize. That limit counts the extraSize field as if it were
    // not there, so the last two extra bytes are not copied and come out
    // zeroed; hosts have always seen records copied this way, so it stays.
    const WORD src_extra = record_extra_size(src);
    const DWORD src_size = src.size == 0 ? kRecordBase : src.size;
    const DWORD used = std::min<DWORD>(src_size, kRecordBase + src_extra);
    const DWORD copied = std::min(capacity, used);
    if (dst != &src) std::memmove(dst, &src, copied);
    std::memset(bytes_of(dst) + copied, 0, capacity - copied);
    dst->size = capacity;
    if (capacity >= kRecordWithExtra) {
        const DWORD extra_room =
            std::min<DWORD>(capacity - kRecordWithExtra, QZWAVEFORMAT_MAX_EXTRA);
        // Extra bytes are kept whole or not at all.
        if (extra_room < src_extra) dst->extraSize = 0;
    }
    dst->size = dst->size < kRecordWithExtra ? kRecordBase : kRecordBase + dst->extraSize;
    return dst;
}

QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_AllocAndCopyWfx(const _qzwaveformat& rec,
                                                        QZWAVEFORMAT_COPY_DEST dest) {
    const DWORD total = alloc_size(rec, dest);
    auto* wfx = static_cast<WAVEFORMATEX*>(qz::base::alloc_caller_block(total));
    if (!wfx) return nullptr;
    return QzAudio_GeneralCopyWfx(wfx, total, rec, dest);
}

QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_AllocAndCopyWfx(const _qzwaveformat* rec,
                                                        QZWAVEFORMAT_COPY_DEST dest) {
    return rec ? QzAudio_AllocAndCopyWfx(*rec, dest) : nullptr;
}

QZ_EXTERN_C QZ_API WAVEFORMATEX* QZ_STDCALL QzAudio_AllocAndCopyWfx(const WAVEFORMATEX* wfx,
                                                                    QZWAVEFORMAT_COPY_DEST dest) {
    if (!wfx) return nullptr;
    const bool extensible = wfx->wFormatTag == kTagExtensible;
    const bool keeps_form = dest == QZWFCD_ASSOURCE || (extensible && dest == QZWFCD_EXTENSIBLE) ||
                            (!extensible && (dest == QZWFCD_ASNEEDED || dest == QZWFCD_PLAIN));
    if (keeps_form) {
        // What the structure holds, not 18 + cbSize: PCM and float headers
        // the library wrote with codec bytes carry no length in cbSize, and
        // an extensible one is 40 bytes even when cbSize is short.
        const DWORD total = wfx_held_size(*wfx);
        void* copy = qz::base::alloc_caller_block(total);
        if (copy) std::memcpy(copy, wfx, total);
        return static_cast<WAVEFORMATEX*>(copy);
    }
    _qzwaveformat tmp;
    read_temporary(&tmp, *wfx);
    return QzAudio_AllocAndCopyWfx(tmp, dest);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzAudio_CopyWfx(WAVEFORMATEX* dst, UINT room,
                                                   const WAVEFORMATEX* src,
                                                   QZWAVEFORMAT_COPY_DEST dest) {
    if (!dst || !src) return;
    _qzwaveformat tmp;
    read_temporary(&tmp, *src);
    QzAudio_GeneralCopyWfx(dst, room, tmp, dest);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzAudio_CopyWfExt(WAVEFORMATEXTENSIBLE* dst,
                                                     const WAVEFORMATEX* src,
                                                     QZWAVEFORMAT_COPY_DEST dest) {
    QzAudio_CopyWfx(dst ? &dst->Format : nullptr, kWfxeSize, src, dest);
}

// ---- holders ----------------------------------------------------------------------

_qzwaveformat_wfxcopyhelper::_qzwaveformat_wfxcopyhelper(const _qzwaveformat& rec) : m_wfx{} {
    if (rec.flags & QZWF_FOREIGN) {
        m_wfx.wFormatTag = rec.formatTag;
        m_wfx.nChannels = rec.channels;
        m_wfx.nSamplesPerSec = rec.samplesPerSec;
        m_wfx.wBitsPerSample = rec.bitsPerSample;
        m_wfx.nBlockAlign = rec.blockAlign;
        m_wfx.nAvgBytesPerSec = rec.avgBytesPerSec;
        m_wfx.cbSize = 0;
        return;
    }
    const QZSAMPLETYPE type = QZSAMPLETYPE(rec.sampleType);
    // A room of 18 bytes keeps the result plain whatever the mask says.
    QzAudio_InitWfxFlex(&m_wfx, QzAudio_FormatTagFromSampleType(type), rec.samplesPerSec,
                        QzAudio_BitsFromSampleType(type), rec.channels, rec.channelMask, kWfxSize);
}

const WAVEFORMATEX* _qzwaveformat_wfxcopyhelper::wfx() const {
    return &m_wfx;
}

_qzwaveformat_wfxplus::_qzwaveformat_wfxplus() : m_bytes{} {}

const WAVEFORMATEX* _qzwaveformat_wfxplus::Init(const WAVEFORMATEX* source,
                                                QZWAVEFORMAT_COPY_DEST dest) {
    std::memset(m_bytes, 0, sizeof m_bytes);
    if (!source) return wfx();
    // A full-size record, so that no extra byte the holder could take is lost.
    _qzwaveformat tmp;
    tmp.Init(kRecordMax, *source);
    return Init(tmp, dest);
}

const WAVEFORMATEX* _qzwaveformat_wfxplus::Init(const _qzwaveformat& rec,
                                                QZWAVEFORMAT_COPY_DEST dest) {
    std::memset(m_bytes, 0, sizeof m_bytes);
    return QzAudio_GeneralCopyWfx(reinterpret_cast<WAVEFORMATEX*>(m_bytes), kRoom, rec, dest);
}

const WAVEFORMATEX* _qzwaveformat_wfxplus::wfx() const {
    return reinterpret_cast<const WAVEFORMATEX*>(m_bytes);
}

DWORD _qzwaveformat_wfxplus::Size() const {
    return std::min<DWORD>(wfx_held_size(*wfx()), kRoom);
}

_qzwaveformat_wfxecopyhelper::_qzwaveformat_wfxecopyhelper(const _qzwaveformat& rec) {
    Init(rec, QZWFCD_ASSOURCE);
}
