#include "tests/support/platform_testing.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace qz::testing {

TempDir::TempDir() {
    std::string pattern = ::testing::TempDir() + "qzk-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    // Tests may leave read-only entries behind; make them removable first.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(path_, ignored);
}

WString wide(const std::string& utf8) {
    WString out;
    for (size_t i = 0; i < utf8.size();) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        if (b < 0x80) {
            out.push_back(b);
            i += 1;
        } else if ((b & 0xE0) == 0xC0) {
            out.push_back(static_cast<WCHAR>(((b & 0x1F) << 6) | (utf8[i + 1] & 0x3F)));
            i += 2;
        } else {
            out.push_back(static_cast<WCHAR>(((b & 0x0F) << 12) | ((utf8[i + 1] & 0x3F) << 6) |
                                             (utf8[i + 2] & 0x3F)));
            i += 3;
        }
    }
    return out;
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value)
    : name_(name), had_(std::getenv(name) != nullptr) {
    if (had_) old_ = std::getenv(name);
    ::setenv(name, value.c_str(), 1);
    ::tzset();
}

ScopedEnv::~ScopedEnv() {
    had_ ? ::setenv(name_, old_.c_str(), 1) : ::unsetenv(name_);
    ::tzset();
}

bool native_exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

std::string native_read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "<missing>";
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void native_write(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace qz::testing
