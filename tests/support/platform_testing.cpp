#include "tests/support/platform_testing.h"

#if defined(_WIN32)
#include <winioctl.h>
#endif

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace qz::testing {

namespace fs = std::filesystem;

namespace {

// A UTF-8 path as the file system's own path type (UTF-16 on Windows).
fs::path native_path(const std::string& utf8) {
    return fs::path(std::u8string(utf8.begin(), utf8.end()));
}

}  // namespace

TempDir::TempDir() {
    // GoogleTest's folder ends with the separator of the platform.
    const std::string base = ::testing::TempDir();
    std::random_device seed;
    std::mt19937 random(seed());
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string name = "qzk-test-";
        for (int i = 0; i < 6; ++i) name += "abcdefghijklmnopqrstuvwxyz0123456789"[random() % 36];
        std::error_code error;
        if (fs::create_directory(native_path(base + name), error)) {
            path_ = base + name;
            return;
        }
    }
    throw std::runtime_error("cannot make a folder under " + base);
}

TempDir::~TempDir() {
    std::error_code ignored;
    const fs::path root = native_path(path_);
    // Tests may leave read-only entries behind; make them removable first.
    for (auto it = fs::recursive_directory_iterator(root, ignored);
         it != fs::recursive_directory_iterator(); it.increment(ignored)) {
        fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
    fs::remove_all(root, ignored);
}

WString wide(const std::string& utf8) {
#if defined(_WIN32)
    return native_path(utf8).wstring();
#else
    return native_path(utf8).u16string();
#endif
}

bool native_exists(const std::string& path) {
    std::error_code ignored;
    return fs::exists(fs::symlink_status(native_path(path), ignored));
}

std::string native_read(const std::string& path) {
    std::ifstream in(native_path(path), std::ios::binary);
    if (!in) return "<missing>";
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void native_write(const std::string& path, const std::string& bytes) {
    std::ofstream out(native_path(path), std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void native_make_folder(const std::string& path) {
    std::error_code ignored;
    fs::create_directory(native_path(path), ignored);
}

void native_remove(const std::string& path) {
    std::error_code ignored;
    fs::remove(native_path(path), ignored);
}

void native_resize(const std::string& path, unsigned long long size) {
#if defined(_WIN32)
    // Marked sparse first where the file system keeps sparse files, so that
    // the length needs no space.
    const HANDLE file = CreateFileW(native_path(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot open " + path);
    DWORD returned = 0;
    DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
    LARGE_INTEGER end;
    end.QuadPart = LONGLONG(size);
    const bool done = SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file);
    CloseHandle(file);
    if (!done) throw std::runtime_error("cannot resize " + path);
#else
    fs::resize_file(native_path(path), size);
#endif
}

bool running_under_wine() {
#if defined(_WIN32)
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
    return false;
#endif
}

bool ansi_code_page_is_1252() {
#if defined(_WIN32)
    return GetACP() == 1252;
#else
    return true;
#endif
}

void set_environment(const char* name, const char* value) {
#if defined(_WIN32)
    // Both views of the environment: the C library's and the process's.
    _putenv_s(name, value ? value : "");
    SetEnvironmentVariableA(name, value);
    _tzset();
#else
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
    tzset();
#endif
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name_(name) {
    const char* old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    set_environment(name, value);
}

ScopedEnvironment::~ScopedEnvironment() {
    set_environment(name_.c_str(), had_ ? old_.c_str() : nullptr);
}

}  // namespace qz::testing
