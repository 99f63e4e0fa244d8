// The library entry sequences that DllMain (Windows) and the load hooks
// (POSIX) run, through the entry hooks defined at the end of this file:
// process attach and detach, thread detach, and the per-thread table
// behind per-thread storage.
#include <cstring>

#include "kernel/frame.h"
#include "kernel/lang.h"
#include "platform/win32api.h"

namespace qz::frame {

namespace {

constexpr DWORD kThreadTableOptions = QZLIST_THREADSAFE | QZLIST_VALUES;
constexpr WCHAR kKernelSection[] = QZTEXT("Kernel");

// Holds a thread-safe list's lock for a scope.
class ListLock {
public:
    explicit ListLock(tQZLIST* list) : list_(list) { EnterCriticalSection(&list_->lock); }
    ~ListLock() { LeaveCriticalSection(&list_->lock); }
    ListLock(const ListLock&) = delete;
    ListLock& operator=(const ListLock&) = delete;

private:
    tQZLIST* list_;
};

ThreadEntry* entry_at(tQZLIST* table, LONG i) {
    return static_cast<ThreadEntry*>(QZLIST_ITEMADDR(table, i));
}

// The entry of `thread`, or -1.
int find_thread(tQZLIST* table, DWORD thread) {
    for (LONG i = 0; i < table->count; ++i)
        if (entry_at(table, i)->thread_id == thread) return int(i);
    return -1;
}

void free_entry(tQZLIST* table, int i) {
    GlobalFree(entry_at(table, i)->block);
    QzList_DeleteList(table, i, 1, FALSE);
}

bool same_ignoring_case(const WCHAR* a, const WCHAR* b) {
    auto lower = [](WCHAR c) { return (c >= u'A' && c <= u'Z') ? WCHAR(c - u'A' + u'a') : c; };
    for (; *a && *b; ++a, ++b)
        if (lower(*a) != lower(*b)) return false;
    return *a == *b;
}

void open_kernel_settings() {
    ProcessState& s = state();
    qz::settings::close(s.settings);
    s.settings = nullptr;
    // The store is the host product's: it is named after the application.
    WCHAR product[MAX_PATH];
    QzLang_ExpandText(QZTEXT("$(AppName)"), product, MAX_PATH);
    qz::settings::open(product, QZKERNEL_VERSION, kKernelSection, &s.settings);
}

void register_class(HMODULE module) {
    qz::platform::register_window_class(module, kWindowClassName);
}
void unregister_class(HMODULE module) {
    qz::platform::unregister_window_class(module, kWindowClassName);
}

constexpr WindowSteps kPlatformSteps = {register_class, unregister_class};

}  // namespace

const WindowSteps& platform_window_steps() {
    return kPlatformSteps;
}

bool is_rundll_host(LPCWSTR host_path) {
    if (!host_path) return false;
    const WCHAR* name = host_path;
    for (const WCHAR* p = host_path; *p; ++p)
        if (*p == u'\\' || *p == u'/') name = p + 1;
    return same_ignoring_case(name, kRunDllName);
}

BOOL process_attach(HMODULE kernel_module, LPCWSTR host_path, const WindowSteps& steps) {
    ProcessState& s = state();
    const BOOL initialised = QzKernel_EarlyInitialize(kernel_module, QZKERNEL_INIT_ATTACH);
    if (initialised) {
        s.hosted_by_rundll = is_rundll_host(host_path) ? TRUE : FALSE;
        if (!s.hosted_by_rundll) {
            open_kernel_settings();
            // The control library (QzControls_Initialize) belongs to the
            // user-interface toolkit, which this library does not contain.
            steps.register_class(kernel_module);
        }
    }
    if (!s.thread_table)
        QzList_CreateExZ(&s.thread_table, sizeof(ThreadEntry), 0, 0, kThreadTableOptions, 0, 0, 0);
    return initialised;
}

void thread_detach() {
    tQZLIST* table = state().thread_table;
    if (!table) return;
    ListLock lock(table);
    const int i = find_thread(table, GetCurrentThreadId());
    if (i >= 0) free_entry(table, i);
}

BOOL process_detach(const WindowSteps& steps) {
    ProcessState& s = state();
    if (s.thread_table) {
        {
            ListLock lock(s.thread_table);
            for (int i = int(s.thread_table->count) - 1; i >= 0; --i) free_entry(s.thread_table, i);
        }
        QzList_Destroy(s.thread_table);
        s.thread_table = nullptr;
    }
    if (!s.hosted_by_rundll) steps.unregister_class(s.kernel_module);
    qz::settings::close(s.settings);
    s.settings = nullptr;
    QzKernel_LateTerminate(0, 0);
    s.kernel_module = nullptr;
    return TRUE;
}

void* thread_storage(SIZE_T bytes) {
    tQZLIST* table = state().thread_table;
    if (!table) return nullptr;
    ListLock lock(table);
    const int i = find_thread(table, GetCurrentThreadId());
    if (i >= 0) {
        ThreadEntry* entry = entry_at(table, i);
        if (entry->bytes < bytes) {
            HGLOBAL grown = GlobalReAlloc(entry->block, bytes, GMEM_MOVEABLE | GMEM_ZEROINIT);
            if (!grown) return nullptr;
            entry->block = grown;
            entry->bytes = bytes;
        }
        return entry->block;
    }
    ThreadEntry entry = {GetCurrentThreadId(), bytes, GlobalAlloc(GPTR, bytes ? bytes : 1)};
    if (!entry.block) return nullptr;
    if (FAILED(QzList_InsertList(table, -1, &entry, 1))) {
        GlobalFree(entry.block);
        return nullptr;
    }
    qz::platform::watch_thread_exit();
    return entry.block;
}

}  // namespace qz::frame

// The hooks the loader glue calls.
namespace qz::platform {

BOOL on_process_attach(HMODULE kernel_module) {
    WCHAR host[MAX_PATH] = {};
    const DWORD n = GetModuleFileNameW(nullptr, host, MAX_PATH);
    return qz::frame::process_attach(kernel_module, n > 0 && n < MAX_PATH ? host : nullptr,
                                     qz::frame::platform_window_steps());
}

void on_thread_detach() {
    qz::frame::thread_detach();
}

BOOL on_process_detach() {
    return qz::frame::process_detach(qz::frame::platform_window_steps());
}

}  // namespace qz::platform
