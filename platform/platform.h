/*
 * platform.h - the platform contract: what the library's families ask of
 * the operating system beyond the Win32 subset of win32api.h. The entry
 * hooks the loader glue calls, the user's locale and default message box,
 * memory and process facts for the dumps and the list's validity check,
 * the window-related start-up steps, display state, and the settings
 * backend. platform/posix/ and platform/win32/ each implement every
 * function here except the entry hooks, which the kernel frame defines;
 * the platform includes nothing of the layers above it.
 */
#ifndef QZ_PLATFORM_PLATFORM_H
#define QZ_PLATFORM_PLATFORM_H

#include <cstddef>
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

/* ---- memory and process facts -------------------------------------------------- */

/*
 * The memory probe of the dumps and of the list's validity check: copies
 * `bytes` bytes from `address` into `out` when every one of them can be
 * read. Returns false otherwise; unreadable memory is never accessed (the
 * operating system is asked), so a bad address cannot fault, and a guard
 * page keeps its guard.
 */
bool read_memory(const void* address, void* out, size_t bytes);

struct ModuleInfo {
    const void* base;     /* load address of the module */
    WCHAR path[MAX_PATH]; /* its file path, cut to fit */
};

/* The module (executable or shared library) whose image holds `address`. */
bool module_from_address(const void* address, ModuleInfo* info);

/* The calling thread's stack region: lowest and one-past-highest address. */
bool current_thread_stack(const void** low, const void** high);

/* True while a debugger is attached to the process. */
bool debugger_present();

/* The line end a text-mode file gets for "\n" on this platform. */
#if defined(_WIN32)
inline constexpr char kTextLineEnd[] = "\r\n";
#else
inline constexpr char kTextLineEnd[] = "\n";
#endif

/* ---- start-up and shut-down ------------------------------------------------ */

/*
 * The library's entry sequences. The loader glue (DllMain on Windows, the
 * load and unload hooks and the thread-exit hook on POSIX) calls them; the
 * kernel frame defines them, so the platform needs nothing from the frame.
 * Process attach answers FALSE to refuse the load (Windows only: a POSIX
 * load cannot be refused).
 */
BOOL on_process_attach(HMODULE kernel_module);
void on_thread_detach();
BOOL on_process_detach();

/*
 * Registers and unregisters a window class on the kernel's module (the
 * frame's, at load time, unless hosted by RunDLL32.exe). POSIX has no
 * window classes and does nothing.
 */
void register_window_class(HMODULE kernel_module, LPCWSTR class_name);
void unregister_window_class(HMODULE kernel_module, LPCWSTR class_name);

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
