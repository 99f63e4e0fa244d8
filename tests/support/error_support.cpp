#include "tests/support/error_support.h"

#include <cstdio>

namespace qz::testing {

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

int QZ_STDCALL MessageBoxCapture::handler(void* context, HWND owner, LPCWSTR text, LPCWSTR caption,
                                          UINT style) {
    auto* self = static_cast<MessageBoxCapture*>(context);
    const WString null = QZTEXT("<null>");
    self->boxes_.push_back({text ? text : null, caption ? caption : null, style, owner});
    return self->answer_;
}

std::string hex_address(const void* address) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%0*llX", int(2 * sizeof(void*)),
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address)));
    return buf;
}

}  // namespace qz::testing
