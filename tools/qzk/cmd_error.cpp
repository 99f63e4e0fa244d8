// `qzk error CODE`: the library's message text for a result code.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qzk.h"

namespace qzk {

namespace {

// Hexadecimal with the "0x" prefix ("0x8004E00B") or decimal, negative
// codes included ("-2147164149"); anything that does not fit 32 bits fails.
bool parse_number(const std::string& text, long long& value) {
    if (text.empty()) return false;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* start = text.c_str();
    char* end = nullptr;
    errno = 0;
    value = hex ? static_cast<long long>(std::strtoull(start + 2, &end, 16))
                : std::strtoll(start, &end, 10);
    if (errno != 0 || *end != 0 || (hex && text[2] == '-')) return false;
    return value >= -2147483648LL && value <= 0xFFFFFFFFLL;
}

}  // namespace

std::string message_text(HRESULT code) {
    const LPCWSTR raw = QzErrorHandler_GetHresultString(code);
    if (!raw) return std::string();
    std::basic_string<WCHAR> shown(size_t(QzLang_ExpandText(raw, nullptr, 0)) + 1, WCHAR(0));
    shown.resize(size_t(QzLang_ExpandText(raw, shown.data(), int(shown.size()))));
    std::string text = utf8(shown);
    // The kernel's texts open with line breaks to follow a context sentence.
    const size_t start = text.find_first_not_of("\r\n");
    return start == std::string::npos ? std::string() : text.substr(start);
}

int run_error(const Args& args) {
    Args rest = args;
    const bool json = take_flag(rest, "--json");
    const bool win32 = take_flag(rest, "--win32");
    long long number = 0;
    if (rest.size() != 1 || !parse_number(rest[0], number)) {
        std::fprintf(stderr, "usage: qzk error [--win32] [--json] CODE\n");
        return 2;
    }
    const HRESULT code = win32 ? QzErrorHandler_TranslateWin32Error(DWORD(number))
                               : HRESULT(static_cast<DWORD>(number));
    const LPCWSTR found = QzErrorHandler_GetHresultString(code);
    const std::string text = message_text(code);
    if (json) {
        std::printf("{\"code\": %s, ", json_quote(hex_code(code)).c_str());
        if (win32) std::printf("\"win32\": %lld, ", number);
        std::printf("\"failure\": %s, \"message\": %s}\n", FAILED(code) ? "true" : "false",
                    found ? json_quote(text).c_str() : "null");
        return found ? 0 : 1;
    }
    if (!found) {
        std::fprintf(stderr, "qzk error: no message for %s\n", hex_code(code).c_str());
        return 1;
    }
    if (win32) std::printf("Win32 error %lld -> ", number);
    std::printf("%s: %s\n", hex_code(code).c_str(), text.c_str());
    return 0;
}

}  // namespace qzk
