// The entry of the Windows test programs. The suites link the library's
// objects into the program itself, where no loader calls its DllMain; this
// file calls it as the loader calls a DLL's: process attach after the
// static constructors and before anything of the library is used, thread
// detach for every thread that ends (through a TLS callback, which the
// loader runs for a program as it runs DllMain for a DLL), and process
// detach before the static destructors.
#include <gtest/gtest.h>
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

bool g_attached = false;

void NTAPI on_thread_event(PVOID module, DWORD reason, PVOID) {
    if (reason == DLL_THREAD_DETACH && g_attached)
        DllMain(static_cast<HINSTANCE>(module), DLL_THREAD_DETACH, nullptr);
}

}  // namespace

// The loader finds the callback through the program's TLS directory, which
// the MinGW runtime lays out from the .CRT$XL? sections.
extern "C" __attribute__((section(".CRT$XLF"), used))
const PIMAGE_TLS_CALLBACK qz_test_thread_callback = on_thread_event;

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const HINSTANCE module = GetModuleHandleW(nullptr);
    if (!DllMain(module, DLL_PROCESS_ATTACH, nullptr)) {
        std::fprintf(stderr, "the library refused process attach\n");
        return 1;
    }
    g_attached = true;
    const int result = RUN_ALL_TESTS();
    g_attached = false;
    DllMain(module, DLL_PROCESS_DETACH, nullptr);
    return result;
}
