// Folder listings, disk space and module resources of the POSIX layer.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>

#include "platform/win32api.h"
#include "tests/support/platform_testing.h"

namespace {

using qz::testing::native_write;
using qz::testing::TempDir;

std::set<std::u16string> listing(const std::u16string& pattern, DWORD* error) {
    std::set<std::u16string> names;
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(pattern.c_str(), &data);
    *error = GetLastError();
    if (find == INVALID_HANDLE_VALUE) return names;
    do names.insert(data.cFileName);
    while (FindNextFileW(find, &data));
    *error = GetLastError();
    EXPECT_TRUE(FindClose(find));
    return names;
}

TEST(FindFirstFile, PatternsMatchAsOnWindowsAndTheFolderHasFreeSpace) {
    TempDir dir;
    native_write(dir.file("a.txt"), "12345");
    native_write(dir.file("README"), "");
    ::mkdir(dir.file("sub").c_str(), 0755);
    const struct {
        const char* pattern;
        std::set<std::u16string> names;
        DWORD error;
    } cases[] = {
        {"*.*", {u".", u"..", u"a.txt", u"README", u"sub"}, ERROR_NO_MORE_FILES},
        {"*.txt", {u"a.txt"}, ERROR_NO_MORE_FILES},
        {"?EADM*", {u"README"}, ERROR_NO_MORE_FILES},
        {"*.wav", {}, ERROR_FILE_NOT_FOUND},
        {"missing\\*.*", {}, ERROR_PATH_NOT_FOUND},
    };
    for (const auto& c : cases) {
        DWORD error = 0;
        EXPECT_EQ(listing(dir.wide(c.pattern), &error), c.names) << c.pattern;
        EXPECT_EQ(error, c.error) << c.pattern;
    }
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW(dir.wide("a.txt").c_str(), &data);
    ASSERT_NE(find, INVALID_HANDLE_VALUE);
    EXPECT_EQ(data.nFileSizeLow, 5u);
    EXPECT_EQ(data.dwFileAttributes, FILE_ATTRIBUTE_NORMAL);
    FindClose(find);
    // The free space is that of the folder's file system.
    ULARGE_INTEGER free_bytes{}, total{};
    ASSERT_TRUE(GetDiskFreeSpaceExW(dir.wide("").c_str(), &free_bytes, &total, nullptr));
    EXPECT_GT(total.QuadPart, 0u);
    EXPECT_LE(free_bytes.QuadPart, total.QuadPart);
    EXPECT_FALSE(GetDiskFreeSpaceExW(dir.wide("missing").c_str(), &free_bytes, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), DWORD(ERROR_FILE_NOT_FOUND));
}

TEST(Resources, RegisteredBytesAreFoundByTypeAndNameIgnoringCase) {
    static const char kBytes[] = "PK";
    ASSERT_TRUE(QzPosix_AddResource(nullptr, u"ZIP", u"Skin", kBytes, 2));
    HRSRC found = FindResourceW(nullptr, u"SKIN", u"zip");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(SizeofResource(nullptr, found), 2u);
    EXPECT_EQ(LockResource(LoadResource(nullptr, found)), kBytes);
    EXPECT_EQ(FindResourceW(nullptr, u"Other", u"ZIP"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_RESOURCE_NAME_NOT_FOUND));
    EXPECT_EQ(FindResourceW(nullptr, u"Skin", u"PNG"), nullptr);
    EXPECT_EQ(GetLastError(), DWORD(ERROR_RESOURCE_TYPE_NOT_FOUND));
    ASSERT_TRUE(QzPosix_RemoveResource(nullptr, u"ZIP", u"skin"));
    EXPECT_EQ(FindResourceW(nullptr, u"Skin", u"ZIP"), nullptr);
    EXPECT_FALSE(QzPosix_AddResource(nullptr, u"", u"x", kBytes, 1));
}

}  // namespace
