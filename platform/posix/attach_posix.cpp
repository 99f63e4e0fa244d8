// The library's entry points on POSIX: the load constructor runs the
// process-attach sequence, the unload destructor the process-detach
// sequence, and a thread-specific-data destructor the thread-detach
// sequence for each thread that asked the kernel for per-thread storage.
// The sequences themselves are the frame's (platform.h).
#include <pthread.h>

#include "platform/platform.h"
#include "platform/posix/win32_internal.h"

namespace {

pthread_key_t g_detach_key;
bool g_have_key = false;

// A non-null value marks a thread whose exit runs thread detach.
void* const kWatched = reinterpret_cast<void*>(1);

void on_thread_exit(void*) {
    qz::platform::on_thread_detach();
}

// Everything the attach sequence needs is constant-initialised or made on
// first use, so it may run before the library's other constructors.
__attribute__((constructor)) void on_load() {
    g_have_key = pthread_key_create(&g_detach_key, on_thread_exit) == 0;
    // A refused attach cannot refuse the load here; the frame's state
    // records what failed.
    qz::platform::on_process_attach(qz::posix::library_module());
}

__attribute__((destructor)) void on_unload() {
    qz::platform::on_process_detach();
    if (g_have_key) pthread_key_delete(g_detach_key);
    g_have_key = false;
}

}  // namespace

namespace qz::platform {

void watch_thread_exit() {
    if (g_have_key) pthread_setspecific(g_detach_key, kWatched);
}

}  // namespace qz::platform
