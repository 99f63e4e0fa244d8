// Entry names between the archive's 8-bit text and the interface's UTF-16.
#include <zlib.h>

#include "documents/zip_internal.h"

namespace qz::zip {

std::string to_ansi(const Text& text) {
    if (text.empty()) return std::string();
    const int length =
        WideCharToMultiByte(CP_ACP, 0, text.data(), int(text.size()), nullptr, 0, nullptr, nullptr);
    if (length <= 0) return std::string(text.size(), '?');
    std::string bytes(size_t(length), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), int(text.size()), bytes.data(), length, nullptr,
                        nullptr);
    return bytes;
}

uint32_t crc_of(const BYTE* bytes, size_t count) {
    uLong crc = crc32(0, nullptr, 0);
    while (count > 0) {
        const uInt piece = uInt(count > 0x40000000u ? 0x40000000u : count);
        crc = crc32(crc, bytes, piece);
        bytes += piece;
        count -= piece;
    }
    return uint32_t(crc);
}

bool from_bytes(const char* bytes, size_t length, bool utf8, Text* text) {
    text->clear();
    if (length == 0) return true;
    const UINT code_page = utf8 ? CP_UTF8 : CP_ACP;
    const int units = MultiByteToWideChar(code_page, 0, bytes, int(length), nullptr, 0);
    if (units <= 0) return false;
    text->resize(size_t(units));
    return MultiByteToWideChar(code_page, 0, bytes, int(length), text->data(), units) == units;
}

}  // namespace qz::zip
