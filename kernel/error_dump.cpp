// Plain-text dumps for crash reports: bytes, 32-bit words, stack words and
// whole exceptions, and the exception filter that shows them.
//
// Every line is written only while the buffer has room for the longest
// line of its kind, so a dump stops early instead of writing a cut line.
// The room figures were reckoned for 8-digit addresses; addresses print as
// 2 * sizeof(void*) digits, and the figures grow by the extra digits.
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "base/format.h"
#include "kernel/error_internal.h"
#include "platform/platform.h"
#include "platform/win32api.h"
#include "qz/qzkernel.h"

namespace qz::errors {

namespace {

constexpr size_t kAddressDigits = 2 * sizeof(void*);
constexpr size_t kExtraDigits = kAddressDigits - 8;
// A hex or word line: 45 or 49 characters with 8-digit addresses.
constexpr size_t kLineRoom = 50 + kExtraDigits;
// A stack line prints the address and a pointer-sized word.
constexpr size_t kStackLineRoom = 56 + 2 * kExtraDigits;
constexpr char kStackSeparator[] = "- - -\r\n";
// What the stack section keeps for its closing separator and word line.
constexpr size_t kStackTailRoom = sizeof kStackSeparator - 1 + kLineRoom;
constexpr int kBytesPerLine = 8;
constexpr int kWordsPerLine = 4;
constexpr int kCodeBytes = 16;
// Words this far below the stack pointer close the stack section.
constexpr uintptr_t kBelowStack = 16;
constexpr int kWordsBelowStack = 4;
// Images loaded at or below this address are the application's own (the
// system's libraries load higher); stack words into them count as code.
constexpr uintptr_t kApplicationImageLimit = 0x10000000;
constexpr size_t kFilterDumpBytes = 4096;

struct ExceptionName {
    DWORD code;
    const char* name;
};

constexpr ExceptionName kExceptionNames[] = {
    {0x80000001, "guard page violation"},
    {0x80000002, "datatype misalignment"},
    {0x80000003, "breakpoint"},
    {0x80000004, "single step"},
    {0xC0000005, "access violation"},
    {0xC0000006, "in page error"},
    {0xC0000008, "invalid handle"},
    {0xC0000017, "no memory"},
    {0xC000001D, "illegal instruction"},
    {0xC0000025, "noncontinuable exception"},
    {0xC0000026, "invalid disposition"},
    {0xC000008C, "array bounds exceeded"},
    {0xC000008D, "float denormal operand"},
    {0xC000008E, "float divide by zero"},
    {0xC000008F, "float inexact result"},
    {0xC0000090, "float invalid operation"},
    {0xC0000091, "float overflow"},
    {0xC0000092, "float stack check"},
    {0xC0000093, "float underflow"},
    {0xC0000094, "integer divide by zero"},
    {0xC0000095, "integer overflow"},
    {0xC0000096, "privileged instruction"},
    {0xC00000FD, "stack overflow"},
    {0xC000013A, "control+c exit"},
};

const char* exception_name(DWORD code) {
    for (const auto& entry : kExceptionNames)
        if (entry.code == code) return entry.name;
    return "Unknown Type";
}

// The 8-bit output of a dump: always terminated, never written past size.
class Out {
public:
    Out(char* buffer, int size) : buffer_(buffer), size_(buffer && size > 0 ? size_t(size) : 0) {
        if (size_) buffer_[0] = 0;
    }
    size_t room() const { return size_ - length_; }
    int length() const { return int(length_); }

    void append(const char* format, ...) {
        if (!size_) return;
        va_list args;
        va_start(args, format);
        length_ += qz::base::vformat(buffer_ + length_, size_ - length_, format, args).length;
        va_end(args);
    }
    // Appends a whole line, or nothing when it does not fit.
    bool append_whole(const char* line, size_t n) {
        if (n + 1 > room()) return false;
        std::memcpy(buffer_ + length_, line, n + 1);
        length_ += n;
        return true;
    }

private:
    char* buffer_;
    size_t size_;
    size_t length_ = 0;
};

const void* as_pointer(uintptr_t address) {
    return reinterpret_cast<const void*>(address);
}

// Reads `n` bytes into `bytes`, flagging each readable one in `readable`.
void read_bytes(uintptr_t at, int n, BYTE* bytes, bool* readable) {
    if (platform::read_memory(as_pointer(at), bytes, size_t(n))) {
        for (int i = 0; i < n; ++i) readable[i] = true;
        return;
    }
    for (int i = 0; i < n; ++i)
        readable[i] = platform::read_memory(as_pointer(at + i), &bytes[i], 1);
}

void hex_lines(Out& out, uintptr_t at, int count) {
    while (count > 0 && out.room() >= kLineRoom) {
        const int n = count < kBytesPerLine ? count : kBytesPerLine;
        BYTE bytes[kBytesPerLine] = {};
        bool readable[kBytesPerLine] = {};
        read_bytes(at, n, bytes, readable);
        out.append(" %p: ", as_pointer(at));
        for (int i = 0; i < kBytesPerLine; ++i) {
            if (i >= n)
                out.append("   ");
            else if (readable[i])
                out.append("%02X ", unsigned(bytes[i]));
            else
                out.append(".. ");
        }
        for (int i = 0; i < n; ++i) {
            const bool printable = readable[i] && bytes[i] >= 32 && bytes[i] <= 126;
            out.append("%c", printable ? char(bytes[i]) : '.');
        }
        out.append("\r\n");
        at += uintptr_t(n);
        count -= n;
    }
}

void word_lines(Out& out, uintptr_t at, int count) {
    while (count > 0 && out.room() >= kLineRoom) {
        const int n = count < kWordsPerLine ? count : kWordsPerLine;
        out.append(" %p: ", as_pointer(at));
        for (int i = 0; i < n; ++i, at += sizeof(DWORD)) {
            DWORD word = 0;
            if (platform::read_memory(as_pointer(at), &word, sizeof word))
                out.append("%08X ", unsigned(word));
            else
                out.append("........ ");
        }
        out.append("\r\n");
        count -= n;
    }
}

const WCHAR* file_name_part(const WCHAR* path) {
    const WCHAR* name = path;
    for (const WCHAR* p = path; *p; ++p)
        if (*p == WCHAR('\\') || *p == WCHAR('/')) name = p + 1;
    return name;
}

// A readable pointer-sized word that points into a module names the module
// and the offset in it.
size_t format_stack_line(char* line, size_t capacity, uintptr_t at, StackSummary& summary) {
    DWORD_PTR word = 0;
    if (!platform::read_memory(as_pointer(at), &word, sizeof word)) {
        char dots[kAddressDigits + 1];
        std::memset(dots, '.', kAddressDigits);
        dots[kAddressDigits] = 0;
        return qz::base::format(line, capacity, " %p: %s \r\n", as_pointer(at), dots).length;
    }
    size_t n = qz::base::format(line, capacity, " %p: %p ", as_pointer(at), as_pointer(word)).length;
    platform::ModuleInfo module;
    if (platform::module_from_address(as_pointer(word), &module)) {
        const auto base = reinterpret_cast<uintptr_t>(module.base);
        if (base <= kApplicationImageLimit)
            ++summary.code_references;
        else
            ++summary.module_references;
        n += qz::base::format(line + n, capacity - n, " %p + %X (%S)", module.base, unsigned(word - base),
                        file_name_part(module.path))
                 .length;
    }
    return n + qz::base::format(line + n, capacity - n, "\r\n").length;
}

void exception_line(Out& out, const EXCEPTION_RECORD& record, const void* ip) {
    const DWORD code = record.ExceptionCode;
    char access[8 + kAddressDigits + 8] = "";
    if (code == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2)
        qz::base::format(access, sizeof access, " %s:0x%p",
                   record.ExceptionInformation[0] ? "WRITE" : "READ",
                   as_pointer(record.ExceptionInformation[1]));
    out.append("Exception 0x%X (%s)%s IP:0x%p\r\n", unsigned(code), exception_name(code), access,
               ip);
}

void module_line(Out& out, const void* ip) {
    platform::ModuleInfo module;
    if (!platform::module_from_address(ip, &module)) {
        module.base = nullptr;
        module.path[0] = WCHAR('?');
        module.path[1] = 0;
    }
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(ip) - reinterpret_cast<uintptr_t>(module.base);
    out.append("In Module '%S' at Address 0x%p + 0x%p\r\n", file_name_part(module.path),
               module.base, as_pointer(offset));
}

void thread_line(Out& out, LPCWSTR caption) {
    const void* low = nullptr;
    const void* high = nullptr;
    platform::current_thread_stack(&low, &high);
    char stack[8 + 2 * kAddressDigits + 8];
    qz::base::format(stack, sizeof stack, "0x%p-0x%p", low, high);
    out.append("Thread: %S ID=0x%X Stack=%s\r\n", caption ? caption : QZTEXT(""),
               unsigned(GetCurrentThreadId()), stack);
}

// The registers of a CONTEXT by their x86 names: 64-bit Windows calls them
// Rax, Rip, ...; 32-bit Windows and the POSIX layer's record Eax, Eip, ...
#if defined(_WIN64)
#define QZ_REGISTER(c, name) ULONGLONG((c).R##name)
#else
#define QZ_REGISTER(c, name) ULONGLONG((c).E##name)
#endif

// The x86 layout of the four register lines, with the platform's register
// width: "EAX" and 8 digits on 32-bit builds, "RAX" and 16 on 64-bit ones.
void register_lines(Out& out, const CONTEXT& c) {
    const char r = sizeof(void*) == 8 ? 'R' : 'E';
    const int w = int(kAddressDigits);
    out.append("Registers:\r\n");
    out.append(" %cAX=%0*llx CS=%04x %cIP=%0*llx EFLGS=%08x\r\n", r, w, QZ_REGISTER(c, ax),
               unsigned(c.SegCs), r, w, QZ_REGISTER(c, ip), unsigned(c.EFlags));
    out.append(" %cBX=%0*llx SS=%04x %cSP=%0*llx %cBP=%0*llx\r\n", r, w, QZ_REGISTER(c, bx),
               unsigned(c.SegSs), r, w, QZ_REGISTER(c, sp), r, w, QZ_REGISTER(c, bp));
    out.append(" %cCX=%0*llx DS=%04x %cSI=%0*llx FS=%04x\r\n", r, w, QZ_REGISTER(c, cx),
               unsigned(c.SegDs), r, w, QZ_REGISTER(c, si), unsigned(c.SegFs));
    out.append(" %cDX=%0*llx ES=%04x %cDI=%0*llx GS=%04x\r\n", r, w, QZ_REGISTER(c, dx),
               unsigned(c.SegEs), r, w, QZ_REGISTER(c, di), unsigned(c.SegGs));
}

StackSummary stack_lines(Out& out, uintptr_t sp, size_t reserve) {
    StackSummary summary{};
    const void* low = nullptr;
    const void* high = nullptr;
    uintptr_t top = 0;
    if (platform::current_thread_stack(&low, &high) && sp >= reinterpret_cast<uintptr_t>(low) &&
        sp < reinterpret_cast<uintptr_t>(high))
        top = reinterpret_cast<uintptr_t>(high);
    // Room for the longest module name in the widest 8-bit code page.
    char line[64 + 3 * kAddressDigits + 2 * MAX_PATH];
    for (uintptr_t at = sp; at >= sp && out.room() >= kStackLineRoom + reserve;
         at += sizeof(DWORD_PTR)) {
        if (top && at + sizeof(DWORD_PTR) > top) break;
        const size_t n = format_stack_line(line, sizeof line, at, summary);
        if (n + 1 + reserve > out.room() || !out.append_whole(line, n)) break;
        ++summary.lines;
    }
    return summary;
}

void stack_section(Out& out, uintptr_t sp) {
    out.append("Stack Dump:\r\n");
    stack_lines(out, sp, kStackTailRoom);
    out.append("%s", kStackSeparator);
    word_lines(out, sp - kBelowStack, kWordsBelowStack);
}

const void* instruction_address(const EXCEPTION_RECORD* record, const CONTEXT* context) {
    if (record) return record->ExceptionAddress;
    return context ? as_pointer(uintptr_t(QZ_REGISTER(*context, ip))) : nullptr;
}

}  // namespace

StackSummary dump_stack_lines(char* buffer, int size, const void* sp, size_t reserve) {
    Out out(buffer, size);
    return stack_lines(out, reinterpret_cast<uintptr_t>(sp), reserve);
}

}  // namespace qz::errors

using qz::errors::Out;

QZ_EXTERN_C QZ_API int QZ_STDCALL QzErrorHandler_DumpHex(LPSTR buffer, int size, LPCVOID address,
                                                         int count) {
    Out out(buffer, size);
    qz::errors::hex_lines(out, reinterpret_cast<uintptr_t>(address), count);
    return out.length();
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzErrorHandler_DumpHexDWords(LPSTR buffer, int size,
                                                               LPCVOID address, int count) {
    Out out(buffer, size);
    qz::errors::word_lines(out, reinterpret_cast<uintptr_t>(address), count);
    return out.length();
}

QZ_EXTERN_C QZ_API int QZ_STDCALL QzErrorHandler_DumpExceptionRecord(LPSTR buffer, int size,
                                                                     LPCWSTR caption,
                                                                     EXCEPTION_POINTERS* pointers,
                                                                     DWORD mask) {
    using namespace qz::errors;
    Out out(buffer, size);
    if (mask == 0) mask = QZDUMP_ALL;
    const EXCEPTION_RECORD* record = pointers ? pointers->ExceptionRecord : nullptr;
    const CONTEXT* context = pointers ? pointers->ContextRecord : nullptr;
    const void* ip = instruction_address(record, context);
    const bool has_ip = record || context;
    auto section = [&](DWORD bit, bool possible) {
        return (mask & bit) && possible && out.room() >= kLineRoom;
    };
    if (section(QZDUMP_EXCEPTION, record != nullptr)) exception_line(out, *record, ip);
    if (section(QZDUMP_MODULE, has_ip)) module_line(out, ip);
    if (section(QZDUMP_THREAD, true)) thread_line(out, caption);
    if (section(QZDUMP_REGISTERS, context != nullptr)) register_lines(out, *context);
    if (section(QZDUMP_CODE, has_ip)) {
        out.append("Bytes at CS:EIP:\r\n");
        hex_lines(out, reinterpret_cast<uintptr_t>(ip), kCodeBytes);
    }
    if (section(QZDUMP_STACK, context != nullptr)) stack_section(out, uintptr_t(QZ_REGISTER(*context, sp)));
    return out.length();
}

QZ_EXTERN_C QZ_API LONG QZ_STDCALL QzErrorHandler_ExceptionFilter(EXCEPTION_POINTERS* pointers,
                                                                  LPCWSTR caption) {
    using namespace qz::errors;
    // Misaligned accesses are fixed up by whoever handles them further on.
    if (pointers && pointers->ExceptionRecord &&
        pointers->ExceptionRecord->ExceptionCode == EXCEPTION_DATATYPE_MISALIGNMENT)
        return EXCEPTION_CONTINUE_SEARCH;
    // One report at a time; the buffer is static so that a crash with a
    // nearly exhausted stack can still be reported.
    static std::mutex report_lock;
    static char dump[kFilterDumpBytes];
    std::lock_guard<std::mutex> guard(report_lock);
    QzErrorHandler_DumpExceptionRecord(dump, int(sizeof dump), caption, pointers, 0);
    if (qz::platform::debugger_present()) return EXCEPTION_CONTINUE_SEARCH;
    QzErrorHandler_DetailsInit();
    QzErrorHandler_DetailsAddString(QZE_EXCEPTION, QZTEXT("%s"), caption ? caption : QZTEXT(""));
    QzErrorHandler_DetailsAddString(QZE_EXCEPTION, QZTEXT("%S"), dump);
    QzErrorHandler_MsgBox(nullptr, MB_ICONHAND, QZERRCTX_EXCEPTION, QZE_EXCEPTION, nullptr, 0);
    return EXCEPTION_EXECUTE_HANDLER;
}
