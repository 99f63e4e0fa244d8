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

inline void put16(Bytes& b, size_t at, uint32_t v) {
    if (b.size() < at + 2) b.resize(at + 2);
    b[at] = uint8_t(v);
    b[at + 1] = uint8_t(v >> 8);
}
inline void put32(Bytes& b, size_t at, uint32_t v) {
    if (b.size() < at + 4) b.resize(at + 4);
    for (int i = 0; i < 4; ++i) b[at + i] = uint8_t(v >> (8 * i));
}
inline void append(Bytes& b, const Bytes& more) {
    b.insert(b.end(), more.begin(), more.end());
}
inline void append32(Bytes& b, uint32_t v) {
    put32(b, b.size(), v);
}
inline void append_id(Bytes& b, const char (&id)[5]) {
    // A byte at a time: GCC 12 wrongly warns about inserting into an empty vector.
    for (int i = 0; i < 4; ++i) b.push_back(uint8_t(id[i]));
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
    put16(b, 0, w.tag);
    put16(b, 2, w.channels);
    put32(b, 4, w.rate);
    put32(b, 8, w.avg);
    put16(b, 12, w.align);
    put16(b, 14, w.bits);
    put16(b, 16, w.cb);
    if (w.extensible) {
        put16(b, 18, w.valid);
        put32(b, 20, w.mask);
        if (w.custom_guid) {
            b.insert(b.end(), w.guid, w.guid + 16);
        } else {
            put32(b, 24, w.sub);
            b.insert(b.end(), kFamilyTail, kFamilyTail + 12);
        }
    }
    append(b, w.extra);
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
