// Process facts for the dumps on Windows: readable memory, modules, the
// thread's stack and an attached debugger.
#include "platform/platform.h"

#include <windows.h>

#include <cstring>

namespace qz::platform {

namespace {

constexpr DWORD kReadable = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                            PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;

// Asks the memory manager instead of probing: a probe of a guard page would
// take the guard away from the stack it protects.
bool readable(const void* address, size_t bytes) {
    auto at = reinterpret_cast<ULONG_PTR>(address);
    const ULONG_PTR end = at + bytes;
    if (end < at) return false;
    while (at < end) {
        MEMORY_BASIC_INFORMATION info;
        if (VirtualQuery(reinterpret_cast<LPCVOID>(at), &info, sizeof info) != sizeof info)
            return false;
        if (info.State != MEM_COMMIT || (info.Protect & PAGE_GUARD) ||
            (info.Protect & kReadable) == 0)
            return false;
        at = reinterpret_cast<ULONG_PTR>(info.BaseAddress) + info.RegionSize;
    }
    return true;
}

}  // namespace

bool read_memory(const void* address, void* out, size_t bytes) {
    if (bytes == 0) return true;
    if (!address || !out || !readable(address, bytes)) return false;
    std::memcpy(out, address, bytes);
    return true;
}

bool module_from_address(const void* address, ModuleInfo* info) {
    if (!info || !address) return false;
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            static_cast<LPCWSTR>(address), &module))
        return false;
    info->base = module;
    const DWORD n = GetModuleFileNameW(module, info->path, MAX_PATH);
    info->path[n < MAX_PATH ? n : MAX_PATH - 1] = 0;
    return true;
}

bool current_thread_stack(const void** low, const void** high) {
    // The stack is one reservation: its allocation base is the low end, and
    // the regions that share that base run up to the high end.
    MEMORY_BASIC_INFORMATION info = {};
    if (VirtualQuery(&info, &info, sizeof info) != sizeof info) return false;
    const PVOID base = info.AllocationBase;
    auto end = reinterpret_cast<ULONG_PTR>(info.BaseAddress) + info.RegionSize;
    for (;;) {
        MEMORY_BASIC_INFORMATION next;
        if (VirtualQuery(reinterpret_cast<LPCVOID>(end), &next, sizeof next) != sizeof next ||
            next.AllocationBase != base)
            break;
        end = reinterpret_cast<ULONG_PTR>(next.BaseAddress) + next.RegionSize;
    }
    if (low) *low = base;
    if (high) *high = reinterpret_cast<const void*>(end);
    return true;
}

bool debugger_present() {
    // Looked up once: the call is missing from the oldest Windows releases.
    using Probe = BOOL(WINAPI*)(void);
    static const Probe probe = [] {
        const HMODULE kernel = GetModuleHandleW(L"KERNEL32");
        return kernel ? reinterpret_cast<Probe>(
                            reinterpret_cast<void*>(GetProcAddress(kernel, "IsDebuggerPresent")))
                      : nullptr;
    }();
    return probe && probe();
}

}  // namespace qz::platform
