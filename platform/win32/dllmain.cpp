// The library's entry point on Windows: the loader's process and thread
// notifications run the frame's sequences (platform.h).
#include "platform/platform.h"
#include "platform/win32api.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            return qz::platform::on_process_attach(instance);
        case DLL_THREAD_DETACH:
            qz::platform::on_thread_detach();
            return TRUE;
        case DLL_PROCESS_DETACH:
            return qz::platform::on_process_detach();
        default:
            return TRUE;  // thread attach: nothing to do
    }
}

namespace qz::platform {

// The loader reports every thread's end to DllMain.
void watch_thread_exit() {}

}  // namespace qz::platform
