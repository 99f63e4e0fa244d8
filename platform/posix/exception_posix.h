/*
 * exception_posix.h - turns what a POSIX signal handler receives into the
 * Win32 exception record and thread context that the error handler's dump
 * and exception filter read.
 */
#ifndef QZ_PLATFORM_POSIX_EXCEPTION_POSIX_H
#define QZ_PLATFORM_POSIX_EXCEPTION_POSIX_H

#include <signal.h>

#include "qz/qzerror.h"

namespace qz::posix {

/*
 * Fills `record` and `context` from a signal, its siginfo and the handler's
 * third argument (a ucontext_t*, may be null). The code follows the
 * exception the signal stands for: SIGSEGV an access violation with the read
 * or write flag and the faulting address, SIGFPE the integer or floating
 * exception of its si_code, SIGILL an illegal or privileged instruction,
 * SIGBUS a misalignment or in-page error, SIGTRAP a breakpoint or single
 * step, SIGINT a control+c exit; any other signal 0xE0000000 + its number.
 */
void exception_from_signal(int signal, const siginfo_t* info, const void* ucontext,
                           EXCEPTION_RECORD* record, CONTEXT* context);

}  // namespace qz::posix

#endif
