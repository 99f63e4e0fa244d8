// `qzk error CODE`: the library's message text for a result code.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/qzk/qzk.h"

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

namespace {

// The dump's "\r\n" line ends as the terminal's.
std::string terminal_lines(const char* text) {
    std::string out;
    for (const char* p = text; *p; ++p)
        if (*p != '\r') out += *p;
    return out;
}

}  // namespace

int demo_errors() {
    QzErrorHandler_DetailsInit();
    QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("Path: %s"),
                                    QZTEXT("/music/session/take 3.wav"));
    const LPCWSTR message =
        QzErrorHandler_GetErrorMessage(QZERRCTX_FILE_OPEN, QZE_FILE_OPEN, QZTEXT("take 3.wav"));
    int lines = 0;
    const LPCWSTR details = QzErrorHandler_DetailsInfo(nullptr, &lines, nullptr);
    std::printf("composed message:\n%s\n", utf8(message).c_str());
    std::printf("details (%d line): %s", lines, utf8(details).c_str());

    static const char header[] = "RIFF\x24\x10\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00";
    char dump[512];
    const int written = QzErrorHandler_DumpHex(dump, int(sizeof dump), header, 22);
    std::printf("\nhex dump of a wave file header:\n%s", terminal_lines(dump).c_str());
    QzErrorHandler_DetailsInit();
    return message && details && written > 0 ? 0 : 1;
}

}  // namespace qzk
