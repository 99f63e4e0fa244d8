// Module handles and file names.
//
// A module handle is the lowest address the loader mapped for an object:
// the executable's for a null name, and the shared library's own for
// qz::posix::library_module() (the executable's, when the library is linked
// in statically). Names come from the loader's list of objects; the
// executable's from /proc/self/exe, which, unlike the name it was started
// by, is always a full path.
#include <link.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "platform/posix/paths.h"

namespace qz::posix {

namespace {

struct Module {
    uintptr_t base = 0;
    uintptr_t end = 0; /* just past the last mapped segment */
    bool executable = false;
    std::string path;
};

// The loader lists the executable first.
int collect_module(dl_phdr_info* info, size_t, void* data) {
    auto* modules = static_cast<std::vector<Module>*>(data);
    Module m;
    m.executable = modules->empty();
    uintptr_t low = UINTPTR_MAX;
    uintptr_t high = 0;
    for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD) continue;
        low = std::min<uintptr_t>(low, info->dlpi_addr + segment.p_vaddr);
        high = std::max<uintptr_t>(high, info->dlpi_addr + segment.p_vaddr + segment.p_memsz);
    }
    if (low == UINTPTR_MAX) return 0;  // nothing mapped
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    m.base = low & ~(page - 1);
    m.end = high;
    if (info->dlpi_name) m.path = info->dlpi_name;
    modules->push_back(std::move(m));
    return 0;
}

std::string executable_path() {
    std::string path(PATH_MAX, '\0');
    for (;;) {
        const ssize_t n = readlink("/proc/self/exe", path.data(), path.size());
        if (n < 0) return std::string();
        if (static_cast<size_t>(n) < path.size()) {
            path.resize(static_cast<size_t>(n));
            return path;
        }
        path.resize(path.size() * 2);
    }
}

// The loaded objects with full paths. May throw std::bad_alloc.
std::vector<Module> loaded_modules() {
    std::vector<Module> modules;
    modules.reserve(64);
    // The callback may run out of memory; the loader's lock must not be
    // left by an exception, so it stops at a vector that cannot grow.
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t size, void* data) -> int {
            try {
                return collect_module(info, size, data);
            } catch (const std::bad_alloc&) {
                return 1;
            }
        },
        &modules);
    for (Module& m : modules) {
        if (m.executable) {
            m.path = executable_path();
        } else if (!m.path.empty() && m.path[0] != '/') {
            // Loaded by a relative name: report where it really is.
            char resolved[PATH_MAX];
            if (realpath(m.path.c_str(), resolved)) m.path = resolved;
        }
    }
    return modules;
}

const Module* find_base(const std::vector<Module>& modules, uintptr_t base) {
    for (const Module& m : modules) {
        if (m.base == base) return &m;
    }
    return nullptr;
}

std::string file_name_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

HMODULE handle_of(const Module& m) {
    return reinterpret_cast<HMODULE>(m.base);
}

DWORD module_not_found() {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return 0;
}

// Copies the UTF-16 form of `path` as GetModuleFileNameW reports it: the
// length without the terminator, or, when it does not fit, as much as fits
// with a terminator, the buffer size and ERROR_INSUFFICIENT_BUFFER.
DWORD copy_path(const std::string& path, LPWSTR buffer, DWORD size) {
    const int needed =
        MultiByteToWideChar(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), nullptr, 0);
    if (needed <= 0) return 0;
    std::u16string wide(static_cast<size_t>(needed), u'\0');
    MultiByteToWideChar(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), wide.data(),
                        needed);
    const DWORD length = static_cast<DWORD>(wide.size());
    const DWORD copied = length < size ? length : size - 1;
    wide.copy(buffer, copied);
    buffer[copied] = 0;
    if (copied == length) return length;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

}  // namespace

HMODULE library_module() {
    static const HMODULE module = [] {
        const auto here = reinterpret_cast<uintptr_t>(&library_module);
        try {
            for (const Module& m : loaded_modules()) {
                if (here >= m.base && here < m.end) return handle_of(m);
            }
        } catch (const std::bad_alloc&) {
        }
        return HMODULE{};
    }();
    return module;
}

}  // namespace qz::posix

using namespace qz::posix;

QZ_EXTERN_C DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) {
    if (size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (!buffer) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    try {
        const std::vector<Module> modules = loaded_modules();
        const Module* m = module ? find_base(modules, reinterpret_cast<uintptr_t>(module))
                                 : (modules.empty() ? nullptr : &modules.front());
        if (!m || m->path.empty()) return module_not_found();
        return copy_path(m->path, buffer, size);
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
}

// A name with a folder must match a module's full path; a bare file name
// matches the last part of the path. Names are compared exactly, as file
// names are on POSIX systems.
QZ_EXTERN_C HMODULE GetModuleHandleW(LPCWSTR name) {
    try {
        const std::vector<Module> modules = loaded_modules();
        if (!name) {
            if (!modules.empty()) return handle_of(modules.front());
            module_not_found();
            return nullptr;
        }
        std::string native;
        if (!path_to_native(name, &native)) return nullptr;
        const bool full_path = native.find('/') != std::string::npos;
        for (const Module& m : modules) {
            if (m.path.empty()) continue;
            if (full_path ? m.path == native : file_name_of(m.path) == native) {
                return handle_of(m);
            }
        }
        module_not_found();
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return nullptr;
}
