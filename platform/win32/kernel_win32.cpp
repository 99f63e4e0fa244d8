// The kernel frame's needs from Windows (see platform.h).
#include <string>

#include "platform/platform.h"
#include "platform/win32api.h"

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

void register_window_class(HMODULE kernel_module, LPCWSTR class_name) {
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = DefWindowProcW;
    window_class.hInstance = kernel_module;
    window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    window_class.lpszClassName = class_name;
    RegisterClassExW(&window_class);
}

void unregister_window_class(HMODULE kernel_module, LPCWSTR class_name) {
    UnregisterClassW(class_name, kernel_module);
}

bool is_old_platform() {
    return (GetVersion() & 0x80000000u) != 0;
}

bool is_too_old_system() {
    return LOBYTE(LOWORD(GetVersion())) < 4;
}

namespace {

BOOL CALLBACK count_monitor(HMONITOR, HDC, LPRECT, LPARAM count) {
    ++*reinterpret_cast<DWORD*>(count);
    return TRUE;
}

// The system colours the kernel draws with.
constexpr int kColourIndexes[kColourObjectCount] = {COLOR_BTNFACE, COLOR_BTNSHADOW,
                                                    COLOR_BTNHIGHLIGHT, COLOR_WINDOW};

}  // namespace

bool display_state(BOOL* high_colour, DWORD* monitors) {
    HDC screen = GetDC(nullptr);
    if (!screen) return false;
    *high_colour = GetDeviceCaps(screen, BITSPIXEL) >= 16 ? TRUE : FALSE;
    ReleaseDC(nullptr, screen);
    DWORD count = 0;
    EnumDisplayMonitors(nullptr, nullptr, count_monitor, reinterpret_cast<LPARAM>(&count));
    *monitors = count;
    return true;
}

void create_colour_objects(ColourObjects* objects) {
    for (int i = 0; i < kColourObjectCount; ++i)
        objects->objects[i] = CreateSolidBrush(GetSysColor(kColourIndexes[i]));
}

void release_colour_objects(ColourObjects* objects) {
    for (HANDLE& object : objects->objects) {
        if (object) DeleteObject(static_cast<HGDIOBJ>(object));
        object = nullptr;
    }
}

void set_arrow_cursor() {
    SetCursor(LoadCursorW(nullptr, IDC_ARROW));
}

void destroy_cursor(HCURSOR cursor) {
    DestroyCursor(cursor);
}

// A peek that removes nothing still delivers the sent messages it passes.
void serve_sent_messages() {
    MSG message;
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
}

}  // namespace qz::platform
