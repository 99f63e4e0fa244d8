/*
 * kernel_platform.h - what the kernel frame asks of the operating system
 * beyond the Win32 subset: the user's locale, the default message box, the
 * window-related start-up steps, display state and the settings backend.
 * platform/posix/ and platform/win32/ each implement every function here.
 */
#ifndef QZ_PLATFORM_KERNEL_PLATFORM_H
#define QZ_PLATFORM_KERNEL_PLATFORM_H

#include <map>
#include <string>

#include "qz/qzdefs.h"

namespace qz::platform {

/*
 * The user's locale as "ll" or "ll_CC" (ISO 639 language, ISO 3166
 * territory), for example "de_DE"; empty when the system names none.
 */
std::string user_locale_name();

/*
 * The message box shown when the host installed no handler: MessageBoxW on
 * Windows; on POSIX caption and text on standard error, answering IDOK.
 */
int show_default_message_box(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style);

/*
 * True when the test fault plan fails this allocation of the kernel's
 * standard allocator (POSIX test builds); always false on Windows.
 */
bool allocation_fault();

/* True when `bytes` bytes at `address` can be read without a fault. */
bool is_readable(const void* address, size_t bytes);

/* ---- start-up and shut-down ------------------------------------------------ */

/*
 * The window class the kernel registers on its module at load time, unless
 * it is hosted by RunDLL32.exe. POSIX has no window classes and does nothing.
 */
void register_kernel_window_class(HMODULE kernel_module);
void unregister_kernel_window_class(HMODULE kernel_module);

/* The host runs the Windows 95 line of the operating system. */
bool is_old_platform();
/* The operating system predates Windows 95 and NT 4.0. */
bool is_too_old_system();

/*
 * Makes the thread-detach sequence run when the calling thread ends. On
 * Windows the loader reports every thread; on POSIX only threads that asked
 * the kernel for per-thread storage are watched.
 */
void watch_thread_exit();

/* ---- display state and drawing objects ---------------------------------------- */

/*
 * The screen's colour depth (TRUE for 16 bits per pixel or more) and the
 * number of display monitors; false when the system offers neither.
 */
bool display_state(BOOL* high_colour, DWORD* monitors);

/* The kernel's cached system-colour drawing objects (solid brushes on Windows). */
constexpr int kColourObjectCount = 4;
struct ColourObjects {
    HANDLE objects[kColourObjectCount];
};
void create_colour_objects(ColourObjects* objects);
/* Deletes the objects and clears the slots. */
void release_colour_objects(ColourObjects* objects);

/* Sets the standard arrow cursor, and destroys a cursor the kernel loaded. */
void set_arrow_cursor();
void destroy_cursor(HCURSOR cursor);

/*
 * Serves the messages other threads sent to the calling thread, removing
 * nothing else from its message queue. POSIX threads have no message queue.
 */
void serve_sent_messages();

/* ---- the settings store's backend ------------------------------------------------ */

struct SettingValue {
    bool is_number = false;
    DWORD number = 0;
    std::basic_string<WCHAR> text;
};
using SettingValues = std::map<std::basic_string<WCHAR>, SettingValue>;

/* Where a store lives: per product, version and section. */
struct SettingsLocation {
    std::basic_string<WCHAR> product;
    DWORD version = 0;
    std::basic_string<WCHAR> section;
};

/*
 * Reads every value of a store into *values: S_OK, S_FALSE when nothing is
 * stored yet, or a failure code when the store cannot be read.
 */
HRESULT load_settings(const SettingsLocation& location, SettingValues* values);
/*
 * Makes value `changed` of `values` (absent there: removed) persistent.
 * A backend may write the whole set.
 */
HRESULT save_setting(const SettingsLocation& location, const SettingValues& values,
                     const std::basic_string<WCHAR>& changed);

}  // namespace qz::platform

#endif
