// Process facts for the dumps on POSIX: readable memory, modules, the
// thread's stack and an attached debugger.
#include "platform/platform.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/posix/diagnostics_posix.h"
#include "platform/posix/win32_internal.h"

namespace qz::platform {

namespace detail {

ProbeResult read_by_vm(const void* address, void* out, size_t bytes) {
    iovec local{out, bytes};
    iovec remote{const_cast<void*>(address), bytes};
    const ssize_t got = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
    if (got == static_cast<ssize_t>(bytes)) return ProbeResult::Read;
    // A partial read stopped at an unreadable page; EFAULT means the first
    // byte was. Refusals of the call itself leave the question open.
    if (got >= 0 || errno == EFAULT) return ProbeResult::Unreadable;
    return ProbeResult::Unavailable;
}

namespace {

// The pipe is kept for the process; writes and reads of one probe must not
// mix with another thread's, hence the lock.
struct ProbePipe {
    std::mutex lock;
    int fds[2] = {-1, -1};
    bool ready = false;
    bool tried = false;
};

ProbePipe& probe_pipe() {
    static ProbePipe* pipe_state = new ProbePipe;  // lives to process exit
    return *pipe_state;
}

}  // namespace

ProbeResult read_by_pipe(const void* address, void* out, size_t bytes) {
    ProbePipe& p = probe_pipe();
    std::lock_guard<std::mutex> guard(p.lock);
    if (!p.tried) {
        p.tried = true;
        p.ready = pipe2(p.fds, O_CLOEXEC | O_NONBLOCK) == 0;
    }
    if (!p.ready) return ProbeResult::Unavailable;
    auto* dst = static_cast<unsigned char*>(out);
    const auto* src = static_cast<const unsigned char*>(address);
    // A pipe holds at least 4 KiB without blocking; probe in pieces that fit.
    constexpr size_t kPiece = 4096;
    for (size_t done = 0; done < bytes;) {
        const size_t n = bytes - done < kPiece ? bytes - done : kPiece;
        const ssize_t put = write(p.fds[1], src + done, n);
        if (put < 0) return errno == EFAULT ? ProbeResult::Unreadable : ProbeResult::Unavailable;
        for (ssize_t taken = 0; taken < put;) {
            const ssize_t got = read(p.fds[0], dst + done + taken, size_t(put - taken));
            if (got <= 0) return ProbeResult::Unavailable;
            taken += got;
        }
        if (size_t(put) < n) return ProbeResult::Unreadable;
        done += n;
    }
    return ProbeResult::Read;
}

}  // namespace detail

bool read_memory(const void* address, void* out, size_t bytes) {
    using detail::ProbeResult;
    if (bytes == 0) return true;
    if (!address || !out) return false;
    // Once process_vm_readv has been refused (seccomp, old kernels), every
    // later probe goes straight to the pipe.
    static std::atomic<bool> vm_refused{false};
    if (!vm_refused.load(std::memory_order_relaxed)) {
        const ProbeResult r = detail::read_by_vm(address, out, bytes);
        if (r != ProbeResult::Unavailable) return r == ProbeResult::Read;
        vm_refused.store(true, std::memory_order_relaxed);
    }
    return detail::read_by_pipe(address, out, bytes) == ProbeResult::Read;
}

bool module_from_address(const void* address, ModuleInfo* info) {
    if (!info) return false;
    Dl_info dl{};
    if (!address || dladdr(address, &dl) == 0 || !dl.dli_fbase) return false;
    info->base = dl.dli_fbase;
    info->path[0] = 0;
    if (dl.dli_fname) {
        const int n = MultiByteToWideChar(CP_UTF8, 0, dl.dli_fname, -1, info->path, MAX_PATH);
        if (n <= 0) info->path[0] = 0;
        info->path[MAX_PATH - 1] = 0;
    }
    return true;
}

bool current_thread_stack(const void** low, const void** high) {
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) != 0) return false;
    void* base = nullptr;
    size_t size = 0;
    const bool ok = pthread_attr_getstack(&attr, &base, &size) == 0;
    pthread_attr_destroy(&attr);
    if (!ok) return false;
    if (low) *low = base;
    if (high) *high = static_cast<const char*>(base) + size;
    return true;
}

bool debugger_present() {
    // A tracer (gdb, strace, lldb) shows as a non-zero TracerPid.
    FILE* status = std::fopen("/proc/self/status", "re");
    if (!status) return false;
    char line[256];
    long tracer = 0;
    while (std::fgets(line, sizeof line, status)) {
        if (std::strncmp(line, "TracerPid:", 10) == 0) {
            tracer = std::strtol(line + 10, nullptr, 10);
            break;
        }
    }
    std::fclose(status);
    return tracer != 0;
}

}  // namespace qz::platform
