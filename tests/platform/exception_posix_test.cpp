// The signal adapter: real faults and synthetic signals as Win32 exceptions.
#include <gtest/gtest.h>

#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "platform/posix/exception_posix.h"
#include "qzkernel.h"

namespace {

sigjmp_buf g_return_point;
EXCEPTION_RECORD g_record;
CONTEXT g_context;

void on_fault(int signal, siginfo_t* info, void* ucontext) {
    qz::posix::exception_from_signal(signal, info, ucontext, &g_record, &g_context);
    siglongjmp(g_return_point, 1);
}

// Runs `fault` with on_fault handling SIGSEGV; true when it faulted.
template <class Fault>
bool catch_fault(Fault fault) {
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_sigaction = on_fault;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    sigaction(SIGSEGV, &action, &previous);
    bool faulted = false;
    if (sigsetjmp(g_return_point, 1) == 0)
        fault();
    else
        faulted = true;
    sigaction(SIGSEGV, &previous, nullptr);
    return faulted;
}

#if defined(__x86_64__) || defined(__i386__)
TEST(SignalAdapter, AWriteFaultOnAProtNonePageIsFlaggedAsAWrite) {
    const size_t size = size_t(sysconf(_SC_PAGESIZE));
    void* p = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(p, MAP_FAILED);
    auto* page = static_cast<volatile unsigned char*>(p);
    ASSERT_TRUE(catch_fault([&] { page[8] = 1; }));
    EXPECT_EQ(g_record.ExceptionInformation[0], 1u);
    EXPECT_EQ(g_record.ExceptionInformation[1], reinterpret_cast<ULONG_PTR>(page + 8));
    munmap(p, size);
}
#endif

TEST(SignalAdapter, SignalsAndTheirCodesMapToWin32Exceptions) {
    const struct {
        int signal;
        int code;
        DWORD expected;
    } cases[] = {
        {SIGFPE, FPE_INTDIV, 0xC0000094},   {SIGFPE, FPE_INTOVF, 0xC0000095},
        {SIGFPE, FPE_FLTDIV, 0xC000008E},   {SIGFPE, FPE_FLTOVF, 0xC0000091},
        {SIGFPE, FPE_FLTUND, 0xC0000093},   {SIGFPE, FPE_FLTRES, 0xC000008F},
        {SIGFPE, FPE_FLTINV, 0xC0000090},   {SIGFPE, FPE_FLTSUB, 0xC000008C},
        {SIGILL, ILL_ILLOPC, 0xC000001D},   {SIGILL, ILL_PRVOPC, 0xC0000096},
        {SIGILL, ILL_PRVREG, 0xC0000096},   {SIGBUS, BUS_ADRALN, 0x80000002},
        {SIGBUS, BUS_ADRERR, 0xC0000006},   {SIGTRAP, TRAP_BRKPT, 0x80000003},
        {SIGTRAP, TRAP_TRACE, 0x80000004},  {SIGINT, SI_USER, 0xC000013A},
        {SIGSEGV, SEGV_MAPERR, 0xC0000005}, {SIGABRT, SI_USER, 0xE0000000u + SIGABRT},
    };
    static char instruction;
    for (const auto& c : cases) {
        siginfo_t info{};
        info.si_signo = c.signal;
        info.si_code = c.code;
        info.si_addr = &instruction;
        EXCEPTION_RECORD record;
        CONTEXT context;
        std::memset(&record, 0xEE, sizeof record);
        qz::posix::exception_from_signal(c.signal, &info, nullptr, &record, &context);
        EXPECT_EQ(record.ExceptionCode, c.expected) << c.signal << "/" << c.code;
        EXPECT_EQ(context.Eip, 0u);
        if (c.signal == SIGSEGV) {
            // The data address is no instruction address.
            EXPECT_EQ(record.ExceptionAddress, nullptr);
            EXPECT_EQ(record.ExceptionInformation[1], reinterpret_cast<ULONG_PTR>(&instruction));
        } else if (c.signal != SIGBUS) {
            EXPECT_EQ(record.ExceptionAddress, &instruction);
            EXPECT_EQ(record.NumberParameters, 0u);
        }
    }
}

}  // namespace
