// File handles of the POSIX layer, checked against what the system sees.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/posix/fault_plan.h"
#include "platform/win32api.h"
#include "tests/support/platform_testing.h"

namespace {

using namespace qz::testing;

constexpr DWORD kSentinel = 0xDEADBEEF;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE open_file(const std::u16string& path, DWORD access, DWORD disposition,
                 DWORD share = kShareAll, DWORD flags = FILE_ATTRIBUTE_NORMAL) {
    return CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
}

/* Owns a handle for the length of a test. */
struct Handle {
    explicit Handle(HANDLE h) : h_(h) {}
    ~Handle() { valid() && CloseHandle(h_); }
    Handle(const Handle&) = delete;
    HANDLE get() const { return h_; }
    bool valid() const { return h_ != INVALID_HANDLE_VALUE; }
    const HANDLE h_;
};

bool write_bytes(HANDLE h, const std::string& bytes) {
    DWORD written = 0;
    return WriteFile(h, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

LONGLONG position_of(HANDLE h) {
    LARGE_INTEGER zero{}, now{};
    if (!SetFilePointerEx(h, zero, &now, FILE_CURRENT)) return -1;
    return now.QuadPart;
}

TEST(CreateFile, DispositionsGiveWin32ResultsAndLastErrors) {
    constexpr DWORD RW = GENERIC_READ | GENERIC_WRITE, R = GENERIC_READ;
    struct Case {
        DWORD disposition, access;
        bool exists_before, opens;
        DWORD last_error;
        const char* content_after; /* nullptr: no file */
    };
    const Case cases[] = {
        {CREATE_NEW, RW, false, true, ERROR_SUCCESS, ""},
        {CREATE_NEW, RW, true, false, ERROR_FILE_EXISTS, "old"},
        {CREATE_ALWAYS, RW, true, true, ERROR_ALREADY_EXISTS, ""},
        {CREATE_ALWAYS, R, true, true, ERROR_ALREADY_EXISTS, ""},  // cuts even for readers
        {OPEN_EXISTING, RW, false, false, ERROR_FILE_NOT_FOUND, nullptr},
        {OPEN_EXISTING, RW, true, true, ERROR_SUCCESS, "old"},
        {OPEN_ALWAYS, RW, false, true, ERROR_SUCCESS, ""},
        {OPEN_ALWAYS, RW, true, true, ERROR_ALREADY_EXISTS, "old"},
        {TRUNCATE_EXISTING, RW, false, false, ERROR_FILE_NOT_FOUND, nullptr},
        {TRUNCATE_EXISTING, RW, true, true, ERROR_SUCCESS, ""},
        {TRUNCATE_EXISTING, R, true, false, ERROR_INVALID_PARAMETER, "old"},  // needs writing
        {0, RW, true, false, ERROR_INVALID_PARAMETER, "old"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        TempDir dir;
        if (c.exists_before) native_write(dir.file("f"), "old");
        SetLastError(kSentinel);
        Handle h(open_file(dir.wide("f"), c.access, c.disposition));
        EXPECT_EQ(h.valid(), c.opens);
        EXPECT_EQ(GetLastError(), c.last_error);
        EXPECT_EQ(native_read(dir.file("f")), c.content_after ? c.content_after : "<missing>");
    }
}

TEST(CreateFile, PathsBecomeUtf8AndNullEmptyAndUnencodableOnesFail) {
    // The last error of a creation that fails; kSentinel when it succeeds.
    const auto refused = [](LPCWSTR path, DWORD flags = 0) {
        const HANDLE h = CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, flags, nullptr);
        return h == INVALID_HANDLE_VALUE ? GetLastError() : kSentinel;
    };
    EXPECT_EQ(refused(nullptr), DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(refused(u""), DWORD(ERROR_PATH_NOT_FOUND));
    TempDir dir;
    std::u16string lone = dir.wide("x");
    lone.push_back(0xD800);
    EXPECT_EQ(refused(lone.c_str()), DWORD(ERROR_INVALID_NAME));
    // Delete-on-close is not offered: refused before anything is created.
    EXPECT_EQ(refused(dir.wide("d").c_str(), FILE_FLAG_DELETE_ON_CLOSE),
              DWORD(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(native_read(dir.file("d")), "<missing>");
    // Paths become UTF-8, and backslashes separate folders.
    ASSERT_EQ(::mkdir(dir.file("sub").c_str(), 0777), 0);
    std::u16string path = dir.wide("sub") + u"\\\u00DCml\u00E4ut \u20AC.txt";
    Handle h(open_file(path, GENERIC_WRITE, CREATE_NEW));
    ASSERT_TRUE(h.valid());
    EXPECT_TRUE(write_bytes(h.get(), "euro"));
    EXPECT_EQ(native_read(dir.file("sub/\xC3\x9Cml\xC3\xA4ut \xE2\x82\xAC.txt")), "euro");
}

TEST(CreateFile, NoPermissionIsAccessDenied) {
    if (::geteuid() == 0) GTEST_SKIP() << "root ignores file permissions";
    TempDir dir;
    native_write(dir.file("locked"), "secret");
    ASSERT_EQ(::chmod(dir.file("locked").c_str(), 0), 0);
    Handle h(open_file(dir.wide("locked"), GENERIC_READ, OPEN_EXISTING));
    EXPECT_FALSE(h.valid());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST(ShareModes, ConflictingOpensFailWithSharingViolation) {
    struct Case {
        DWORD first_access, first_share, second_access, second_share;
        bool second_opens;
    };
    constexpr DWORD R = GENERIC_READ, W = GENERIC_WRITE;
    constexpr DWORD SR = FILE_SHARE_READ, SW = FILE_SHARE_WRITE;
    const Case cases[] = {
        {R, SR, R, SR, true},        // readers sharing reading
        {R, 0, R, SR, false},        // the first refuses readers
        {R, SR, R, 0, false},        // the second refuses the reader already there
        {R, SR, W, SR | SW, false},  // writing not shared by the first
        {W, SR | SW, R, SR, false},  // the second refuses the writer already there
        {R | W, SR | SW, R | W, SR | SW, true},
        {0, 0, R | W, 0, true},  // a handle without access takes no part
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.first_access << "/" << c.first_share
                                        << " then " << c.second_access << "/" << c.second_share);
        TempDir dir;
        native_write(dir.file("f"), "data");
        Handle first(open_file(dir.wide("f"), c.first_access, OPEN_EXISTING, c.first_share));
        ASSERT_TRUE(first.valid());
        Handle second(open_file(dir.wide("f"), c.second_access, OPEN_EXISTING, c.second_share));
        EXPECT_EQ(second.valid(), c.second_opens);
        if (!c.second_opens) {
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
        }
    }
    // A refused CREATE_ALWAYS cuts nothing, and closing releases the mode.
    TempDir dir;
    native_write(dir.file("f"), "precious");
    HANDLE first = open_file(dir.wide("f"), GENERIC_READ, OPEN_EXISTING, FILE_SHARE_READ);
    ASSERT_NE(first, INVALID_HANDLE_VALUE);
    EXPECT_EQ(open_file(dir.wide("f"), GENERIC_WRITE, CREATE_ALWAYS), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(native_read(dir.file("f")), "precious");
    ASSERT_TRUE(CloseHandle(first));
    Handle again(open_file(dir.wide("f"), GENERIC_WRITE, CREATE_ALWAYS, 0));
    EXPECT_TRUE(again.valid());
}

TEST(ReadFile, AccessTheHandleLacksIsDeniedAndShortReadsSucceed) {
    TempDir dir;
    native_write(dir.file("f"), "abc");
    Handle writer(open_file(dir.wide("f"), GENERIC_WRITE, OPEN_EXISTING));
    char byte;
    DWORD got = 99;
    EXPECT_FALSE(ReadFile(writer.get(), &byte, 1, &got, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(got, 0u);
    Handle reader(open_file(dir.wide("f"), GENERIC_READ, OPEN_EXISTING));
    DWORD written = 99;
    EXPECT_FALSE(WriteFile(reader.get(), "z", 1, &written, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(written, 0u);
    EXPECT_EQ(native_read(dir.file("f")), "abc");
    // A read at or past the end succeeds with what there is.
    char buffer[16];
    ASSERT_EQ(SetFilePointer(reader.get(), 1, nullptr, FILE_BEGIN), 1u);
    ASSERT_TRUE(ReadFile(reader.get(), buffer, sizeof buffer, &got, nullptr));
    EXPECT_EQ(std::string(buffer, got), "bc");
    for (LONG at : {3, 100}) {  // at the end and past it
        ASSERT_EQ(SetFilePointer(reader.get(), at, nullptr, FILE_BEGIN), static_cast<DWORD>(at));
        got = 99;
        ASSERT_TRUE(ReadFile(reader.get(), buffer, sizeof buffer, &got, nullptr));
        EXPECT_EQ(got, 0u);
        EXPECT_EQ(position_of(reader.get()), at);
    }
}

TEST(WriteFile, AppendOnlyHandlesWriteAtTheEndWhateverTheirPointer) {
    TempDir dir;
    native_write(dir.file("f"), "abc");
    Handle append(open_file(dir.wide("f"), FILE_APPEND_DATA, OPEN_EXISTING));
    Handle reader(open_file(dir.wide("f"), GENERIC_READ | FILE_APPEND_DATA, OPEN_EXISTING));
    Handle writer(open_file(dir.wide("f"), FILE_WRITE_DATA | FILE_APPEND_DATA, OPEN_EXISTING));
    ASSERT_TRUE(append.valid() && reader.valid() && writer.valid());
    ASSERT_EQ(SetFilePointer(append.get(), 1, nullptr, FILE_BEGIN), 1u);
    ASSERT_TRUE(write_bytes(append.get(), "12"));
    EXPECT_EQ(position_of(append.get()), 5);
    ASSERT_TRUE(write_bytes(reader.get(), "34"));
    // With the right to write anywhere, the pointer counts again.
    ASSERT_TRUE(write_bytes(writer.get(), "Z"));
    EXPECT_EQ(native_read(dir.file("f")), "Zbc1234");

    char byte;
    DWORD got = 0;
    EXPECT_FALSE(ReadFile(append.get(), &byte, 1, &got, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    ASSERT_EQ(SetFilePointer(reader.get(), 0, nullptr, FILE_BEGIN), 0u);
    EXPECT_TRUE(ReadFile(reader.get(), &byte, 1, &got, nullptr) && byte == 'Z');
    EXPECT_FALSE(SetEndOfFile(append.get()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    // Appending is writing as far as share modes go.
    Handle denies_writers(open_file(dir.wide("f"), GENERIC_READ, OPEN_EXISTING, FILE_SHARE_READ));
    EXPECT_FALSE(denies_writers.valid());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(native_read(dir.file("f")), "Zbc1234");
}

TEST(WriteFile, RunningOutOfRoomReportsThePartOnDisk) {
    // A file-size limit makes the system stop a write part way, as a full
    // disk does; the layer must report what did reach the file.
    TempDir dir;
    Handle h(open_file(dir.wide("f"), GENERIC_WRITE, CREATE_NEW));
    ASSERT_TRUE(h.valid());
    struct rlimit old_limit;
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    void (*old_handler)(int) = ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = old_limit;
    limit.rlim_cur = 1000;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const std::string block(4000, 'x');
    DWORD written = 0;
    const BOOL ok = WriteFile(h.get(), block.data(), 4000, &written, nullptr);
    const DWORD error = GetLastError();
    ::setrlimit(RLIMIT_FSIZE, &old_limit);
    ::signal(SIGXFSZ, old_handler);
    EXPECT_FALSE(ok);
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_DISK_FULL));
    EXPECT_EQ(written, 1000u);
}

TEST(SetFilePointer, ThirtyTwoBitRules) {
    TempDir dir;
    Handle h(open_file(dir.wide("f"), GENERIC_READ | GENERIC_WRITE, CREATE_NEW));
    ASSERT_TRUE(write_bytes(h.get(), "0123456789"));
    struct Case {
        const char* what;
        LONGLONG start;
        LONG distance;
        bool with_high;
        LONG high;
        DWORD method;
        DWORD result;
        DWORD error; /* kSentinel: the last error is left alone */
        LONG high_after;
        LONGLONG position_after;
    };
    const Case cases[] = {
        {"from the start", 3, 5, false, 0, FILE_BEGIN, 5, kSentinel, 0, 5},
        {"from the end", 3, -1, false, 0, FILE_END, 9, kSentinel, 0, 9},
        {"before the start", 3, -4, false, 0, FILE_CURRENT, INVALID_SET_FILE_POINTER,
         ERROR_NEGATIVE_SEEK, 0, 3},
        {"32-bit distance is signed", 3, static_cast<LONG>(0xFFFFFFF0u), false, 0, FILE_BEGIN,
         INVALID_SET_FILE_POINTER, ERROR_NEGATIVE_SEEK, 0, 3},
        {"high word makes it unsigned", 3, static_cast<LONG>(0xFFFFFFF0u), true, 0, FILE_BEGIN,
         0xFFFFFFF0u, kSentinel, 0, 0xFFFFFFF0LL},
        {"all ones is a valid position", 3, -1, true, 0, FILE_BEGIN, 0xFFFFFFFFu, NO_ERROR, 0,
         0xFFFFFFFFLL},
        {"all ones without the high word", 0xFFFFFFF0LL, 15, false, 0, FILE_CURRENT, 0xFFFFFFFFu,
         NO_ERROR, 0, 0xFFFFFFFFLL},
        {"beyond 32 bits needs the high word", 0xFFFFFFF0LL, 16, false, 0, FILE_CURRENT,
         INVALID_SET_FILE_POINTER, ERROR_INVALID_PARAMETER, 0, 0xFFFFFFF0LL},
        {"beyond 32 bits with it", 0xFFFFFFF0LL, 0x20, true, 0, FILE_CURRENT, 0x10, kSentinel, 1,
         0x100000010LL},
        {"64-bit before the start", 0x10, 0, true, -1, FILE_CURRENT, INVALID_SET_FILE_POINTER,
         ERROR_NEGATIVE_SEEK, -1, 0x10},
        {"unknown method", 3, 0, false, 0, 3, INVALID_SET_FILE_POINTER, ERROR_INVALID_PARAMETER, 0,
         3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LARGE_INTEGER start;
        start.QuadPart = c.start;
        ASSERT_TRUE(SetFilePointerEx(h.get(), start, nullptr, FILE_BEGIN));
        LONG high = c.high;
        SetLastError(kSentinel);
        EXPECT_EQ(SetFilePointer(h.get(), c.distance, c.with_high ? &high : nullptr, c.method),
                  c.result);
        EXPECT_EQ(GetLastError(), c.error);
        if (c.with_high) {
            EXPECT_EQ(high, c.high_after);
        }
        EXPECT_EQ(position_of(h.get()), c.position_after);
    }
    // A sum past 64 bits is refused and leaves the pointer.
    LARGE_INTEGER far;
    far.QuadPart = 0x7FFFFFFFFFFFFFFFLL;
    EXPECT_FALSE(SetFilePointerEx(h.get(), far, nullptr, FILE_CURRENT));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(position_of(h.get()), 3);
    // GetFileSize gives the high word apart, and all ones is a size, not a
    // failure, when the last error says so (sparse files: no disk space).
    const struct {
        LONGLONG end;
        DWORD low, high;
    } sizes[] = {{0x100000002LL, 2, 1}, {0xFFFFFFFFLL, INVALID_FILE_SIZE, 0}};
    for (const auto& [end, low, high] : sizes) {
        LARGE_INTEGER at;
        at.QuadPart = end;
        ASSERT_TRUE(SetFilePointerEx(h.get(), at, nullptr, FILE_BEGIN) && SetEndOfFile(h.get()));
        DWORD got_high = 7;
        SetLastError(kSentinel);
        EXPECT_EQ(GetFileSize(h.get(), &got_high), low);
        EXPECT_EQ(got_high, high);
        EXPECT_TRUE(low != INVALID_FILE_SIZE || GetLastError() == NO_ERROR);
    }
}

TEST(FaultInjection, EachPlannedFailureLeavesTheFileAsItWas) {
    TempDir dir;
    Handle h(open_file(dir.wide("f"), GENERIC_READ | GENERIC_WRITE, CREATE_NEW));
    ASSERT_TRUE(write_bytes(h.get(), "0123456789"));
    ASSERT_EQ(SetFilePointer(h.get(), 4, nullptr, FILE_BEGIN), 4u);
    struct Case {
        FaultOp op;
        DWORD error;
        bool (*call)(HANDLE);
    };
    const Case cases[] = {
        {FaultOp::Read, ERROR_READ_FAULT,
         [](HANDLE f) {
             char b[4];
             DWORD n = 7;
             return ReadFile(f, b, 4, &n, nullptr) == FALSE && n == 0;
         }},
        {FaultOp::Write, ERROR_DISK_FULL,
         [](HANDLE f) {
             DWORD n = 7;
             return WriteFile(f, "zz", 2, &n, nullptr) == FALSE && n == 0;
         }},
        {FaultOp::Seek, ERROR_SEEK,
         [](HANDLE f) {
             return SetFilePointer(f, 1, nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER;
         }},
        {FaultOp::Truncate, ERROR_DISK_FULL, [](HANDLE f) { return SetEndOfFile(f) == FALSE; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.op));
        {
            FaultPlan plan;
            plan.fail(c.op, 1);
            EXPECT_TRUE(c.call(h.get()));
            EXPECT_EQ(GetLastError(), c.error);
            EXPECT_EQ(plan.failures(c.op), 1u);
        }
        EXPECT_EQ(native_read(dir.file("f")), "0123456789");
        EXPECT_EQ(position_of(h.get()), 4);
    }
}

enum class Op { Open, Create, Attributes, Delete, Move, MakeFolder, RemoveFolder };

BOOL call(Op op, const TempDir& dir, const char* path, const char* target) {
    const std::u16string p = dir.wide(path);
    switch (op) {
        case Op::Open:
        case Op::Create:
            return Handle(op == Op::Open ? open_file(p, GENERIC_READ, OPEN_EXISTING)
                                         : open_file(p, GENERIC_WRITE, CREATE_ALWAYS))
                .valid();
        case Op::Attributes:
            return GetFileAttributesW(p.c_str()) != INVALID_FILE_ATTRIBUTES;
        case Op::Delete:
            return DeleteFileW(p.c_str());
        case Op::Move:
            return MoveFileW(p.c_str(), dir.wide(target).c_str());
        case Op::MakeFolder:
            return CreateDirectoryW(p.c_str(), nullptr);
        case Op::RemoveFolder:
            return RemoveDirectoryW(p.c_str());
    }
    return FALSE;
}

TEST(FileSystem, CallsSucceedOrGiveTheirErrorsAndChangeNothing) {
    TempDir dir;
    native_write(dir.file("a"), "A");
    native_write(dir.file("b"), "B");
    ASSERT_EQ(::mkdir(dir.file("d").c_str(), 0777), 0);
    native_write(dir.file("d/f"), "inside");
    // Deleting and moving a file need FILE_SHARE_DELETE from its open handles.
    Handle held(open_file(dir.wide("b"), GENERIC_READ, OPEN_EXISTING, FILE_SHARE_READ));
    struct Case {
        Op op;
        const char* path;
        const char* target;
        DWORD error;
    };
    const Case cases[] = {
        {Op::Create, "nofolder/missing", nullptr, ERROR_PATH_NOT_FOUND},
        {Op::Open, "a/under-a-file", nullptr, ERROR_PATH_NOT_FOUND},
        {Op::Open, "d", nullptr, ERROR_ACCESS_DENIED},  // even for reading
        {Op::Attributes, "missing", nullptr, ERROR_FILE_NOT_FOUND},
        {Op::Delete, "missing", nullptr, ERROR_FILE_NOT_FOUND},
        {Op::Delete, "d", nullptr, ERROR_ACCESS_DENIED},
        {Op::Move, "a", "b", ERROR_ALREADY_EXISTS},  // never replaces
        {Op::Move, "missing", "c", ERROR_FILE_NOT_FOUND},
        {Op::Move, "a", "nofolder/c", ERROR_PATH_NOT_FOUND},
        {Op::Delete, "b", nullptr, ERROR_SHARING_VIOLATION},
        {Op::Move, "b", "c", ERROR_SHARING_VIOLATION},
        {Op::MakeFolder, "d", nullptr, ERROR_ALREADY_EXISTS},
        {Op::MakeFolder, "x/y", nullptr, ERROR_PATH_NOT_FOUND},
        {Op::RemoveFolder, "d", nullptr, ERROR_DIR_NOT_EMPTY},
        {Op::RemoveFolder, "d/f", nullptr, ERROR_DIRECTORY},
        {Op::RemoveFolder, "missing", nullptr, ERROR_FILE_NOT_FOUND},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        SetLastError(kSentinel);
        EXPECT_FALSE(call(c.op, dir, c.path, c.target));
        EXPECT_EQ(GetLastError(), c.error);
    }
    EXPECT_EQ(native_read(dir.file("a")) + native_read(dir.file("b")), "AB");
    EXPECT_EQ(native_read(dir.file("d/f")), "inside");
    EXPECT_FALSE(native_exists(dir.file("c")) || native_exists(dir.file("x")) ||
                 native_exists(dir.file("nofolder")));

    // And the same calls where they can work.
    Handle shared(open_file(dir.wide("a"), GENERIC_READ, OPEN_EXISTING, kShareAll));
    EXPECT_EQ(GetFileAttributesW(dir.wide("a").c_str()), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(CreateDirectoryW(dir.wide("e").c_str(), nullptr));
    EXPECT_EQ(GetFileAttributesW(dir.wide("e").c_str()), FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_TRUE(MoveFileW(dir.wide("a").c_str(), dir.wide("e/c").c_str()));
    EXPECT_TRUE(MoveFileW(dir.wide("e").c_str(), dir.wide("g").c_str()));
    EXPECT_EQ(native_read(dir.file("g/c")), "A");
    EXPECT_TRUE(DeleteFileW(dir.wide("g/c").c_str()));
    EXPECT_TRUE(RemoveDirectoryW(dir.wide("g").c_str()));
}

}  // namespace
