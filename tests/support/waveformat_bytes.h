// Wave-format structures written out byte by byte for the tests, with an
// encoder of their own, so that expected bytes do not come from the code
// under test.
#ifndef QZ_TESTS_SUPPORT_WAVEFORMAT_BYTES_H
#define QZ_TESTS_SUPPORT_WAVEFORMAT_BYTES_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "qz/qzdefs.h"

namespace qz::testing {

using Bytes = std::vector<uint8_t>;

// `v` as `n` little-endian bytes on the end of `b`.
inline void put(Bytes& b, uint32_t v, int n) {
    for (int i = 0; i < n; ++i) b.push_back(uint8_t(v >> (8 * i)));
}

constexpr uint8_t kFamilyTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                     0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

/*
 * A WAVEFORMATEX, or a WAVEFORMATEXTENSIBLE when `extensible` is set, as the
 * bytes a file or a caller holds. `cb` is written as given; `extra` follows
 * the 18 or 40 bytes. The sub-format is the wave-tag family's GUID for
 * `sub`, or `guid` when `custom_guid` is set.
 */
struct Wfx {
    uint16_t tag = 0;
    uint16_t channels = 0;
    uint32_t rate = 0;
    uint32_t avg = 0;
    uint16_t align = 0;
    uint16_t bits = 0;
    uint16_t cb = 0;
    bool extensible = false;
    uint16_t valid = 0;
    uint32_t mask = 0;
    uint16_t sub = 0;
    bool custom_guid = false;
    uint8_t guid[16] = {};
    Bytes extra;
};

inline Bytes encode(const Wfx& w) {
    Bytes b;
    for (uint32_t v : {w.tag, w.channels}) put(b, v, 2);
    for (uint32_t v : {w.rate, w.avg}) put(b, v, 4);
    for (uint32_t v : {w.align, w.bits, w.cb}) put(b, v, 2);
    if (w.extensible) {
        put(b, w.valid, 2);
        put(b, w.mask, 4);
        if (w.custom_guid) {
            b.insert(b.end(), w.guid, w.guid + 16);
        } else {
            put(b, w.sub, 4);
            b.insert(b.end(), kFamilyTail, kFamilyTail + 12);
        }
    }
    b.insert(b.end(), w.extra.begin(), w.extra.end());
    return b;
}

/* Plain PCM-style structure: blockAlign and byte rate from the arguments. */
inline Wfx plain(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits) {
    Wfx w;
    w.tag = tag;
    w.channels = channels;
    w.rate = rate;
    w.bits = bits;
    w.align = uint16_t(bits / 8 * channels);
    w.avg = w.align * rate;
    return w;
}

/* The extensible form of `base` with sub-format `sub` and mask. */
inline Wfx extensible(Wfx base, uint16_t sub, uint32_t mask, uint16_t valid) {
    base.tag = 0xFFFE;
    base.extensible = true;
    base.cb = 22;
    base.sub = sub;
    base.mask = mask;
    base.valid = valid;
    return base;
}

/* A zeroed, aligned buffer holding `bytes`, large enough to be read as any structure. */
struct WfxBuffer {
    alignas(8) uint8_t data[2048] = {};
    explicit WfxBuffer(const Bytes& bytes) { std::memcpy(data, bytes.data(), bytes.size()); }
    const WAVEFORMATEX* wfx() const { return reinterpret_cast<const WAVEFORMATEX*>(data); }
    WAVEFORMATEX* wfx() { return reinterpret_cast<WAVEFORMATEX*>(data); }
};

}  // namespace qz::testing

#endif
