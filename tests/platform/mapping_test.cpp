// File mapping of the POSIX layer: sections, views and their lifetimes.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/win32api.h"
#include "tests/support/platform_testing.h"

namespace {

using qz::testing::native_exists;
using qz::testing::native_read;
using qz::testing::native_write;
using qz::testing::TempDir;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

HANDLE open_file(const std::u16string& path, DWORD access, DWORD disposition = OPEN_EXISTING,
                 DWORD flags = 0) {
    return CreateFileW(path.c_str(), access, kShareAll, nullptr, disposition, flags, nullptr);
}

/* Bytes whose value shows their offset, so a view at the wrong place shows. */
std::string pattern(size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 251) & 0xFF);
    return bytes;
}

DWORD file_size(HANDLE file) {
    return GetFileSize(file, nullptr);
}

TEST(FileMapping, SharedViewsWriteTheFileCopyViewsDoNotAndBothOutliveTheirHandles) {
    TempDir dir;
    native_write(dir.file("f"), "abcdefgh");
    HANDLE file = open_file(dir.wide("f"), kReadWrite);
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, 0, 0, nullptr);
    ASSERT_TRUE(CloseHandle(file));
    auto* shared = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, 0));
    auto* copy = static_cast<char*>(MapViewOfFile(mapping, FILE_MAP_COPY, 0, 0, 0));
    ASSERT_TRUE(shared && copy);
    ASSERT_TRUE(CloseHandle(mapping));
    EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    std::memcpy(shared, "AB", 2);
    std::memcpy(copy + 4, "XY", 2);
    EXPECT_EQ(std::string(copy, 8), "ABcdXYgh");  // untouched pages still follow the file
    EXPECT_TRUE(UnmapViewOfFile(shared));
    EXPECT_TRUE(UnmapViewOfFile(copy));
    EXPECT_EQ(native_read(dir.file("f")), "ABcdefgh");
}

TEST(FileMapping, SectionSizeAgainstTheFileSize) {
    TempDir dir;
    native_write(dir.file("empty"), "");
    native_write(dir.file("small"), "0123456789");
    HANDLE empty = open_file(dir.wide("empty"), kReadWrite);
    HANDLE small = open_file(dir.wide("small"), kReadWrite);

    EXPECT_EQ(CreateFileMappingW(empty, nullptr, PAGE_READONLY, 0, 0, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_INVALID));
    EXPECT_EQ(CreateFileMappingW(small, nullptr, PAGE_READONLY, 0, 11, nullptr), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_ENOUGH_MEMORY));

    // A writable section larger than its file grows the file, with zeros.
    HANDLE grown = CreateFileMappingW(small, nullptr, PAGE_READWRITE, 0, 70000, nullptr);
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(file_size(small), 70000u);
    const auto* tail = static_cast<const char*>(MapViewOfFile(grown, FILE_MAP_READ, 0, 65536, 0));
    ASSERT_NE(tail, nullptr);
    EXPECT_EQ(std::string(tail, 4464), std::string(4464, '\0'));
    UnmapViewOfFile(tail);
    CloseHandle(grown);
    CloseHandle(empty);
    CloseHandle(small);
}

TEST(FileMapping, ViewOffsetsAndLengths) {
    TempDir dir;
    const std::string bytes = pattern(3 * 65536 + 100);
    native_write(dir.file("f"), bytes);
    HANDLE file = open_file(dir.wide("f"), GENERIC_READ);
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    struct Case {
        DWORD offset;
        SIZE_T bytes;
        DWORD error; /* 0: the view maps */
    };
    const Case cases[] = {
        {0, 0, 0},
        {3 * 65536, 0, 0},  // the last 100 bytes
        {65536, 10, 0},
        {4096, 0, ERROR_MAPPED_ALIGNMENT},  // a page is not enough
        {0, bytes.size() + 1, ERROR_ACCESS_DENIED},
        {3 * 65536, 101, ERROR_ACCESS_DENIED},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.offset << " + " << c.bytes);
        const auto* view =
            static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, c.offset, c.bytes));
        if (c.error != 0) {
            EXPECT_EQ(view, nullptr);
            EXPECT_EQ(GetLastError(), c.error);
            continue;
        }
        ASSERT_NE(view, nullptr);
        const size_t length = c.bytes != 0 ? c.bytes : bytes.size() - c.offset;
        EXPECT_EQ(std::memcmp(view, bytes.data() + c.offset, length), 0);
        EXPECT_TRUE(UnmapViewOfFile(view));
    }
    EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 1, 0, 0), nullptr);  // 4 GiB in
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    CloseHandle(mapping);
    CloseHandle(file);
}

TEST(FileMapping, AccessMustMatchTheHandleAndTheSection) {
    TempDir dir;
    native_write(dir.file("f"), "data");
    HANDLE reader = open_file(dir.wide("f"), GENERIC_READ);
    HANDLE writer = open_file(dir.wide("f"), GENERIC_WRITE);
    HANDLE mapping = CreateFileMappingW(reader, nullptr, PAGE_READONLY, 0, 0, nullptr);
    ASSERT_NE(mapping, nullptr);
    struct Case {
        HANDLE handle;
        DWORD protect_or_access; /* a section to make, or a view of a mapping */
        DWORD error;
    };
    const DWORD D = ERROR_ACCESS_DENIED, P = ERROR_INVALID_PARAMETER, H = ERROR_INVALID_HANDLE;
    const Case sections[] = {
        {reader, PAGE_READWRITE, D},
        {writer, PAGE_READONLY, D},
        {reader, 0x40 /* PAGE_EXECUTE_READWRITE */, P},
        {mapping, PAGE_READONLY, H},  // a mapping handle is not a file handle
    };
    for (const Case& c : sections) {
        SCOPED_TRACE(&c - sections);
        EXPECT_EQ(CreateFileMappingW(c.handle, nullptr, c.protect_or_access, 0, 0, nullptr),
                  nullptr);
        EXPECT_EQ(GetLastError(), c.error);
    }
    const Case views[] = {
        {mapping, FILE_MAP_WRITE, D},
        {mapping, 0, P},
        {reader, FILE_MAP_READ, H},
    };
    for (const Case& c : views) {
        SCOPED_TRACE(&c - views);
        EXPECT_EQ(MapViewOfFile(c.handle, c.protect_or_access, 0, 0, 0), nullptr);
        EXPECT_EQ(GetLastError(), c.error);
    }
    CloseHandle(mapping);
    CloseHandle(reader);
    CloseHandle(writer);
}

TEST(FileMapping, AMappedFileKeepsItsSizeUntilTheLastViewGoesWhichOnlyItsBaseUnmaps) {
    TempDir dir;
    native_write(dir.file("f"), pattern(100));
    HANDLE file = open_file(dir.wide("f"), kReadWrite);
    HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    const auto* view = static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
    ASSERT_NE(view, nullptr);
    ASSERT_TRUE(CloseHandle(mapping));
    ASSERT_EQ(SetFilePointer(file, 10, nullptr, FILE_BEGIN), 10u);
    EXPECT_FALSE(SetEndOfFile(file));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_USER_MAPPED_FILE));
    EXPECT_EQ(file_size(file), 100u);
    // Unmapping takes only the base of a live view.
    int not_a_view = 0;
    for (const void* address :
         {static_cast<const void*>(nullptr), static_cast<const void*>(&not_a_view),
          static_cast<const void*>(view + 1)}) {
        SetLastError(0);
        EXPECT_FALSE(UnmapViewOfFile(address));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    }
    ASSERT_TRUE(UnmapViewOfFile(view));
    EXPECT_FALSE(UnmapViewOfFile(view));  // no longer live
    EXPECT_TRUE(SetEndOfFile(file));
    EXPECT_EQ(file_size(file), 10u);
    CloseHandle(file);
}

}  // namespace
