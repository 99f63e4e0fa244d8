// The kernel frame's needs from a POSIX system (see platform.h).
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/platform.h"
#include "platform/posix/win32_internal.h"
#include "qz/qzkernel.h"

namespace qz::platform {

namespace {

std::string to_utf8(LPCWSTR text) {
    std::string out;
    if (!text || !text[0]) return out;
    const int needed = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (needed <= 1) return out;
    out.resize(size_t(needed));
    WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), needed, nullptr, nullptr);
    out.resize(size_t(needed - 1));
    return out;
}

}  // namespace

std::string user_locale_name() {
    // The same precedence the C library gives the message catalogues.
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (value && value[0]) return value;
    }
    return {};
}

int show_default_message_box(HWND, LPCWSTR text, LPCWSTR caption, UINT) {
    const std::string caption8 = to_utf8(caption);
    const std::string text8 = to_utf8(text);
    if (caption8.empty())
        std::fprintf(stderr, "%s\n", text8.c_str());
    else
        std::fprintf(stderr, "%s: %s\n", caption8.c_str(), text8.c_str());
    return IDOK;
}

// POSIX has no window classes, cursors or GDI objects, and no display
// information without a windowing library: those steps do nothing and the
// frame keeps its defaults.
void register_window_class(HMODULE, LPCWSTR) {}
void unregister_window_class(HMODULE, LPCWSTR) {}
bool display_state(BOOL*, DWORD*) {
    return false;
}
void create_colour_objects(ColourObjects* objects) {
    *objects = {};
}
void release_colour_objects(ColourObjects* objects) {
    *objects = {};
}
void set_arrow_cursor() {}
void destroy_cursor(HCURSOR) {}
void serve_sent_messages() {}

// Neither the Windows 95 line nor a system older than it.
bool is_old_platform() {
    return false;
}
bool is_too_old_system() {
    return false;
}

}  // namespace qz::platform
