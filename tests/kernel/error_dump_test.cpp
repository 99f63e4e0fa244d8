// The dumps: hex bytes, 32-bit words, stack words and whole exceptions,
// their exact formats, their room rules and unreadable memory.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "kernel/error_internal.h"
#include "posix/diagnostics_posix.h"
#include "support/error_support.h"
#include "win32api.h"

namespace {

using qz::testing::hex_address;
using qz::testing::MessageBoxCapture;
using qz::testing::narrow;

constexpr size_t kExtra = 2 * sizeof(void*) - 8;
constexpr size_t kLineRoom = 50 + kExtra;
constexpr size_t kStackRoom = 56 + 2 * kExtra;
constexpr char kCanary = 0x5A;

std::string addr(uintptr_t p) {
    return hex_address(reinterpret_cast<const void*>(p));
}
std::string addr(const void* p) {
    return hex_address(p);
}
// The start of a dump row: a space, then the address.
template <typename Address>
std::string row(Address p) {
    std::string text(1, ' ');
    return text.append(addr(p));
}

// Runs a dump into a buffer with guard bytes past `size` and checks them.
using DumpFn = int(QZ_STDCALL*)(char*, int, const void*, int);
std::string dump_with(DumpFn dump, const void* address, int count, int size = 4096) {
    std::vector<char> buffer(size_t(size) + 16, kCanary);
    const int n = dump(buffer.data(), size, address, count);
    EXPECT_EQ(size_t(n), std::strlen(buffer.data()));
    for (size_t i = size_t(size); i < buffer.size(); ++i) EXPECT_EQ(buffer[i], kCanary) << i;
    return buffer.data();
}
std::string hex_dump(const void* address, int count, int size = 4096) {
    return dump_with(QzErrorHandler_DumpHex, address, count, size);
}
std::string word_dump(const void* address, int count, int size = 4096) {
    return dump_with(QzErrorHandler_DumpHexDWords, address, count, size);
}

// Two pages: the first readable and writable, the second PROT_NONE.
class GuardedPage {
public:
    GuardedPage() : size_(size_t(sysconf(_SC_PAGESIZE))) {
        void* p =
            mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        base_ = p == MAP_FAILED ? nullptr : static_cast<unsigned char*>(p);
        if (base_) mprotect(base_ + size_, size_, PROT_NONE);
    }
    ~GuardedPage() {
        if (base_) munmap(base_, 2 * size_);
    }
    bool ok() const { return base_ != nullptr; }
    // The first byte that cannot be read.
    unsigned char* boundary() const { return base_ + size_; }

private:
    size_t size_;
    unsigned char* base_;
};

TEST(DumpHex, EightBytesALinePaddedColumnsAndPrintableRange) {
    const unsigned char data[] = {31, 32, 126, 127, 0x80, 0xFF, '%', '\\', 'A', 0x01, 'z'};
    EXPECT_EQ(hex_dump(data, 11), row(data) + ": 1F 20 7E 7F 80 FF 25 5C . ~...%\\\r\n" +
                                      row(data + 8) + ": 41 01 7A " + std::string(15, ' ') +
                                      "A.z\r\n");
}

TEST(DumpHex, NothingToDumpGivesTheEmptyString) {
    const char data[] = "abc";
    EXPECT_EQ(hex_dump(data, -5), "");
    EXPECT_EQ(QzErrorHandler_DumpHex(nullptr, 100, data, 3), 0);
    char untouched = kCanary;
    EXPECT_EQ(QzErrorHandler_DumpHexDWords(&untouched, -1, data, 1), 0);
    EXPECT_EQ(untouched, kCanary);
}

TEST(DumpHex, LinesNeedFiftyCharactersOfRoomPlusExtraDigits) {
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
}

TEST(DumpHex, UnreadableBytesAreMarkedWithoutTouchingThem) {
    GuardedPage page;
    ASSERT_TRUE(page.ok());
    unsigned char* p = page.boundary() - 4;
    std::memcpy(p, "AB\tD", 4);
    EXPECT_EQ(hex_dump(p, 8), row(p) + ": 41 42 09 44 .. .. .. .. AB.D....\r\n");
    EXPECT_EQ(hex_dump(page.boundary(), 3),
              row(page.boundary()) + ": .. .. .. " + std::string(15, ' ') + "...\r\n");
}

TEST(DumpHexDWords, FourWordsALineAndUnreadableWords) {
    const DWORD words[] = {0x12345678, 0xDEADBEEF, 0, 1, 0xFFFFFFFF};
    const std::string line = row(words) + ": 12345678 DEADBEEF 00000000 00000001 \r\n";
    EXPECT_EQ(word_dump(words, 5), line + row(words + 4) + ": FFFFFFFF \r\n");
    EXPECT_EQ(word_dump(words, 5, int(kLineRoom)), line);

    GuardedPage page;
    ASSERT_TRUE(page.ok());
    unsigned char* p = page.boundary() - 6;
    const DWORD first = 0xA1B2C3D4;
    std::memcpy(p, &first, 4);
    p[4] = 0x11;
    p[5] = 0x22;
    // The second word is half readable: it is unreadable as a word.
    EXPECT_EQ(word_dump(p, 3), row(p) + ": A1B2C3D4 ........ ........ \r\n");
}

TEST(MemoryProbe, BothProbesRefuseAProtNonePageAndReadOthers) {
    using qz::os::detail::ProbeResult;
    GuardedPage page;
    ASSERT_TRUE(page.ok());
    std::memset(page.boundary() - 16, 0x6B, 16);
    for (auto probe : {&qz::os::detail::read_by_vm, &qz::os::detail::read_by_pipe}) {
        unsigned char out[32] = {};
        const ProbeResult readable = probe(page.boundary() - 16, out, 16);
        if (readable == ProbeResult::Unavailable) continue;  // refused by a sandbox
        EXPECT_EQ(readable, ProbeResult::Read);
        EXPECT_EQ(out[15], 0x6B);
        EXPECT_EQ(probe(page.boundary() - 8, out, 16), ProbeResult::Unreadable);
    }
    unsigned char out[4];
    EXPECT_FALSE(qz::os::read_memory(nullptr, out, 1));
}

TEST(MemoryProbe, PipeProbeReadsLargeRangesInPieces) {
    std::vector<unsigned char> source(70000), copy(70000);
    for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<unsigned char>(i * 7);
    ASSERT_EQ(qz::os::detail::read_by_pipe(source.data(), copy.data(), source.size()),
              qz::os::detail::ProbeResult::Read);
    EXPECT_EQ(source, copy);
}

int module_function(int x) {
    return x * 3 + 1;
}
const void* const kFunction = reinterpret_cast<const void*>(&module_function);

std::string file_part(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

struct ModuleOf {
    uintptr_t base;
    std::string name;
};

ModuleOf module_of(const void* address) {
    Dl_info info{};
    EXPECT_NE(dladdr(address, &info), 0);
    return {reinterpret_cast<uintptr_t>(info.dli_fbase), file_part(info.dli_fname)};
}

TEST(StackDump, WordsNameTheirModuleAndUnreadableWordsAreDotted) {
    GuardedPage page;
    ASSERT_TRUE(page.ok());
    auto* words = reinterpret_cast<DWORD_PTR*>(page.boundary()) - 2;
    const auto function = reinterpret_cast<DWORD_PTR>(&module_function);
    words[0] = 0x1234;
    words[1] = function;
    const ModuleOf module = module_of(kFunction);
    std::vector<char> buffer(4096, kCanary);
    const qz::detail::StackSummary summary =
        qz::detail::dump_stack_lines(buffer.data(), 1000, words, 0);
    const std::string dots(2 * sizeof(void*), '.');
    char offset[20];
    std::snprintf(offset, sizeof offset, "%X", unsigned(function - module.base));
    const std::string expected_start =
        row(&words[0]) + ": " + addr(0x1234) + " \r\n" + row(&words[1]) + ": " +
        addr(function) + "  " + addr(module.base) + " + " + offset + " (" + module.name + ")\r\n" +
        row(page.boundary()) + ": " + dots + " \r\n";
    const std::string dump = buffer.data();
    EXPECT_EQ(dump.substr(0, expected_start.size()), expected_start);
    EXPECT_EQ(summary.code_references, module.base <= 0x10000000 ? 1 : 0);
    EXPECT_EQ(summary.module_references, module.base <= 0x10000000 ? 0 : 1);
    // Lines go on (dotted) while the room allows.
    EXPECT_LT(dump.size(), 1000u);
    EXPECT_GE(dump.size() + kStackRoom, 1000u - 1);
    EXPECT_EQ(buffer[1000], kCanary);
}

TEST(StackDump, WalkEndsAtTheTopOfTheThreadsStack) {
    const void* low = nullptr;
    const void* high = nullptr;
    ASSERT_TRUE(qz::os::current_thread_stack(&low, &high));
    const auto sp = reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) & ~uintptr_t(7);
    ASSERT_GT(sp, reinterpret_cast<uintptr_t>(low));
    ASSERT_LT(sp, reinterpret_cast<uintptr_t>(high));
    const size_t words = (reinterpret_cast<uintptr_t>(high) - sp) / sizeof(void*);
    std::vector<char> buffer(words * 400 + 4096);
    const qz::detail::StackSummary summary = qz::detail::dump_stack_lines(
        buffer.data(), int(buffer.size()), reinterpret_cast<const void*>(sp), 0);
    EXPECT_EQ(size_t(summary.lines), words);
}

struct FakeException {
    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
};

// An access violation writing 0xDEAD at module_function, with registers
// that tell each field apart and a stack at the end of a readable page.
FakeException access_violation(const GuardedPage& page) {
    FakeException e;
    e.record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    e.record.ExceptionAddress = reinterpret_cast<PVOID>(&module_function);
    e.record.NumberParameters = 2;
    e.record.ExceptionInformation[0] = 1;
    e.record.ExceptionInformation[1] = 0xDEAD;
    CONTEXT& c = e.context;
    c.Eax = 0xA1;
    c.Ebx = 0xB2;
    c.Ecx = 0xC3;
    c.Edx = 0xD4;
    c.Esi = 0x51;
    c.Edi = 0xD1;
    c.Ebp = 0xBB;
    c.Eip = reinterpret_cast<DWORD_PTR>(&module_function);
    c.EFlags = 0x246;
    c.SegCs = 0x33;
    c.SegSs = 0x2B;
    c.SegDs = 0x1D;
    c.SegEs = 0xE5;
    c.SegFs = 0xF5;
    c.SegGs = 0x65;
    auto* stack = reinterpret_cast<DWORD_PTR*>(page.boundary()) - 4;
    for (int i = 0; i < 4; ++i) stack[i] = DWORD_PTR(0x5000 + i);
    DWORD below[4] = {0x0B0B0B01, 0x0B0B0B02, 0x0B0B0B03, 0x0B0B0B04};
    std::memcpy(reinterpret_cast<char*>(stack) - 16, below, 16);
    c.Esp = reinterpret_cast<DWORD_PTR>(stack);
    return e;
}

std::string registers_text(const CONTEXT& c) {
    const char r = sizeof(void*) == 8 ? 'R' : 'E';
    const int w = int(2 * sizeof(void*));
    char text[512];
    std::snprintf(text, sizeof text,
                  "Registers:\r\n"
                  " %cAX=%0*llx CS=%04x %cIP=%0*llx EFLGS=%08x\r\n"
                  " %cBX=%0*llx SS=%04x %cSP=%0*llx %cBP=%0*llx\r\n"
                  " %cCX=%0*llx DS=%04x %cSI=%0*llx FS=%04x\r\n"
                  " %cDX=%0*llx ES=%04x %cDI=%0*llx GS=%04x\r\n",
                  r, w, (unsigned long long)c.Eax, unsigned(c.SegCs), r, w,
                  (unsigned long long)c.Eip, unsigned(c.EFlags), r, w, (unsigned long long)c.Ebx,
                  unsigned(c.SegSs), r, w, (unsigned long long)c.Esp, r, w,
                  (unsigned long long)c.Ebp, r, w, (unsigned long long)c.Ecx, unsigned(c.SegDs), r,
                  w, (unsigned long long)c.Esi, unsigned(c.SegFs), r, w, (unsigned long long)c.Edx,
                  unsigned(c.SegEs), r, w, (unsigned long long)c.Edi, unsigned(c.SegGs));
    return text;
}

std::string exception_dump(EXCEPTION_POINTERS* pointers, DWORD mask, LPCWSTR caption,
                           int size = 4096) {
    std::vector<char> buffer(size_t(size) + 16, kCanary);
    const int n = QzErrorHandler_DumpExceptionRecord(buffer.data(), size, caption, pointers, mask);
    if (size == 0) {
        EXPECT_EQ(n, 0);
        EXPECT_EQ(buffer[0], kCanary);
        return "";
    }
    EXPECT_EQ(size_t(n), std::strlen(buffer.data()));
    for (size_t i = size_t(size); i < buffer.size(); ++i) EXPECT_EQ(buffer[i], kCanary);
    return buffer.data();
}

std::string thread_text(const char* caption) {
    const void* low = nullptr;
    const void* high = nullptr;
    qz::os::current_thread_stack(&low, &high);
    char id[16];
    std::snprintf(id, sizeof id, "%X", unsigned(GetCurrentThreadId()));
    return std::string("Thread: ") + caption + " ID=0x" + id + " Stack=0x" + addr(low) + "-0x" +
           addr(high) + "\r\n";
}

TEST(ExceptionDump, EachSectionInItsExactFormat) {
    GuardedPage page;
    ASSERT_TRUE(page.ok());
    FakeException e = access_violation(page);
    const auto ip = reinterpret_cast<uintptr_t>(&module_function);
    const ModuleOf module = module_of(kFunction);
    const auto stack = uintptr_t(e.context.Esp);

    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_EXCEPTION, nullptr),
              "Exception 0xC0000005 (access violation) WRITE:0x" + addr(0xDEAD) + " IP:0x" +
                  addr(ip) + "\r\n");
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_MODULE, nullptr),
              "In Module '" + module.name + "' at Address 0x" + addr(module.base) + " + 0x" +
                  addr(ip - module.base) + "\r\n");
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_THREAD, nullptr), thread_text(""));
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_REGISTERS, nullptr), registers_text(e.context));
    EXPECT_EQ(exception_dump(&e.pointers, QZDUMP_CODE, nullptr),
              "Bytes at CS:EIP:\r\n" + hex_dump(kFunction, 16));

    const std::string dump = exception_dump(&e.pointers, QZDUMP_STACK, nullptr);
    std::string lines;
    for (int i = 0; i < 4; ++i)
        lines += row(stack + i * sizeof(void*)) + ": " + addr(0x5000 + i) + " \r\n";
    EXPECT_EQ(dump.substr(0, 13 + lines.size()), "Stack Dump:\r\n" + lines);
    const std::string tail =
        "- - -\r\n " + addr(stack - 16) + ": 0B0B0B01 0B0B0B02 0B0B0B03 0B0B0B04 \r\n";
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
    const struct {
        DWORD code;
        const char* text;
    } cases[] = {{0xC0000094, "(integer divide by zero)"},
                 {0xE0000042, "(Unknown Type)"},
                 // An access violation without its parameters names no access.
                 {0xC0000005, "(access violation)"}};
    for (const auto& c : cases) {
        record.ExceptionCode = c.code;
        char code[16];
        std::snprintf(code, sizeof code, "%X", unsigned(c.code));
        EXPECT_EQ(
            exception_dump(&pointers, QZDUMP_EXCEPTION, nullptr),
            "Exception 0x" + std::string(code) + " " + c.text + " IP:0x" + addr(0x1000) + "\r\n");
    }
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    record.NumberParameters = 2;
    record.ExceptionInformation[1] = 0x44;
    EXPECT_NE(exception_dump(&pointers, QZDUMP_EXCEPTION, nullptr).find(" READ:0x" + addr(0x44)),
              std::string::npos);
    // Without a context there are no registers and no stack; without
    // pointers only the thread.
    const std::string partial = exception_dump(&pointers, 0, nullptr);
    EXPECT_EQ(partial.find("Registers:"), std::string::npos);
    EXPECT_EQ(partial.find("Stack Dump:"), std::string::npos);
    EXPECT_NE(
        partial.find("In Module '?' at Address 0x" + addr(uintptr_t(0)) + " + 0x" + addr(0x1000)),
        std::string::npos);
    EXPECT_EQ(exception_dump(nullptr, 0, QZTEXT("only")), thread_text("only"));
}

TEST(ExceptionDump, NeverWritesPastTheBufferAtAnySize) {
    GuardedPage page;
    ASSERT_TRUE(page.ok());
    FakeException e = access_violation(page);
    for (int size = 0; size <= 1200; ++size) {
        const std::string dump = exception_dump(&e.pointers, 0, QZTEXT("caption"), size);
        if (size < int(kLineRoom)) {
            EXPECT_EQ(dump, "") << size;
        }
    }
}

TEST(ExceptionFilter, MisalignmentIsPassedOnWithoutABox) {
    MessageBoxCapture capture;
    EXCEPTION_RECORD record{};
    record.ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT;
    EXCEPTION_POINTERS pointers{&record, nullptr};
    EXPECT_EQ(QzErrorHandler_ExceptionFilter(&pointers, QZTEXT("x")), EXCEPTION_CONTINUE_SEARCH);
    EXPECT_TRUE(capture.boxes().empty());
}

TEST(ExceptionFilter, ReportsTheDumpInTheDetailsAndHandlesTheException) {
    if (qz::os::debugger_present()) GTEST_SKIP() << "a debugger takes the exception";
    GuardedPage page;
    ASSERT_TRUE(page.ok());
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
}

}  // namespace
