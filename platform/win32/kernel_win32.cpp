// The kernel frame's needs from Windows (see kernel_platform.h).
#include <string>

#include "kernel_platform.h"
#include "win32api.h"

namespace qz::platform {

namespace {

std::string locale_info(LCTYPE type) {
    wchar_t value[16] = {};
    const int n = GetLocaleInfoW(LOCALE_USER_DEFAULT, type, value, 16);
    std::string out;
    for (int i = 0; i + 1 < n && value[i]; ++i) out += char(value[i] < 0x80 ? value[i] : '?');
    return out;
}

}  // namespace

std::string user_locale_name() {
    std::string language = locale_info(LOCALE_SISO639LANGNAME);
    const std::string territory = locale_info(LOCALE_SISO3166CTRYNAME);
    if (!language.empty() && !territory.empty()) language += "_" + territory;
    return language;
}

int show_default_message_box(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style) {
    return MessageBoxW(owner, text, caption, style);
}

}  // namespace qz::platform
