// The handle table: stale, foreign and racing handles.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "qz/win32compat.h"

namespace {

HANDLE new_event() {
    return CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

// Stale, foreign and invalid handles fail every call with ERROR_INVALID_HANDLE.
TEST(HandleTable, StaleForeignAndInvalidHandlesAreRefused) {
    const HANDLE first = new_event();
    ASSERT_NE(first, nullptr);
    ASSERT_TRUE(CloseHandle(first));
    // The freed slot is handed out again under its next generation.
    const HANDLE second = new_event();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    int local = 0;
    for (HANDLE h : {first, HANDLE(nullptr), INVALID_HANDLE_VALUE, HANDLE(uintptr_t(0x1234)),
                     HANDLE(uintptr_t(0x1235)), HANDLE(&local)}) {
        SCOPED_TRACE(testing::Message() << h);
        const auto expect_invalid = [](bool failed) {
            EXPECT_TRUE(failed);
            EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_HANDLE));
        };
        char buffer[4];
        DWORD count = 99;
        LONG high = 0;
        LARGE_INTEGER where{};
        expect_invalid(!SetEvent(h));
        expect_invalid(!ReadFile(h, buffer, 4, &count, nullptr));
        EXPECT_EQ(count, 0u);
        expect_invalid(!WriteFile(h, buffer, 4, &count, nullptr));
        expect_invalid(SetFilePointer(h, 0, &high, FILE_BEGIN) == INVALID_SET_FILE_POINTER);
        expect_invalid(!GetFileSizeEx(h, &where));
        expect_invalid(CreateFileMappingW(h, nullptr, PAGE_READONLY, 0, 0, nullptr) == nullptr);
        expect_invalid(!CloseHandle(h));
    }
    EXPECT_TRUE(SetEvent(second));
    EXPECT_TRUE(CloseHandle(second));
    EXPECT_FALSE(CloseHandle(second));
}

TEST(HandleTable, HandlesUsedWhileAnotherThreadClosesThem) {
    // One thread opens and closes events; another uses each as it goes.
    // Every use either works or sees an invalid handle, never a freed object.
    constexpr int kUses = 20000;
    std::atomic<HANDLE> current{nullptr};
    std::atomic<bool> done{false};
    std::atomic<int> worked{0}, refused{0};
    std::thread user([&] {
        while (!done.load()) {
            const HANDLE h = current.load();
            if (!h) continue;
            if (SetEvent(h)) {
                ++worked;
            } else {
                EXPECT_EQ(GetLastError(), DWORD(ERROR_INVALID_HANDLE));
                ++refused;
            }
        }
    });
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (worked.load() + refused.load() < kUses && std::chrono::steady_clock::now() < give_up) {
        const HANDLE h = new_event();
        ASSERT_NE(h, nullptr);
        current.store(h);
        ASSERT_TRUE(CloseHandle(h));
    }
    done.store(true);
    user.join();
    EXPECT_GE(worked.load() + refused.load(), kUses);
}

}  // namespace
