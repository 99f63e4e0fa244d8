// The dumps: hex bytes, 32-bit words, stack words and whole exceptions,
// their exact formats, their room rules and unreadable memory.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/error_internal.h"
#include "platform/platform.h"
#include "platform/win32api.h"
#if !defined(_WIN32)
#include "platform/posix/diagnostics_posix.h"
#endif
#include "tests/support/error_support.h"

namespace {

using qz::testing::hex_address;
using qz::testing::MessageBoxCapture;
using qz::testing::narrow;

constexpr size_t kExtra = 2 * sizeof(void*) - 8;
constexpr size_t kLineRoom = 50 + kExtra;
constexpr char kCanary = 0x5A;

std::string addr(uintptr_t p) {
    return hex_address(reinterpret_cast<const void*>(p));
}

// Runs `dump(buffer, size)` into a buffer with guard bytes past `size`,
// checks them and the length it returns, and gives the text.
template <class Dump>
std::string guarded(int size, Dump dump) {
    std::vector<char> buffer(size_t(size) + 16, kCanary);
    const int n = dump(buffer.data(), size);
    for (size_t i = size_t(size); i < buffer.size(); ++i) EXPECT_EQ(buffer[i], kCanary) << i;
    const std::string text = size ? buffer.data() : "";
    EXPECT_EQ(size_t(n), text.size());
    return text;
}
using DumpFn = int(QZ_STDCALL*)(char*, int, const void*, int);
std::string dump_with(DumpFn dump, const void* address, int count, int size) {
    return guarded(size, [&](char* buffer, int n) { return dump(buffer, n, address, count); });
}
std::string hex_dump(const void* address, int count, int size = 4096) {
    return dump_with(QzErrorHandler_DumpHex, address, count, size);
}
std::string word_dump(const void* address, int count, int size = 4096) {
    return dump_with(QzErrorHandler_DumpHexDWords, address, count, size);
}

// A readable page that ends at 0x5A5A0000, followed by a page that cannot
// be read, so that dumps of it print the same addresses on every run.
// Windows reserves address space in 64 KiB units: there the reservation
// holds the 64 KiB below the boundary, committed and readable, and one page
// above it left reserved only.
class GuardedPage {
public:
    static constexpr uintptr_t kBoundary = 0x5A5A0000;
#if defined(_WIN32)
    GuardedPage() : size_(0x10000) {
        void* const want = reinterpret_cast<void*>(kBoundary - size_);
        void* p = VirtualAlloc(want, 2 * size_, MEM_RESERVE, PAGE_NOACCESS);
        if (p && p != want) VirtualFree(p, 0, MEM_RELEASE);
        base_ = p == want ? static_cast<unsigned char*>(p) : nullptr;
        if (base_ && !VirtualAlloc(base_, size_, MEM_COMMIT, PAGE_READWRITE)) {
            VirtualFree(base_, 0, MEM_RELEASE);
            base_ = nullptr;
        }
    }
    ~GuardedPage() {
        if (base_) VirtualFree(base_, 0, MEM_RELEASE);
    }
#else
    GuardedPage() : size_(size_t(sysconf(_SC_PAGESIZE))) {
        void* const want = reinterpret_cast<void*>(kBoundary - size_);
        void* p = mmap(want, 2 * size_, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        if (p != MAP_FAILED && p != want) munmap(p, 2 * size_);
        base_ = p == want ? static_cast<unsigned char*>(p) : nullptr;
        if (base_) mprotect(base_ + size_, size_, PROT_NONE);
    }
    ~GuardedPage() {
        if (base_) munmap(base_, 2 * size_);
    }
#endif
    bool ok() const { return base_ != nullptr; }
    // The first byte that cannot be read.
    unsigned char* boundary() const { return base_ + size_; }

private:
    size_t size_;
    unsigned char* base_;
};

#define NEED_PAGE(page) \
    if (!(page).ok()) GTEST_SKIP() << "no page below 0x5A5A0000 for the literal rows"

// The rows of 64-bit builds (16-digit addresses, RAX) or those of 32-bit
// ones (8 digits, EAX), the data model of the DLL the applications load.
std::string by_model(const char* wide, const char* narrow) {
    return sizeof(void*) == 8 ? wide : narrow;
}

TEST(DumpHex, EightBytesOrFourWordsALinePaddedPrintableAndUnreadable) {
    GuardedPage page;
    NEED_PAGE(page);
    const unsigned char data[] = {31, 32, 126, 127, 0x80, 0xFF, '%', '\\', 'A', 0x01, 'z'};
    unsigned char* p = page.boundary() - 16;
    std::memcpy(p, data, sizeof data);
    EXPECT_EQ(hex_dump(p, 11), by_model(" 000000005A59FFF0: 1F 20 7E 7F 80 FF 25 5C . ~...%\\\r\n"
                                        " 000000005A59FFF8: 41 01 7A                A.z\r\n",
                                        " 5A59FFF0: 1F 20 7E 7F 80 FF 25 5C . ~...%\\\r\n"
                                        " 5A59FFF8: 41 01 7A                A.z\r\n"));

    const DWORD words[] = {0x12345678, 0xDEADBEEF, 0, 1, 0xFFFFFFFF};
    p = page.boundary() - 26;
    std::memcpy(p, words, sizeof words);
    const std::string line = by_model(" 000000005A59FFE6: 12345678 DEADBEEF 00000000 00000001 \r\n",
                                      " 5A59FFE6: 12345678 DEADBEEF 00000000 00000001 \r\n");
    EXPECT_EQ(word_dump(p, 5),
              line + by_model(" 000000005A59FFF6: FFFFFFFF \r\n", " 5A59FFF6: FFFFFFFF \r\n"));
    EXPECT_EQ(word_dump(p, 5, int(kLineRoom)), line);
    // A word half readable is unreadable as a word.
    const DWORD first = 0xA1B2C3D4;
    std::memcpy(page.boundary() - 6, &first, 4);
    EXPECT_EQ(word_dump(page.boundary() - 6, 3),
              by_model(" 000000005A59FFFA: A1B2C3D4 ........ ........ \r\n",
                       " 5A59FFFA: A1B2C3D4 ........ ........ \r\n"));
}

TEST(DumpHex, LinesNeedFiftyCharactersOfRoomPlusExtraDigitsOrAreLeftOut) {
    const char data[24] = "0123456789abcdefghijklm";
    const size_t line = 45 + kExtra;
    const struct {
        size_t size;
        size_t lines;
    } cases[] = {{kLineRoom - 1, 0}, {kLineRoom, 1}, {line + kLineRoom - 1, 1}, {4096, 3}};
    for (const auto& c : cases) {
        const std::string dump = hex_dump(data, 24, int(c.size));
        EXPECT_EQ(dump.size(), c.lines * line) << c.size;
    }
    // Nothing to dump, or nowhere to put it.
    EXPECT_EQ(hex_dump(data, -5), "");
    EXPECT_EQ(QzErrorHandler_DumpHex(nullptr, 100, data, 3), 0);
    char untouched = kCanary;
    EXPECT_EQ(QzErrorHandler_DumpHexDWords(&untouched, -1, data, 1), 0);
    EXPECT_EQ(untouched, kCanary);
}

#if defined(_WIN32)
// Windows asks the memory manager (platform/win32/diagnostics_win32.cpp).
TEST(MemoryProbe, AReservedPageIsRefusedAndACommittedOneRead) {
    GuardedPage page;
    NEED_PAGE(page);
    std::memset(page.boundary() - 16, 0x6B, 16);
    unsigned char out[32] = {};
    EXPECT_TRUE(qz::platform::read_memory(page.boundary() - 16, out, 16));
    EXPECT_EQ(out[15], 0x6B);
    EXPECT_FALSE(qz::platform::read_memory(page.boundary() - 8, out, 16));
    // A guard page keeps its guard: it is refused without being touched.
    DWORD old = 0;
    ASSERT_TRUE(VirtualProtect(page.boundary() - 4096, 4096, PAGE_READWRITE | PAGE_GUARD, &old));
    EXPECT_FALSE(qz::platform::read_memory(page.boundary() - 16, out, 16));
    MEMORY_BASIC_INFORMATION info{};
    ASSERT_EQ(VirtualQuery(page.boundary() - 16, &info, sizeof info), sizeof info);
    EXPECT_TRUE(info.Protect & PAGE_GUARD);
    EXPECT_FALSE(qz::platform::read_memory(nullptr, out, 1));
    EXPECT_TRUE(qz::platform::read_memory(nullptr, out, 0));
}
#else
TEST(MemoryProbe, BothProbesRefuseAProtNonePageAndReadOthersLargeOnesInPieces) {
    using qz::platform::detail::ProbeResult;
    // The pipe probe reads large ranges in pieces.
    std::vector<unsigned char> source(70000), copy(70000);
    for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<unsigned char>(i * 7);
    ASSERT_EQ(qz::platform::detail::read_by_pipe(source.data(), copy.data(), source.size()),
              ProbeResult::Read);
    EXPECT_EQ(source, copy);
    GuardedPage page;
    NEED_PAGE(page);
    std::memset(page.boundary() - 16, 0x6B, 16);
    for (auto probe : {&qz::platform::detail::read_by_vm, &qz::platform::detail::read_by_pipe}) {
        unsigned char out[32] = {};
        const ProbeResult readable = probe(page.boundary() - 16, out, 16);
        if (readable == ProbeResult::Unavailable) continue;  // refused by a sandbox
        EXPECT_EQ(readable, ProbeResult::Read);
        EXPECT_EQ(out[15], 0x6B);
        EXPECT_EQ(probe(page.boundary() - 8, out, 16), ProbeResult::Unreadable);
    }
    unsigned char out[4];
    EXPECT_FALSE(qz::platform::read_memory(nullptr, out, 1));
}
#endif

int module_function(int x) {
    return x * 3 + 1;
}
const void* const kFunction = reinterpret_cast<const void*>(&module_function);

struct ModuleOf {
    uintptr_t base;
    std::string name;
};

// The module that holds `address`, asked of the system another way than the
// library asks: Windows' memory manager knows the image it was mapped from,
// the POSIX loader the shared object.
ModuleOf module_of(const void* address) {
#if defined(_WIN32)
    MEMORY_BASIC_INFORMATION info{};
    EXPECT_EQ(VirtualQuery(address, &info, sizeof info), sizeof info);
    char path[MAX_PATH] = {};
    GetModuleFileNameA(static_cast<HMODULE>(info.AllocationBase), path, MAX_PATH);
    const char* slash = std::strrchr(path, '\\');
    return {reinterpret_cast<uintptr_t>(info.AllocationBase), slash ? slash + 1 : path};
#else
    Dl_info info{};
    EXPECT_NE(dladdr(address, &info), 0);
    const char* slash = std::strrchr(info.dli_fname, '/');
    return {reinterpret_cast<uintptr_t>(info.dli_fbase), slash ? slash + 1 : info.dli_fname};
#endif
}

TEST(StackDump, WalkEndsAtTheTopOfTheThreadsStack) {
    const void* low = nullptr;
    const void* high = nullptr;
    ASSERT_TRUE(qz::platform::current_thread_stack(&low, &high));
    const auto sp = reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) & ~uintptr_t(7);
    ASSERT_GT(sp, reinterpret_cast<uintptr_t>(low));
    ASSERT_LT(sp, reinterpret_cast<uintptr_t>(high));
    const size_t words = (reinterpret_cast<uintptr_t>(high) - sp) / sizeof(void*);
    std::vector<char> buffer(words * 400 + 4096);
    const qz::errors::StackSummary summary = qz::errors::dump_stack_lines(
        buffer.data(), int(buffer.size()), reinterpret_cast<const void*>(sp), 0);
    EXPECT_EQ(size_t(summary.lines), words);
}

// 64-bit Windows names the registers of its CONTEXT Rax, Rip, ...; 32-bit
// Windows and the POSIX layer's record name them Eax, Eip, ...
#if defined(_WIN64)
#define REG(name) R##name
#else
#define REG(name) E##name
#endif

struct FakeException {
    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
};

// An access violation writing 0xDEAD at 0x5A59FF00 of the guarded page,
// with registers that tell each field apart and a stack at the page's end.
FakeException access_violation(const GuardedPage& page) {
    FakeException e;
    unsigned char* code = page.boundary() - 0x100;
    for (int i = 0; i < 16; ++i) code[i] = static_cast<unsigned char>(0x41 + i);
    e.record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    e.record.ExceptionAddress = code;
    e.record.NumberParameters = 2;
    e.record.ExceptionInformation[0] = 1;
    e.record.ExceptionInformation[1] = 0xDEAD;
    CONTEXT& c = e.context;
    c.REG(ax) = 0xA1;
    c.REG(bx) = 0xB2;
    c.REG(cx) = 0xC3;
    c.REG(dx) = 0xD4;
    c.REG(si) = 0x51;
    c.REG(di) = 0xD1;
    c.REG(bp) = 0xBB;
    c.REG(ip) = reinterpret_cast<DWORD_PTR>(code);
    c.EFlags = 0x246;
    c.SegCs = 0x33;
    c.SegSs = 0x2B;
    c.SegDs = 0x1D;
    c.SegEs = 0xE5;
    c.SegFs = 0xF5;
    c.SegGs = 0x65;
    auto* stack = reinterpret_cast<DWORD_PTR*>(page.boundary()) - 4;
    for (int i = 0; i < 3; ++i) stack[i] = DWORD_PTR(0x5000 + i);
    stack[3] = reinterpret_cast<DWORD_PTR>(&module_function);
    DWORD below[4] = {0x0B0B0B01, 0x0B0B0B02, 0x0B0B0B03, 0x0B0B0B04};
    std::memcpy(reinterpret_cast<char*>(stack) - 16, below, 16);
    c.REG(sp) = reinterpret_cast<DWORD_PTR>(stack);
    return e;
}

std::string exception_dump(EXCEPTION_POINTERS* pointers, DWORD mask, LPCWSTR caption,
                           int size = 4096) {
    return guarded(size, [&](char* buffer, int n) {
        return QzErrorHandler_DumpExceptionRecord(buffer, n, caption, pointers, mask);
    });
}

std::string thread_text(const char* caption) {
    const void* low = nullptr;
    const void* high = nullptr;
    qz::platform::current_thread_stack(&low, &high);
    char id[16];
    std::snprintf(id, sizeof id, "%X", unsigned(GetCurrentThreadId()));
    return std::string("Thread: ") + caption + " ID=0x" + id + " Stack=0x" + hex_address(low) +
           "-0x" + hex_address(high) + "\r\n";
}

TEST(ExceptionDump, EachSectionInItsExactFormat) {
    GuardedPage page;
    NEED_PAGE(page);
    FakeException e = access_violation(page);

    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_EXCEPTION, nullptr),
              by_model("Exception 0xC0000005 (access violation) WRITE:0x000000000000DEAD"
                       " IP:0x000000005A59FF00\r\n",
                       "Exception 0xC0000005 (access violation) WRITE:0x0000DEAD"
                       " IP:0x5A59FF00\r\n"));
    // Anonymous memory belongs to no module.
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_MODULE, nullptr),
              by_model("In Module '?' at Address 0x0000000000000000 + 0x000000005A59FF00\r\n",
                       "In Module '?' at Address 0x00000000 + 0x5A59FF00\r\n"));
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_THREAD, nullptr), thread_text(""));
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_REGISTERS, nullptr),
              by_model("Registers:\r\n"
                       " RAX=00000000000000a1 CS=0033 RIP=000000005a59ff00 EFLGS=00000246\r\n"
                       " RBX=00000000000000b2 SS=002b RSP=000000005a59ffe0 RBP=00000000000000bb\r\n"
                       " RCX=00000000000000c3 DS=001d RSI=0000000000000051 FS=00f5\r\n"
                       " RDX=00000000000000d4 ES=00e5 RDI=00000000000000d1 GS=0065\r\n",
                       "Registers:\r\n"
                       " EAX=000000a1 CS=0033 EIP=5a59ff00 EFLGS=00000246\r\n"
                       " EBX=000000b2 SS=002b ESP=5a59fff0 EBP=000000bb\r\n"
                       " ECX=000000c3 DS=001d ESI=00000051 FS=00f5\r\n"
                       " EDX=000000d4 ES=00e5 EDI=000000d1 GS=0065\r\n"));
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_CODE, nullptr),
              by_model("Bytes at CS:EIP:\r\n"
                       " 000000005A59FF00: 41 42 43 44 45 46 47 48 ABCDEFGH\r\n"
                       " 000000005A59FF08: 49 4A 4B 4C 4D 4E 4F 50 IJKLMNOP\r\n",
                       "Bytes at CS:EIP:\r\n"
                       " 5A59FF00: 41 42 43 44 45 46 47 48 ABCDEFGH\r\n"
                       " 5A59FF08: 49 4A 4B 4C 4D 4E 4F 50 IJKLMNOP\r\n"));

    // A stack word that points into a module names the module and the offset.
    const auto function = reinterpret_cast<DWORD_PTR>(kFunction);
    const ModuleOf module = module_of(kFunction);
    char offset[20];
    std::snprintf(offset, sizeof offset, "%X", unsigned(function - module.base));
    const std::string dump = exception_dump(&e.pointers, QZDUMP_STACK, nullptr);
    const std::string head =
        by_model("Stack Dump:\r\n"
                 " 000000005A59FFE0: 0000000000005000 \r\n"
                 " 000000005A59FFE8: 0000000000005001 \r\n"
                 " 000000005A59FFF0: 0000000000005002 \r\n"
                 " 000000005A59FFF8: ",
                 "Stack Dump:\r\n"
                 " 5A59FFF0: 00005000 \r\n"
                 " 5A59FFF4: 00005001 \r\n"
                 " 5A59FFF8: 00005002 \r\n"
                 " 5A59FFFC: ") +
        addr(function) + "  " + addr(module.base) + " + " + offset + " (" + module.name +
        ")\r\n" +
        by_model(" 000000005A5A0000: ................ \r\n", " 5A5A0000: ........ \r\n");
    EXPECT_EQ(dump.substr(0, head.size()), head);
    const std::string tail =
        by_model("- - -\r\n 000000005A59FFD0: 0B0B0B01 0B0B0B02 0B0B0B03 0B0B0B04 \r\n",
                 "- - -\r\n 5A59FFE0: 0B0B0B01 0B0B0B02 0B0B0B03 0B0B0B04 \r\n");
    ASSERT_GE(dump.size(), tail.size());
    EXPECT_EQ(dump.substr(dump.size() - tail.size()), tail);

    // Mask 0 is every section, in this order.
    const std::string all = exception_dump(&e.pointers, 0, nullptr, 8192);
    std::string expected;
    for (DWORD bit :
         {QZDUMP_EXCEPTION, QZDUMP_MODULE, QZDUMP_THREAD, QZDUMP_REGISTERS, QZDUMP_CODE})
        expected += exception_dump(&e.pointers, bit, nullptr);
    EXPECT_EQ(all.substr(0, expected.size() + 13), expected + "Stack Dump:\r\n");
}

TEST(ExceptionDump, NamesReadAndPartialRecords) {
    EXCEPTION_RECORD record{};
    EXCEPTION_POINTERS pointers{&record, nullptr};
    record.ExceptionAddress = reinterpret_cast<PVOID>(0x1000);
    const std::string ip = by_model(" IP:0x0000000000001000\r\n", " IP:0x00001000\r\n");
    const struct {
        DWORD code;
        DWORD parameters;
        std::string line;
    } cases[] = {
        {0xC0000094, 0, "Exception 0xC0000094 (integer divide by zero)" + ip},
        {0xE0000042, 0, "Exception 0xE0000042 (Unknown Type)" + ip},
        // An access violation without its parameters names no access.
        {0xC0000005, 0, "Exception 0xC0000005 (access violation)" + ip},
        {0xC0000005, 2,
         "Exception 0xC0000005 (access violation) READ:0x" +
             by_model("0000000000000044", "00000044") + ip},
    };
    record.ExceptionInformation[1] = 0x44;
    for (const auto& c : cases) {
        record.ExceptionCode = c.code;
        record.NumberParameters = c.parameters;
        EXPECT_EQ(exception_dump(&pointers, QZDUMP_EXCEPTION, nullptr), c.line);
    }
    // Without a context there are no registers and no stack; without
    // pointers only the thread.
    const std::string partial = exception_dump(&pointers, 0, nullptr);
    EXPECT_EQ(partial.find("Registers:"), std::string::npos);
    EXPECT_EQ(partial.find("Stack Dump:"), std::string::npos);
    EXPECT_EQ(exception_dump(nullptr, 0, QZTEXT("only")), thread_text("only"));
    // An address in a module names the module and the offset.
    record.ExceptionAddress = const_cast<void*>(kFunction);
    const ModuleOf module = module_of(kFunction);
    EXPECT_EQ(exception_dump(&pointers, QZDUMP_MODULE, nullptr),
              "In Module '" + module.name + "' at Address 0x" + addr(module.base) + " + 0x" +
                  addr(reinterpret_cast<uintptr_t>(kFunction) - module.base) + "\r\n");
}

TEST(ExceptionDump, NeverWritesPastTheBufferAtAnySize) {
    GuardedPage page;
    NEED_PAGE(page);
    FakeException e = access_violation(page);
    for (int size = 0; size <= 1200; ++size) {
        const std::string dump = exception_dump(&e.pointers, 0, QZTEXT("caption"), size);
        if (size < int(kLineRoom)) {
            EXPECT_EQ(dump, "") << size;
        }
    }
}

TEST(ExceptionFilter, ReportsTheDumpInTheDetailsAndPassesOnMisalignments) {
    if (qz::platform::debugger_present()) GTEST_SKIP() << "a debugger takes the exception";
    GuardedPage page;
    NEED_PAGE(page);
    FakeException e = access_violation(page);
    QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("stale line"));
    MessageBoxCapture capture;
    EXPECT_EQ(QzErrorHandler_ExceptionFilter(&e.pointers, QZTEXT("Mixer thread")),
              EXCEPTION_EXECUTE_HANDLER);
    ASSERT_EQ(capture.boxes().size(), 1u);

    HRESULT code = 0;
    int lines = 0;
    const std::string details = narrow(QzErrorHandler_DetailsInfo(&code, &lines, nullptr));
    EXPECT_EQ(code, QZE_EXCEPTION);
    EXPECT_EQ(lines, 2);
    const std::string dump = exception_dump(&e.pointers, 0, QZTEXT("Mixer thread"));
    EXPECT_EQ(details, "Mixer thread\r\n" + dump + "\r\n");

    const std::string message =
        narrow(QzErrorHandler_GetErrorMessage(QZERRCTX_EXCEPTION, QZE_EXCEPTION, nullptr));
    EXPECT_EQ(narrow(capture.boxes()[0].text)
                  .rfind(message + "\n\nDetails:\nMixer thread\r\n" +
                             "Exception 0xC0000005 (access violation)",
                         0),
              0u);
    QzErrorHandler_DetailsInit();

    // A misalignment is passed on, without a box.
    EXCEPTION_RECORD misaligned{};
    misaligned.ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT;
    EXCEPTION_POINTERS passed_on{&misaligned, nullptr};
    EXPECT_EQ(QzErrorHandler_ExceptionFilter(&passed_on, QZTEXT("x")), EXCEPTION_CONTINUE_SEARCH);
    EXPECT_EQ(capture.boxes().size(), 1u);
}

}  // namespace
