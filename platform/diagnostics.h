/*
 * diagnostics.h - what the error handler's dumps and the log need to know
 * about the running process that Win32 and POSIX answer differently:
 * whether memory can be read (found out without touching it), which module
 * holds an address, where the calling thread's stack lies, whether a
 * debugger is attached, and how a text file ends its lines.
 *
 * Implemented in posix/diagnostics_posix.cpp and win32/diagnostics_win32.cpp.
 */
#ifndef QZ_PLATFORM_DIAGNOSTICS_H
#define QZ_PLATFORM_DIAGNOSTICS_H

#include <cstddef>

#include "qz/qzdefs.h"

namespace qz::os {

/*
 * Copies `bytes` bytes from `address` into `out` when every one of them can
 * be read. Returns false otherwise; unreadable memory is never accessed
 * (the operating system is asked), so a bad address cannot fault.
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

}  // namespace qz::os

#endif
