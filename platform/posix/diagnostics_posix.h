/*
 * diagnostics_posix.h - the two ways the POSIX layer reads memory that may
 * not be readable, without touching it. process_vm_readv on the own process
 * is the direct one; where a sandbox forbids it, writing the bytes into a
 * pipe makes the kernel report EFAULT instead of raising a signal.
 * read_memory (platform.h) picks the first that works; tests call both.
 */
#ifndef QZ_PLATFORM_POSIX_DIAGNOSTICS_POSIX_H
#define QZ_PLATFORM_POSIX_DIAGNOSTICS_POSIX_H

#include <cstddef>

namespace qz::platform::detail {

enum class ProbeResult { Read, Unreadable, Unavailable };

ProbeResult read_by_vm(const void* address, void* out, size_t bytes);
ProbeResult read_by_pipe(const void* address, void* out, size_t bytes);

}  // namespace qz::platform::detail

#endif
