// The signal-to-exception adapter of the POSIX layer.
#include "platform/posix/exception_posix.h"

#include <ucontext.h>

#include <cstring>

namespace qz::posix {

namespace {

// Bit 1 of the x86 page-fault error code is set for a write.
constexpr unsigned long kPageFaultWrite = 0x2;
// Codes for signals that have no Win32 exception of their own.
constexpr DWORD kSignalExceptionBase = 0xE0000000;

DWORD code_for_fpe(int si_code) {
    switch (si_code) {
        case FPE_INTDIV:
            return EXCEPTION_INT_DIVIDE_BY_ZERO;
        case FPE_INTOVF:
            return EXCEPTION_INT_OVERFLOW;
        case FPE_FLTDIV:
            return EXCEPTION_FLT_DIVIDE_BY_ZERO;
        case FPE_FLTOVF:
            return EXCEPTION_FLT_OVERFLOW;
        case FPE_FLTUND:
            return EXCEPTION_FLT_UNDERFLOW;
        case FPE_FLTRES:
            return EXCEPTION_FLT_INEXACT_RESULT;
        case FPE_FLTSUB:
            return EXCEPTION_ARRAY_BOUNDS_EXCEEDED;
        default:
            return EXCEPTION_FLT_INVALID_OPERATION;
    }
}

DWORD code_for(int signal, int si_code) {
    switch (signal) {
        case SIGSEGV:
            return EXCEPTION_ACCESS_VIOLATION;
        case SIGFPE:
            return code_for_fpe(si_code);
        case SIGILL:
            return si_code == ILL_PRVOPC || si_code == ILL_PRVREG ? EXCEPTION_PRIV_INSTRUCTION
                                                                  : EXCEPTION_ILLEGAL_INSTRUCTION;
        case SIGBUS:
            return si_code == BUS_ADRALN ? EXCEPTION_DATATYPE_MISALIGNMENT
                                         : EXCEPTION_IN_PAGE_ERROR;
        case SIGTRAP:
            return si_code == TRAP_TRACE ? EXCEPTION_SINGLE_STEP : EXCEPTION_BREAKPOINT;
        case SIGINT:
            return STATUS_CONTROL_C_EXIT;
        default:
            return kSignalExceptionBase + DWORD(signal);
    }
}

// Copies the registers; returns the page-fault error word (0 when unknown).
unsigned long fill_context(const ucontext_t* uc, CONTEXT* c) {
#if defined(__x86_64__)
    const greg_t* g = uc->uc_mcontext.gregs;
    c->Eax = DWORD_PTR(g[REG_RAX]);
    c->Ebx = DWORD_PTR(g[REG_RBX]);
    c->Ecx = DWORD_PTR(g[REG_RCX]);
    c->Edx = DWORD_PTR(g[REG_RDX]);
    c->Esi = DWORD_PTR(g[REG_RSI]);
    c->Edi = DWORD_PTR(g[REG_RDI]);
    c->Ebp = DWORD_PTR(g[REG_RBP]);
    c->Esp = DWORD_PTR(g[REG_RSP]);
    c->Eip = DWORD_PTR(g[REG_RIP]);
    c->EFlags = DWORD(g[REG_EFL]);
    // cs, gs, fs and (on current kernels) ss share one word, 16 bits each.
    const auto segments = static_cast<unsigned long long>(g[REG_CSGSFS]);
    c->SegCs = DWORD(segments & 0xFFFF);
    c->SegGs = DWORD((segments >> 16) & 0xFFFF);
    c->SegFs = DWORD((segments >> 32) & 0xFFFF);
    c->SegSs = DWORD((segments >> 48) & 0xFFFF);
    return static_cast<unsigned long>(g[REG_ERR]);
#elif defined(__i386__)
    const greg_t* g = uc->uc_mcontext.gregs;
    c->Eax = DWORD_PTR(g[REG_EAX]);
    c->Ebx = DWORD_PTR(g[REG_EBX]);
    c->Ecx = DWORD_PTR(g[REG_ECX]);
    c->Edx = DWORD_PTR(g[REG_EDX]);
    c->Esi = DWORD_PTR(g[REG_ESI]);
    c->Edi = DWORD_PTR(g[REG_EDI]);
    c->Ebp = DWORD_PTR(g[REG_EBP]);
    c->Esp = DWORD_PTR(g[REG_UESP]);
    c->Eip = DWORD_PTR(g[REG_EIP]);
    c->EFlags = DWORD(g[REG_EFL]);
    c->SegCs = DWORD(g[REG_CS] & 0xFFFF);
    c->SegSs = DWORD(g[REG_SS] & 0xFFFF);
    c->SegDs = DWORD(g[REG_DS] & 0xFFFF);
    c->SegEs = DWORD(g[REG_ES] & 0xFFFF);
    c->SegFs = DWORD(g[REG_FS] & 0xFFFF);
    c->SegGs = DWORD(g[REG_GS] & 0xFFFF);
    return static_cast<unsigned long>(g[REG_ERR]);
#elif defined(__aarch64__)
    // The first argument registers stand in for the accumulators, the frame
    // record pointer for the frame pointer.
    const auto& m = uc->uc_mcontext;
    c->Eax = DWORD_PTR(m.regs[0]);
    c->Ebx = DWORD_PTR(m.regs[1]);
    c->Ecx = DWORD_PTR(m.regs[2]);
    c->Edx = DWORD_PTR(m.regs[3]);
    c->Ebp = DWORD_PTR(m.regs[29]);
    c->Esp = DWORD_PTR(m.sp);
    c->Eip = DWORD_PTR(m.pc);
    c->EFlags = DWORD(m.pstate);
    return 0;
#else
    (void)uc;
    (void)c;
    return 0;
#endif
}

}  // namespace

void exception_from_signal(int signal, const siginfo_t* info, const void* ucontext,
                           EXCEPTION_RECORD* record, CONTEXT* context) {
    CONTEXT scratch;
    CONTEXT* c = context ? context : &scratch;
    std::memset(c, 0, sizeof *c);
    unsigned long fault_error = 0;
    if (ucontext) fault_error = fill_context(static_cast<const ucontext_t*>(ucontext), c);
    if (!record) return;
    std::memset(record, 0, sizeof *record);
    const int si_code = info ? info->si_code : 0;
    record->ExceptionCode = code_for(signal, si_code);
    record->ExceptionAddress = reinterpret_cast<PVOID>(c->Eip);
    if (signal == SIGSEGV && info) {
        // As on Windows: [0] is 0 for a read and 1 for a write, [1] the address.
        record->NumberParameters = 2;
        record->ExceptionInformation[0] = (fault_error & kPageFaultWrite) ? 1 : 0;
        record->ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(info->si_addr);
    }
    // Without the registers, SIGILL, SIGFPE and SIGTRAP still name the
    // instruction; for SIGSEGV and SIGBUS si_addr is the data address.
    if (!ucontext && info && signal != SIGSEGV && signal != SIGBUS)
        record->ExceptionAddress = info->si_addr;
}

}  // namespace qz::posix
