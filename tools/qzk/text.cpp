// Text helpers shared by the qzk subcommands.
#include <algorithm>
#include <cstdio>

#include "tools/qzk/qzk.h"

namespace qzk {

std::string utf8(const WCHAR* text) {
    std::string out;
    if (!text) return out;
    for (size_t i = 0; text[i]; ++i) {
        uint32_t c = uint16_t(text[i]);
        if (c >= 0xD800 && c < 0xDC00 && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (uint16_t(text[i + 1]) - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD;
        }
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18));
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string utf8(const std::basic_string<WCHAR>& text) {
    return utf8(text.c_str());
}

std::basic_string<WCHAR> utf16(const std::string& text) {
    std::basic_string<WCHAR> out;
    for (size_t i = 0; i < text.size();) {
        const auto b = uint8_t(text[i]);
        uint32_t c = 0xFFFD;
        size_t n = 1;
        if (b < 0x80) {
            c = b;
        } else if ((b >> 5) == 6 && i + 1 < text.size()) {
            c = ((b & 0x1F) << 6) | (uint8_t(text[i + 1]) & 0x3F);
            n = 2;
        } else if ((b >> 4) == 14 && i + 2 < text.size()) {
            c = ((b & 0x0F) << 12) | ((uint8_t(text[i + 1]) & 0x3F) << 6) |
                (uint8_t(text[i + 2]) & 0x3F);
            n = 3;
        } else if ((b >> 3) == 30 && i + 3 < text.size()) {
            c = ((b & 0x07) << 18) | ((uint8_t(text[i + 1]) & 0x3F) << 12) |
                ((uint8_t(text[i + 2]) & 0x3F) << 6) | (uint8_t(text[i + 3]) & 0x3F);
            n = 4;
        }
        i += n;
        if (c >= 0x10000) {
            out += WCHAR(0xD800 + ((c - 0x10000) >> 10));
            out += WCHAR(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += WCHAR(c);
        }
    }
    return out;
}

std::string json_quote(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", c);
                    out += buf;
                } else {
                    out += char(c);
                }
        }
    }
    return out + "\"";
}

std::string hex_code(HRESULT code) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%08X", unsigned(code));
    return buf;
}

int fail(const char* command, HRESULT code, const std::string& context) {
    const std::string text = message_text(code);
    const std::string hex = hex_code(code);
    std::fprintf(stderr, "qzk %s: %s%s", command, context.c_str(), context.empty() ? "" : ": ");
    if (text.empty())
        std::fprintf(stderr, "%s\n", hex.c_str());
    else
        std::fprintf(stderr, "%s (%s)\n", text.c_str(), hex.c_str());
    return 1;
}

bool take_flag(Args& args, const std::string& flag) {
    auto it = std::find(args.begin(), args.end(), flag);
    if (it == args.end()) return false;
    args.erase(it);
    return true;
}

}  // namespace qzk
