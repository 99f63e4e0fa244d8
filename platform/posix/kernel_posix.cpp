// The kernel frame's needs from a POSIX system (see kernel_platform.h).
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fault_plan.h"
#include "kernel_platform.h"
#include "qz/qzkernel.h"
#include "win32_internal.h"

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

bool allocation_fault() {
    DWORD error = 0;
    if (!qz::posix::inject_fault(qz::testing::FaultOp::Alloc, &error)) return false;
    SetLastError(error);
    return true;
}

bool is_readable(const void* address, size_t bytes) {
    // The kernel reads the bytes for write(2) and answers EFAULT instead of
    // faulting; a pipe of our own takes them and gives them back.
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    bool readable = true;
    char sink[256];
    const char* p = static_cast<const char*>(address);
    while (readable && bytes > 0) {
        const size_t chunk = bytes < sizeof(sink) ? bytes : sizeof(sink);
        const ssize_t written = write(fds[1], p, chunk);
        readable = written > 0 && read(fds[0], sink, size_t(written)) == written;
        p += chunk;
        bytes -= chunk;
    }
    close(fds[0]);
    close(fds[1]);
    return readable;
}

// POSIX has no window classes, cursors or GDI objects, and no display
// information without a windowing library: those steps do nothing and the
// frame keeps its defaults.
void register_kernel_window_class(HMODULE) {}
void unregister_kernel_window_class(HMODULE) {}
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
