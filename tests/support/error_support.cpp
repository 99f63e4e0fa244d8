#include "support/error_support.h"

#include <cstdio>

namespace qz::test {

WString wide(const std::string& text) {
    WString out;
    for (size_t i = 0; i < text.size();) {
        const auto b = static_cast<unsigned char>(text[i]);
        char32_t c = b;
        size_t n = 1;
        if (b >= 0xF0 && i + 3 < text.size()) {
            c = ((b & 0x07u) << 18) | ((text[i + 1] & 0x3Fu) << 12) | ((text[i + 2] & 0x3Fu) << 6) |
                (text[i + 3] & 0x3Fu);
            n = 4;
        } else if (b >= 0xE0 && i + 2 < text.size()) {
            c = ((b & 0x0Fu) << 12) | ((text[i + 1] & 0x3Fu) << 6) | (text[i + 2] & 0x3Fu);
            n = 3;
        } else if (b >= 0xC0 && i + 1 < text.size()) {
            c = ((b & 0x1Fu) << 6) | (text[i + 1] & 0x3Fu);
            n = 2;
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

std::string narrow(const WCHAR* text) {
    std::string out;
    if (!text) return "(null)";
    for (; *text; ++text) {
        const auto c = static_cast<char32_t>(*text);
        if (c < 0x80) {
            out += char(c);
        } else {
            char buf[12];
            std::snprintf(buf, sizeof buf, "\\u%04X", unsigned(c));
            out += buf;
        }
    }
    return out;
}

WString expanded(const WString& text) {
    std::vector<WCHAR> buffer(text.size() + 4096);
    QzLang_ExpandText(text.c_str(), buffer.data(), int(buffer.size()));
    return buffer.data();
}

MessageBoxCapture::MessageBoxCapture(int answer) : answer_(answer) {
    QzKernel_SetMessageBoxHandler(&MessageBoxCapture::handler, this);
}

MessageBoxCapture::~MessageBoxCapture() {
    QzKernel_SetMessageBoxHandler(nullptr, nullptr);
}

int QZ_STDCALL MessageBoxCapture::handler(void* context, HWND, LPCWSTR text, LPCWSTR caption,
                                          UINT style) {
    auto* self = static_cast<MessageBoxCapture*>(context);
    self->boxes_.push_back({text ? text : WString(), caption ? caption : WString(), style});
    return self->answer_;
}

std::string hex_address(const void* address) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%0*llX", int(2 * sizeof(void*)),
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address)));
    return buf;
}

}  // namespace qz::test
