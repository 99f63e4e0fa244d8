// Internal side of the library frame: the per-process state, the attach
// and detach sequences that DllMain and the POSIX load hooks run, the
// per-thread table, and the processor probe.
#ifndef QZ_KERNEL_FRAME_H
#define QZ_KERNEL_FRAME_H

#include "kernel/settings.h"
#include "platform/platform.h"
#include "qz/qzkernel.h"
#include "qz/qzlist.h"

namespace qz::frame {

constexpr int kCursorSlots = 58;
constexpr int kMoreCursorSlots = 50;
// The internal setting early initialisation resets.
constexpr DWORD kInternalSettingDefault = 100;
// The kernel's window class, registered on its module at load time.
inline constexpr WCHAR kWindowClassName[] = QZTEXT("QzKrn_ExplorerEx_Class");
// The host under which the window steps are skipped.
inline constexpr WCHAR kRunDllName[] = QZTEXT("RunDLL32.exe");

// One copy per process. Written by the attach sequence and early
// initialisation before clients run, read without locks afterwards. The
// kernel's language instance is kept by the language service
// (qz::lang::kernel_instance). Constant-initialised, so the load hooks can
// use it before any constructor of the library has run.
struct ProcessState {
    HMODULE kernel_module = nullptr;
    HMODULE app_instance = nullptr;
    DWORD init_flags = 0;
    DWORD startup_mode = 0;
    BOOL old_platform = FALSE;
    DWORD processor_features = 0;
    DWORD probe_result = 0;
    bool probe_ran = false;
    DWORD permitted_mask = QZCPU_ALL;
    DWORD forced_mask = 0;
    HWND splash = nullptr;
    HQZMETRIC settings = nullptr;
    BOOL hosted_by_rundll = FALSE;
    tQZLIST* registered_objects = nullptr;
    tQZLIST* thread_table = nullptr;
    // Without display information (POSIX) the state keeps these defaults.
    bool display_known = false;
    BOOL high_colour = TRUE;
    DWORD monitor_state = 1;
    DWORD internal_setting = 0;
    qz::platform::ColourObjects colours = {};
    bool colours_created = false;
    DWORD colour_generation = 0;  // counts re-creations, for hosts that cache
    HCURSOR cursors[kCursorSlots] = {};
    HCURSOR more_cursors[kMoreCursorSlots] = {};
};

ProcessState& state();

// A per-thread table entry: the thread, the size of its block, the block.
struct ThreadEntry {
    DWORD thread_id;
    DWORD_PTR bytes;
    HGLOBAL block;
};

#if defined(_WIN32) && !defined(_WIN64)
static_assert(sizeof(ThreadEntry) == 12, "per-thread entries are 12 bytes on 32-bit Windows");
#endif

// The calling thread's zeroed block of at least `bytes` bytes, created on
// first use and freed when the thread ends (or at unload); null when there
// is no per-thread table or no memory.
void* thread_storage(SIZE_T bytes);

// The high-colour flag, computed on first use.
BOOL high_colour();

// The processor probe: CPUID feature bits of the vector extensions that the
// operating system supports (QZCPU_...); 0 on other processors.
DWORD probe_processor();

// The window steps of the attach and detach sequences, replaceable by tests.
struct WindowSteps {
    void (*register_class)(HMODULE kernel_module);
    void (*unregister_class)(HMODULE kernel_module);
};
const WindowSteps& platform_window_steps();

// True when the executable's file name is RunDLL32.exe, in any case.
bool is_rundll_host(LPCWSTR host_path);

// The entry-point sequences. The loader glue runs them through the
// platform's hooks (qz::platform::on_process_attach and the others), which
// read the host's path from the system and use the platform's window steps.
BOOL process_attach(HMODULE kernel_module, LPCWSTR host_path, const WindowSteps& steps);
void thread_detach();
BOOL process_detach(const WindowSteps& steps);

// Replaces the processor probe (tests); null restores the real one.
void set_processor_probe(DWORD (*probe)());
// Replaces the "system too old" test (tests); null restores the real one.
void set_system_check(bool (*too_old)());

}  // namespace qz::frame

#endif
