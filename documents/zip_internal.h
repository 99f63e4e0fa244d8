// The zip family's shared pieces: record signatures and sizes, and the
// text conversions of entry names.
#ifndef QZ_DOCUMENTS_ZIP_INTERNAL_H
#define QZ_DOCUMENTS_ZIP_INTERNAL_H

#include <cstdint>
#include <string>

#include "qz/qzzip.h"
#include "platform/win32api.h"

namespace qz::zip {

constexpr uint32_t kLocalHeaderId = 0x04034B50;
constexpr uint32_t kCentralHeaderId = 0x02014B50;
constexpr uint32_t kEndRecordId = 0x06054B50;
constexpr uint32_t kZip64EndLocatorId = 0x07064B50;
constexpr uint32_t kDataDescriptorId = 0x08074B50;

constexpr uint32_t kLocalHeaderBytes = 30;
constexpr uint32_t kCentralHeaderBytes = 46;
constexpr uint32_t kEndRecordBytes = 22;
constexpr uint32_t kMaxCommentBytes = 0xFFFF;

constexpr uint16_t kMethodStored = 0;
constexpr uint16_t kMethodDeflate = 8;

/* General-purpose flag bits. */
constexpr uint16_t kFlagEncrypted = 0x0001;
constexpr uint16_t kFlagDataDescriptor = 0x0008;
constexpr uint16_t kFlagUtf8Name = 0x0800;

/* Extra-field blocks the reader understands. */
constexpr uint16_t kExtraZip64 = 0x0001;
constexpr uint16_t kExtraUnicodePath = 0x7075;

/* Where the CRC-32 sits in a local header; the writer patches it and the
   two sizes after the data. */
constexpr uint32_t kLocalCrcOffset = 14;

/* Wide text of the platform's WCHAR type. */
using Text = std::basic_string<WCHAR>;

/* `text` in the ANSI code page (unrepresentable characters become '?'). */
std::string to_ansi(const Text& text);
/* The CRC-32 of `count` bytes. */
uint32_t crc_of(const BYTE* bytes, size_t count);

/* Name bytes read from an archive: UTF-8 or the ANSI code page. */
bool from_bytes(const char* bytes, size_t length, bool utf8, Text* text);

}  // namespace qz::zip

#endif
