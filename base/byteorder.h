/*
 * byteorder.h - loading and storing integers of a given byte order.
 *
 * Every on-disk record is read into a byte buffer and decoded field by
 * field through these helpers; nothing casts a file buffer to a struct.
 */
#ifndef QZ_BASE_BYTEORDER_H
#define QZ_BASE_BYTEORDER_H

#include <cstdint>
#include <cstring>

namespace qz::base {

enum class ByteOrder { Little, Big };

inline uint16_t load_le16(const void* p) {
    const auto* b = static_cast<const uint8_t*>(p);
    return static_cast<uint16_t>(b[0] | (b[1] << 8));
}
inline uint32_t load_le32(const void* p) {
    const auto* b = static_cast<const uint8_t*>(p);
    return uint32_t(b[0]) | (uint32_t(b[1]) << 8) | (uint32_t(b[2]) << 16) | (uint32_t(b[3]) << 24);
}
inline uint64_t load_le64(const void* p) {
    const auto* b = static_cast<const uint8_t*>(p);
    return uint64_t(load_le32(b)) | (uint64_t(load_le32(b + 4)) << 32);
}
inline uint16_t load_be16(const void* p) {
    const auto* b = static_cast<const uint8_t*>(p);
    return static_cast<uint16_t>((b[0] << 8) | b[1]);
}
inline uint32_t load_be32(const void* p) {
    const auto* b = static_cast<const uint8_t*>(p);
    return (uint32_t(b[0]) << 24) | (uint32_t(b[1]) << 16) | (uint32_t(b[2]) << 8) | uint32_t(b[3]);
}
inline uint64_t load_be64(const void* p) {
    const auto* b = static_cast<const uint8_t*>(p);
    return (uint64_t(load_be32(b)) << 32) | uint64_t(load_be32(b + 4));
}

inline void store_le16(void* p, uint16_t v) {
    auto* b = static_cast<uint8_t*>(p);
    b[0] = uint8_t(v);
    b[1] = uint8_t(v >> 8);
}
inline void store_le32(void* p, uint32_t v) {
    auto* b = static_cast<uint8_t*>(p);
    b[0] = uint8_t(v);
    b[1] = uint8_t(v >> 8);
    b[2] = uint8_t(v >> 16);
    b[3] = uint8_t(v >> 24);
}
inline void store_le64(void* p, uint64_t v) {
    auto* b = static_cast<uint8_t*>(p);
    store_le32(b, uint32_t(v));
    store_le32(b + 4, uint32_t(v >> 32));
}
inline void store_be16(void* p, uint16_t v) {
    auto* b = static_cast<uint8_t*>(p);
    b[0] = uint8_t(v >> 8);
    b[1] = uint8_t(v);
}
inline void store_be32(void* p, uint32_t v) {
    auto* b = static_cast<uint8_t*>(p);
    b[0] = uint8_t(v >> 24);
    b[1] = uint8_t(v >> 16);
    b[2] = uint8_t(v >> 8);
    b[3] = uint8_t(v);
}
inline void store_be64(void* p, uint64_t v) {
    auto* b = static_cast<uint8_t*>(p);
    store_be32(b, uint32_t(v >> 32));
    store_be32(b + 4, uint32_t(v));
}

/* Byte order chosen at run time (TIFF "II"/"MM"). */
inline uint16_t load16(const void* p, ByteOrder order) {
    return order == ByteOrder::Little ? load_le16(p) : load_be16(p);
}
inline uint32_t load32(const void* p, ByteOrder order) {
    return order == ByteOrder::Little ? load_le32(p) : load_be32(p);
}
inline uint64_t load64(const void* p, ByteOrder order) {
    return order == ByteOrder::Little ? load_le64(p) : load_be64(p);
}
inline void store16(void* p, uint16_t v, ByteOrder order) {
    order == ByteOrder::Little ? store_le16(p, v) : store_be16(p, v);
}
inline void store32(void* p, uint32_t v, ByteOrder order) {
    order == ByteOrder::Little ? store_le32(p, v) : store_be32(p, v);
}
inline void store64(void* p, uint64_t v, ByteOrder order) {
    order == ByteOrder::Little ? store_le64(p, v) : store_be64(p, v);
}

/*
 * A four-character code as the 32-bit word that compares equal to the
 * little-endian load of its four bytes in file order: fourcc("RIFF").
 */
constexpr uint32_t fourcc(const char (&s)[5]) {
    return uint32_t(uint8_t(s[0])) | (uint32_t(uint8_t(s[1])) << 8) |
           (uint32_t(uint8_t(s[2])) << 16) | (uint32_t(uint8_t(s[3])) << 24);
}
/* The same four characters as the big-endian load sees them (IFF). */
constexpr uint32_t fourcc_be(const char (&s)[5]) {
    return (uint32_t(uint8_t(s[0])) << 24) | (uint32_t(uint8_t(s[1])) << 16) |
           (uint32_t(uint8_t(s[2])) << 8) | uint32_t(uint8_t(s[3]));
}

}  // namespace qz::base

#endif
