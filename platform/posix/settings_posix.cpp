// The settings backend on POSIX: one small text file per store,
//
//   $XDG_CONFIG_HOME/<product>/<major>.<minor>/<section>.ini
//
// ($XDG_CONFIG_HOME defaults to ~/.config), holding one value a line,
// "name=dword:0x0000002A" or "name=sz:text" in UTF-8, with backslash,
// newline, carriage return and (in names) '=' escaped by a backslash. The
// file is replaced as a whole through a temporary file and a rename, so a
// reader never sees half of it.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "platform/platform.h"
#include "platform/posix/win32_internal.h"
#include "qz/qzresult.h"

namespace qz::platform {

namespace {

namespace fs = std::filesystem;
using Text = std::basic_string<WCHAR>;

constexpr char kNumberTag[] = "dword:";
constexpr char kTextTag[] = "sz:";

std::string to_utf8(const Text& text) {
    if (text.empty()) return {};
    const int n = WideCharToMultiByte(CP_UTF8, 0, text.data(), int(text.size()), nullptr, 0,
                                      nullptr, nullptr);
    std::string out(size_t(n > 0 ? n : 0), '\0');
    if (n > 0)
        WideCharToMultiByte(CP_UTF8, 0, text.data(), int(text.size()), out.data(), n, nullptr,
                            nullptr);
    return out;
}

Text to_utf16(const std::string& text) {
    if (text.empty()) return {};
    const int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), int(text.size()), nullptr, 0);
    Text out(size_t(n > 0 ? n : 0), WCHAR(0));
    if (n > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), int(text.size()), out.data(), n);
    return out;
}

// A path component from a name: separators and dot-only names would leave
// the configuration folder, so they become underscores.
std::string component(const Text& name) {
    std::string out = to_utf8(name);
    for (char& c : out)
        if (c == '/' || c == '\\' || c == '\0') c = '_';
    if (out.empty() || out == "." || out == "..") out = "_" + out;
    return out;
}

bool config_folder(fs::path* folder) {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg && xdg[0] == '/') {
        *folder = xdg;
        return true;
    }
    const char* home = std::getenv("HOME");
    if (!home || !home[0]) return false;
    *folder = fs::path(home) / ".config";
    return true;
}

bool store_path(const SettingsLocation& location, fs::path* path) {
    fs::path folder;
    if (!config_folder(&folder)) return false;
    const unsigned major = (location.version >> 24) & 0xFF;
    const unsigned minor = (location.version >> 16) & 0xFF;
    *path = folder / component(location.product) /
            (std::to_string(major) + "." + std::to_string(minor)) /
            (component(location.section) + ".ini");
    return true;
}

std::string escape(const std::string& text, bool is_name) {
    std::string out;
    for (char c : text) {
        if (c == '\\' || (is_name && c == '='))
            out += '\\', out += c;
        else if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else
            out += c;
    }
    return out;
}

// Undoes escape() up to an unescaped `stop` character; *end receives its
// position (npos when the text ran out).
std::string unescape(const std::string& text, size_t start, char stop, size_t* end) {
    std::string out;
    size_t i = start;
    for (; i < text.size() && text[i] != stop; ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char next = text[++i];
        out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
    }
    *end = i < text.size() ? i : std::string::npos;
    return out;
}

// One "name=kind:value" line; false for lines of another shape, which are skipped.
bool parse_line(const std::string& line, SettingValues* values) {
    if (line.empty() || line[0] == '#') return false;
    size_t equals = 0;
    const std::string name = unescape(line, 0, '=', &equals);
    if (equals == std::string::npos || name.empty()) return false;
    const std::string rest = line.substr(equals + 1);
    SettingValue value;
    if (rest.compare(0, sizeof(kNumberTag) - 1, kNumberTag) == 0) {
        char* end = nullptr;
        // Read wider than a DWORD: strtoul's long is 32 bits in 32-bit builds,
        // where a larger number would come back clamped to 0xFFFFFFFF.
        errno = 0;
        const unsigned long long number =
            std::strtoull(rest.c_str() + sizeof(kNumberTag) - 1, &end, 0);
        if (*end != '\0' || errno == ERANGE || number > 0xFFFFFFFFull) return false;
        value.is_number = true;
        value.number = DWORD(number);
    } else if (rest.compare(0, sizeof(kTextTag) - 1, kTextTag) == 0) {
        size_t unused = 0;
        value.text = to_utf16(unescape(rest, sizeof(kTextTag) - 1, '\0', &unused));
    } else {
        return false;
    }
    (*values)[to_utf16(name)] = value;
    return true;
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

}  // namespace

HRESULT load_settings(const SettingsLocation& location, SettingValues* values) {
    values->clear();
    fs::path path;
    if (!store_path(location, &path)) return S_FALSE;
    File file(std::fopen(path.c_str(), "rb"));
    if (!file) return errno == ENOENT || errno == ENOTDIR ? S_FALSE : QZE_FILE_READ;
    std::string line;
    for (int c; (c = std::fgetc(file.get())) != EOF;) {
        if (c != '\n') {
            line += char(c);
            continue;
        }
        parse_line(line, values);
        line.clear();
    }
    parse_line(line, values);
    return std::ferror(file.get()) ? QZE_FILE_READ : S_OK;
}

HRESULT save_setting(const SettingsLocation& location, const SettingValues& values,
                     const std::basic_string<WCHAR>&) {
    fs::path path;
    if (!store_path(location, &path)) return QZE_FILE_CREATE;
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) return QZE_FILE_CREATE;
    fs::path temporary = path;
    temporary += ".tmp";
    {
        File file(std::fopen(temporary.c_str(), "wb"));
        if (!file) return QZE_FILE_CREATE;
        std::string text = "# qzkernel settings: " + to_utf8(location.product) + ", section " +
                           to_utf8(location.section) + "\n";
        char number[16];
        for (const auto& [name, value] : values) {
            text += escape(to_utf8(name), true) + "=";
            if (value.is_number) {
                std::snprintf(number, sizeof(number), "0x%08X", unsigned(value.number));
                text += std::string(kNumberTag) + number;
            } else {
                text += kTextTag + escape(to_utf8(value.text), false);
            }
            text += "\n";
        }
        if (std::fwrite(text.data(), 1, text.size(), file.get()) != text.size() ||
            std::fflush(file.get()) != 0) {
            file.reset();
            fs::remove(temporary, error);
            return QZE_FILE_WRITE;
        }
    }
    fs::rename(temporary, path, error);
    if (error) {
        fs::remove(temporary, error);
        return QZE_FILE_WRITE;
    }
    return S_OK;
}

}  // namespace qz::platform
