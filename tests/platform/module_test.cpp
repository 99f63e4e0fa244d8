// Module handles and file names.
#include <gtest/gtest.h>

#include <limits.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/win32api.h"
#include "tests/support/platform_testing.h"

namespace {

using qz::testing::wide;

std::string self_exe() {
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path);
    return n > 0 ? std::string(path, static_cast<size_t>(n)) : std::string();
}

std::u16string module_file_name(HMODULE module) {
    std::vector<WCHAR> buffer(8192);
    const DWORD n = GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    return std::u16string(buffer.data(), n);
}

TEST(ModuleFileName, NullModuleIsTheExecutableAndShortBuffersTruncate) {
    const std::u16string full = wide(self_exe());
    ASSERT_FALSE(full.empty());
    EXPECT_EQ(module_file_name(nullptr), full);
    const HMODULE executable = GetModuleHandleW(nullptr);
    ASSERT_NE(executable, nullptr);
    EXPECT_EQ(module_file_name(executable), full);
    EXPECT_EQ(GetModuleHandleW(full.c_str()), executable);

    const DWORD length = static_cast<DWORD>(full.size());
    for (DWORD size : {1u, 5u, length, length + 1}) {
        SCOPED_TRACE(size);
        std::vector<WCHAR> buffer(size + 1, u'#');
        SetLastError(0);
        const DWORD n = GetModuleFileNameW(nullptr, buffer.data(), size);
        if (size > length) {
            EXPECT_EQ(n, length);
            EXPECT_EQ(GetLastError(), 0u);
            EXPECT_EQ(std::u16string(buffer.data()), full);
        } else {
            EXPECT_EQ(n, size);
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
            EXPECT_EQ(buffer[size - 1], 0);
            EXPECT_EQ(std::u16string(buffer.data()), full.substr(0, size - 1));
        }
        EXPECT_EQ(buffer[size], u'#');  // nothing written past the buffer
    }
    WCHAR unused = u'#';
    EXPECT_EQ(GetModuleFileNameW(nullptr, &unused, 0), 0u);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(unused, u'#');
}

TEST(ModuleFileName, UnknownModulesAreNotFound) {
    int on_stack = 0;
    const auto inside =
        reinterpret_cast<HMODULE>(reinterpret_cast<char*>(GetModuleHandleW(nullptr)) + 4096);
    for (HMODULE unknown : {reinterpret_cast<HMODULE>(&on_stack), inside}) {
        WCHAR buffer[64] = {};
        SetLastError(0);
        EXPECT_EQ(GetModuleFileNameW(unknown, buffer, 64), 0u);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    }
    for (const char16_t* name : {u"no-such-module.so", u"libc.so"}) {
        SetLastError(0);
        EXPECT_EQ(GetModuleHandleW(name), nullptr);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
    }
}

}  // namespace
