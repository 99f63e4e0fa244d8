// The kernel's settings stores and their file-backed POSIX backend.
#include <gtest/gtest.h>
#if defined(_WIN32)
#include <windows.h>
#endif

#include <filesystem>
#include <fstream>
#include <string>

#include "kernel/settings.h"
#include "tests/support/platform_testing.h"

namespace {

namespace fs = std::filesystem;
using qz::testing::WString;
using qz::testing::wide;

constexpr DWORD kVersion = 0x0A000086;

#if defined(_WIN32)
// Windows keeps the stores in the user's registry, under Software\<product>:
// each test's products go under a key of their own, removed afterwards.
class SettingsTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = QZTEXT("qzkernel test ") + wide(std::to_string(GetCurrentProcessId()) + " " +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
    }
    void TearDown() override {
        RegDeleteTreeW(HKEY_CURRENT_USER, (QZTEXT("Software\\") + root_).c_str());
    }
    WString product(LPCWSTR name) const { return root_ + QZTEXT("\\") + name; }
    // The key of a store of this test, opened for reading and writing.
    HKEY key(LPCWSTR name) const {
        HKEY key = nullptr;
        const WString path = QZTEXT("Software\\") + product(name) + QZTEXT("\\10.0\\Kernel");
        RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        &key, nullptr);
        return key;
    }
    WString root_;
#else
// Points $XDG_CONFIG_HOME at a fresh folder for one test.
class SettingsTest : public ::testing::Test {
protected:
    WString product(LPCWSTR name) const { return name; }
    qz::testing::TempDir dir_;
    const fs::path folder_ = dir_.path();
    qz::testing::ScopedEnvironment home_{"XDG_CONFIG_HOME", dir_.path().c_str()};
#endif
    HQZMETRIC open(LPCWSTR name = QZTEXT("Test Product")) {
        HQZMETRIC store = nullptr;
        EXPECT_EQ(qz::settings::open(product(name).c_str(), kVersion, QZTEXT("Kernel"), &store),
                  S_OK);
        return store;
    }
    // A value as "#number" or "=text"; "-" when neither kind finds it.
    static WString get(HQZMETRIC store, LPCWSTR name) {
        DWORD number = 0;
        WString text;
        const bool is_number = qz::settings::get_number(store, name, &number) == S_OK;
        const bool is_text = qz::settings::get_text(store, name, &text) == S_OK;
        if (is_number == is_text) return is_number ? QZTEXT("both") : QZTEXT("-");
        WString shown(1, WCHAR(is_number ? '#' : '='));
        return shown.append(is_number ? wide(std::to_string(number)) : text);
    }
};

TEST_F(SettingsTest, ValuesSurviveReopeningByNameAndBadArgumentsAreRefused) {
    const WString awkward = QZTEXT("Caf\u00e9 = \"x\"\nline two\\ \r end");
    const WString awkward_name = QZTEXT("a=b\nc\\");
    HQZMETRIC store = open();
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(qz::settings::set_number(store, QZTEXT("Count"), 42), S_OK);
    EXPECT_EQ(qz::settings::set_text(store, QZTEXT("Name"), awkward.c_str()), S_OK);
    EXPECT_EQ(qz::settings::set_text(store, awkward_name.c_str(), QZTEXT("")), S_OK);
    EXPECT_EQ(qz::settings::set_text(store, QZTEXT("Gone"), QZTEXT("soon")), S_OK);
    EXPECT_EQ(qz::settings::remove(store, QZTEXT("Gone")), S_OK);
    EXPECT_EQ(qz::settings::remove(store, QZTEXT("Gone")), QZE_NOT_FOUND);
    qz::settings::close(store);

    store = open();
    EXPECT_EQ(get(store, QZTEXT("Count")), QZTEXT("#42"));
    EXPECT_EQ(get(store, QZTEXT("Name")), WString(QZTEXT("=")).append(awkward));
    EXPECT_EQ(get(store, awkward_name.c_str()), QZTEXT("="));
    EXPECT_EQ(get(store, QZTEXT("Gone")), QZTEXT("-"));
    // A value changes kind when it is set as the other kind.
    EXPECT_EQ(qz::settings::set_text(store, QZTEXT("Count"), QZTEXT("many")), S_OK);
    EXPECT_EQ(get(store, QZTEXT("Count")), QZTEXT("=many"));
    qz::settings::close(store);
    // Bad arguments are refused.
    store = reinterpret_cast<HQZMETRIC>(1);
    EXPECT_EQ(qz::settings::open(QZTEXT(""), kVersion, QZTEXT("Kernel"), &store), E_INVALIDARG);
    EXPECT_EQ(store, nullptr);
    EXPECT_EQ(qz::settings::open(QZTEXT("P"), kVersion, nullptr, &store), E_INVALIDARG);
    EXPECT_EQ(qz::settings::open(QZTEXT("P"), kVersion, QZTEXT("Kernel"), nullptr), E_POINTER);
    DWORD number = 0;
    EXPECT_EQ(qz::settings::get_number(nullptr, QZTEXT("Count"), &number), E_HANDLE);
    store = open();
    EXPECT_EQ(qz::settings::set_number(store, QZTEXT(""), 1), E_INVALIDARG);
    qz::settings::close(store);
}

#if defined(_WIN32)
TEST_F(SettingsTest, SkipsValuesOfAnotherType) {
    const HKEY key = this->key(QZTEXT("Test Product"));
    ASSERT_NE(key, nullptr);
    const DWORD good = 16;
    const ULONGLONG huge = 0x1FFFFFFFFull;
    const WCHAR last[] = QZTEXT("no newline at the end");
    const BYTE bytes[] = {1, 2, 3, 4};
    RegSetValueExW(key, QZTEXT("Good"), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&good), 4);
    RegSetValueExW(key, QZTEXT("Last"), 0, REG_SZ, reinterpret_cast<const BYTE*>(last),
                   sizeof last);
    RegSetValueExW(key, QZTEXT("Bad"), 0, REG_DWORD, bytes, 2);  // a number of two bytes
    RegSetValueExW(key, QZTEXT("Huge"), 0, REG_QWORD, reinterpret_cast<const BYTE*>(&huge), 8);
    RegSetValueExW(key, QZTEXT("Kind"), 0, REG_BINARY, bytes, 4);
    // A text without its terminator, as other writers may leave one.
    RegSetValueExW(key, QZTEXT("Cut"), 0, REG_SZ, reinterpret_cast<const BYTE*>(last), 4);
    RegCloseKey(key);
    HQZMETRIC store = open();
    EXPECT_EQ(get(store, QZTEXT("Good")), QZTEXT("#16"));
    EXPECT_EQ(get(store, QZTEXT("Last")), QZTEXT("=no newline at the end"));
    EXPECT_EQ(get(store, QZTEXT("Cut")), QZTEXT("=no"));
    for (const WCHAR* name : {QZTEXT("Bad"), QZTEXT("Huge"), QZTEXT("Kind")})
        EXPECT_EQ(get(store, name), QZTEXT("-"));
    qz::settings::close(store);
}
#else
TEST_F(SettingsTest, SkipsLinesOfAnotherShape) {
    const fs::path file = folder_ / "Test Product" / "10.0" / "Kernel.ini";
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "# comment\n"
                           "no equals sign\n"
                           "=dword:1\n"
                           "Bad=dword:12x\n"
                           "Huge=dword:0x1FFFFFFFF\n"
                           "Kind=float:1.5\n"
                           "Good=dword:0x10\n"
                           "Last=sz:no newline at the end";
    HQZMETRIC store = open();
    EXPECT_EQ(get(store, QZTEXT("Good")), QZTEXT("#16"));
    EXPECT_EQ(get(store, QZTEXT("Last")), QZTEXT("=no newline at the end"));
    for (const WCHAR* name : {QZTEXT("Bad"), QZTEXT("Huge"), QZTEXT("Kind")})
        EXPECT_EQ(get(store, name), QZTEXT("-"));
    qz::settings::close(store);
}

// The file backend's own names and failures (POSIX).
TEST_F(SettingsTest, ProductNamesStayInsideTheFolderAndAFailedWriteKeepsTheView) {
    HQZMETRIC store = open(QZTEXT("../a/b"));
    ASSERT_EQ(qz::settings::set_number(store, QZTEXT("Count"), 1), S_OK);
    EXPECT_TRUE(fs::exists(folder_ / ".._a_b" / "10.0" / "Kernel.ini"));
    // The version folder becomes a file: the store cannot be written.
    fs::remove_all(folder_ / ".._a_b" / "10.0");
    std::ofstream(folder_ / ".._a_b" / "10.0") << "in the way";
    EXPECT_EQ(qz::settings::set_number(store, QZTEXT("Count"), 2), QZE_FILE_CREATE);
    EXPECT_EQ(get(store, QZTEXT("Count")), QZTEXT("#1"));
    qz::settings::close(store);
}
#endif

}  // namespace
