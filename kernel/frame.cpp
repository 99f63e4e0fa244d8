// The library frame: per-process state, early initialisation and late
// termination, the version agreement, the processor-feature word and the
// small queries hosts make of the kernel.
#include "kernel/frame.h"

#include <atomic>
#include <cstring>
#include <new>
#include <string>

#include "base/guard.h"
#include "kernel/lang.h"
#include "platform/win32api.h"
#include "qz/qzerror.h"
#include "qz/qzlang.h"

namespace qz::frame {

namespace {

constinit ProcessState g_state;

// The tests' replacements of the probe and of the system check.
std::atomic<DWORD (*)()> g_probe{nullptr};
std::atomic<bool (*)()> g_too_old{nullptr};

constexpr UINT kQuietErrorMode = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;
constexpr int kClientNameLimit = 128;
constexpr DWORD kRegisteredItemSize = 4;
constexpr int kRegisteredGrowStep = 16;
constexpr int kRegisteredInitial = 16;
constexpr DWORD kRegisteredOptions = QZLIST_THREADSAFE | QZLIST_HEAPITEMS;

// The texts of the version agreement, resolved through the kernel's language.
const QzLocalText<1> kCaption = {QZLANG_TEXT_MARKER, 1, {QZTEXT("Kavo Kernel")}};
const QzLocalText<1> kSystemTooOld = {
    QZLANG_TEXT_MARKER,
    1,
    {QZTEXT("This product requires Windows 95 or Windows NT 4.0 or later.")}};
const QzLocalText<1> kIncompatible = {
    QZLANG_TEXT_MARKER,
    1,
    {QZTEXT("The version of the Kavo Kernel is incompatible with the following client:\n\n%s.")}};
const QzLocalText<1> kKernelTooOld = {
    QZLANG_TEXT_MARKER, 1, {QZTEXT("The version of the Kavo Kernel is too old.")}};

using Text = std::basic_string<WCHAR>;

// The client's name from the ANSI code page: at most 128 characters, empty
// for a null or empty name.
Text client_name(LPCSTR name) {
    if (!name || !name[0]) return {};
    int length = 0;
    while (length < kClientNameLimit && name[length]) ++length;
    WCHAR wide[kClientNameLimit + 1] = {};
    const int n = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, name, length, wide, kClientNameLimit);
    return Text(wide, n > 0 ? size_t(n) : 0);
}

// `text` with its first "%s" replaced by `argument`.
Text with_argument(const WCHAR* text, const Text& argument) {
    Text out(text);
    const size_t at = out.find(QZTEXT("%s"));
    if (at != Text::npos) out.replace(at, 2, argument);
    return out;
}

void recompute_display() {
    BOOL high_colour = TRUE;
    DWORD monitors = 1;
    if (!qz::platform::display_state(&high_colour, &monitors)) return;
    g_state.high_colour = high_colour;
    g_state.monitor_state = monitors;
    g_state.display_known = true;
}

void create_colour_objects() {
    if (g_state.colours_created) qz::platform::release_colour_objects(&g_state.colours);
    qz::platform::create_colour_objects(&g_state.colours);
    g_state.colours_created = true;
    ++g_state.colour_generation;
}

void release_colour_objects() {
    if (!g_state.colours_created) return;
    qz::platform::release_colour_objects(&g_state.colours);
    g_state.colours_created = false;
}

void destroy_cursors(HCURSOR* slots, int count) {
    for (int i = 0; i < count; ++i) {
        if (slots[i]) qz::platform::destroy_cursor(slots[i]);
        slots[i] = nullptr;
    }
}

}  // namespace

ProcessState& state() {
    return g_state;
}

BOOL high_colour() {
    if (!g_state.display_known) recompute_display();
    return g_state.high_colour;
}

void set_processor_probe(DWORD (*probe)()) {
    g_probe.store(probe);
}

void set_system_check(bool (*too_old)()) {
    g_too_old.store(too_old);
}

}  // namespace qz::frame

using qz::frame::g_state;

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzKernel_EarlyInitialize(HMODULE kernel_module, DWORD flags) {
    using namespace qz::frame;
    SetErrorMode(SetErrorMode(0) | kQuietErrorMode);
    // The multimedia-timer service would be prepared here; it belongs to the
    // timer family, which this library does not contain.
    g_state.old_platform = qz::platform::is_old_platform() ? TRUE : FALSE;
    g_state.kernel_module = kernel_module;
    g_state.init_flags = flags;
    if (!g_state.probe_ran) {
        DWORD (*probe)() = g_probe.load();
        g_state.probe_result = probe ? probe() : probe_processor();
        g_state.probe_ran = true;
    }
    g_state.processor_features =
        (g_state.probe_result & g_state.permitted_mask) | g_state.forced_mask;
    g_state.startup_mode = (flags & QZKERNEL_INIT_ATTACH)   ? 1
                           : (flags & QZKERNEL_INIT_HOSTED) ? 2
                                                            : 0;
    g_state.internal_setting = kInternalSettingDefault;
    g_state.app_instance = GetModuleHandleW(nullptr);
    g_state.splash = nullptr;
    create_colour_objects();

    HRESULT hr = S_OK;
    if (!g_state.registered_objects)
        hr = QzList_CreateExZ(&g_state.registered_objects, kRegisteredItemSize, kRegisteredInitial,
                              kRegisteredGrowStep, kRegisteredOptions, 0, 0, 0);
    if (SUCCEEDED(hr) && !qz::lang::kernel_instance()) {
        HQZLANG lang = nullptr;
        hr = QzLang_Open(kernel_module, &lang);
        if (SUCCEEDED(hr)) qz::lang::exchange_kernel_instance(lang);
    }
    if (SUCCEEDED(hr)) hr = QzLang_GetInternationals(nullptr, nullptr);
    // The timer service's late start would follow whatever the steps above
    // returned; no further one-time start-up is needed.
    return SUCCEEDED(hr) ? TRUE : FALSE;
}

QZ_EXTERN_C QZ_API BOOL QZ_STDCALL QzKernel_LateTerminate(DWORD, DWORD) {
    using namespace qz::frame;
    QzLang_Close(qz::lang::exchange_kernel_instance(nullptr));
    QzList_Destroy(g_state.registered_objects);
    g_state.registered_objects = nullptr;
    release_colour_objects();
    qz::platform::set_arrow_cursor();
    destroy_cursors(g_state.cursors, kCursorSlots);
    destroy_cursors(g_state.more_cursors, kMoreCursorSlots);
    g_state.kernel_module = nullptr;
    return TRUE;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzKernel_CheckVersion(HWND owner, LPCSTR client,
                                                            DWORD required_version, DWORD agreement,
                                                            DWORD, BOOL quiet) {
    using namespace qz::frame;
    // Without memory for the message the answer is still E_FAIL.
    return qz::base::guarded<HRESULT>(E_FAIL, E_FAIL, [&] {
        const Text name = client_name(client);
        bool (*too_old)() = g_too_old.load();
        Text message;
        if (too_old ? too_old() : qz::platform::is_too_old_system())
            message = QzGetString(nullptr, kSystemTooOld.record());
        else if (agreement != QZKERNEL_AGREEMENT)
            message = with_argument(QzGetString(nullptr, kIncompatible.record()), name);
        else if (required_version <= QZKERNEL_VERSION)
            return S_OK;
        else
            message = QzGetString(nullptr, kKernelTooOld.record());
        if (!quiet)
            QzMessageBox(owner, message.c_str(), QzGetString(nullptr, kCaption.record()),
                         MB_ICONINFORMATION);
        return E_FAIL;
    });
}

QZ_EXTERN_C QZ_API HMODULE QZ_STDCALL QzKernel_GetAppKernel(void) {
    return g_state.kernel_module;
}

QZ_EXTERN_C QZ_API HRESULT QZ_STDCALL QzKernel_GetAppKernelPathName(LPWSTR buffer, DWORD capacity) {
    if (GetModuleFileNameW(g_state.kernel_module, buffer, capacity) != 0) return S_OK;
    return QzErrorHandler_TranslateWin32Error(GetLastError());
}

QZ_EXTERN_C QZ_API HWND QZ_STDCALL QzKernel_SetSplash(HWND splash) {
    g_state.splash = splash;
    return splash;
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzKernel_UserPrefChanges(HWND, UINT message, WPARAM, LPARAM) {
    using namespace qz::frame;
    if (message != WM_DISPLAYCHANGE && message != WM_SYSCOLORCHANGE) return;
    recompute_display();
    if (message == WM_SYSCOLORCHANGE) create_colour_objects();
}

QZ_EXTERN_C QZ_API DWORD QZ_STDCALL QzKernel_GetProcessorFeatures(void) {
    return g_state.processor_features;
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzKernel_SetProcessorFeatureMasks(DWORD permitted,
                                                                     DWORD forced) {
    g_state.permitted_mask = permitted;
    g_state.forced_mask = forced;
}

namespace {

// Addresses the linker must keep. Taking an address keeps a function as
// surely as a call does, without running it with placeholder arguments.
constexpr size_t kKeptSlots = 16;
volatile const void* g_kept_references[kKeptSlots];

template <class... F>
void keep(F... functions) {
    const void* addresses[] = {reinterpret_cast<const void*>(functions)...};
    static_assert(sizeof...(F) <= kKeptSlots);
    for (size_t i = 0; i < sizeof...(F); ++i) g_kept_references[i] = addresses[i];
}

}  // namespace

QZ_EXTERN_C QZ_API void QZ_STDCALL QzKernel_ForceRefs(void) {
    keep(&QzList_CreateExZ, &QzList_Destroy, &QzGetString, &QzLoadString, &QzLang_Open,
         &QzMessageBox, &QzKernel_CheckVersion, &QzKernel_GetVersion,
         &QzErrorHandler_TranslateWin32Error, &QzErrorHandler_GetHresultString);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL QzKernel_ForceTransMixerRefs(void) {
    // The transport and mixer families are not part of this library: there
    // is nothing of theirs to keep.
}
