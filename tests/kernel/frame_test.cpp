// The library frame: version agreement, early initialisation and late
// termination, the attach sequences, per-thread storage and display changes.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "kernel/frame.h"
#include "kernel/lang.h"
#include "platform/win32api.h"
#include "qz/qzerror.h"
#include "qz/qzkernel.h"
#include "tests/support/error_support.h"

namespace {

using qz::frame::state;
using qz::testing::MessageBoxCapture;
using qz::testing::WString;

TEST(FrameTest, CheckVersionAgreesOrExplainsWhy) {
    const WString incompatible =
        QZTEXT("The version of the Kavo Kernel is incompatible with the following client:\n\n");
    const WString too_old = QZTEXT("The version of the Kavo Kernel is too old.");
    const std::string long_name(200, 'x');
    struct Case {
        const char* client;
        DWORD required, agreement;
        BOOL quiet;
        HRESULT result;
        WString message;  // empty: no box
    };
    const Case cases[] = {
        {"Vegas", 0x0A000086, 3, FALSE, S_OK, {}},
        {"Vegas", 0x0A000087, 3, FALSE, E_FAIL, too_old},
        {"Vegas", 0xFFFFFFFF, 3, TRUE, E_FAIL, {}},
        {"Vegas", 0x0A000086, 2, FALSE, E_FAIL, incompatible + QZTEXT("Vegas.")},
        {nullptr, 0, 4, FALSE, E_FAIL, incompatible + QZTEXT(".")},
        {"Caf\xE9 \x80", 0, 1, FALSE, E_FAIL, incompatible + QZTEXT("Caf\u00e9 \u20ac.")},
        {long_name.c_str(), 0, 1, FALSE, E_FAIL,
         incompatible + WString(128, QZTEXT('x')) + QZTEXT('.')}};
    HWND owner = reinterpret_cast<HWND>(0x42);
    for (const Case& c : cases) {
        MessageBoxCapture capture;
        const auto& boxes = capture.boxes();
        EXPECT_EQ(QzKernel_CheckVersion(owner, c.client, c.required, c.agreement, 0, c.quiet),
                  c.result);
        if (c.message.empty()) {
            EXPECT_TRUE(boxes.empty());
            continue;
        }
        ASSERT_EQ(boxes.size(), 1u);
        EXPECT_EQ(boxes[0].text, c.message);
        EXPECT_EQ(boxes[0].caption, WString(QZTEXT("Kavo Kernel")));
        EXPECT_EQ(boxes[0].style, UINT(MB_ICONINFORMATION));
        EXPECT_EQ(boxes[0].owner, owner);
    }
    // A system too old is refused first.
    MessageBoxCapture capture;
    const auto& boxes = capture.boxes();
    qz::frame::set_system_check([] { return true; });
    const HRESULT refused = QzKernel_CheckVersion(nullptr, "Vegas", 0x0A000086, 3, 0, FALSE);
    qz::frame::set_system_check(nullptr);
    EXPECT_EQ(refused, E_FAIL);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].text,
              WString(QZTEXT("This product requires Windows 95 or Windows NT 4.0 or later.")));
}

// Runs early initialisation again and puts the load-time state back.
class FrameInitTest : public ::testing::Test {
protected:
    void SetUp() override { module_ = QzKernel_GetAppKernel(); }
    void TearDown() override {
        QzKernel_SetProcessorFeatureMasks(QZCPU_ALL, 0);
        qz::frame::set_processor_probe(nullptr);
        ASSERT_TRUE(QzKernel_EarlyInitialize(module_, QZKERNEL_INIT_ATTACH));
    }
    HMODULE module_ = nullptr;
};

int g_probe_calls = 0;

TEST_F(FrameInitTest, RepeatingKeepsOneListOneLanguageAndTheFirstProbe) {
    tQZLIST* const list = state().registered_objects;
    HQZLANG const lang = qz::lang::kernel_instance();
    const DWORD first_probe = state().probe_result;
    g_probe_calls = 0;
    qz::frame::set_processor_probe([] { return DWORD(++g_probe_calls); });
    QzKernel_SetSplash(reinterpret_cast<HWND>(0x99));

    const DWORD modes[][2] = {{0x20, 2}, {0x21, 1}, {0x40, 0}, {1, 1}};  // flags, startup mode
    for (const auto& [flags, mode] : modes) {
        ASSERT_TRUE(QzKernel_EarlyInitialize(module_, flags));
        EXPECT_EQ(state().startup_mode, mode) << flags;
        EXPECT_EQ(state().init_flags, flags);
    }
    EXPECT_EQ(state().registered_objects, list);
    EXPECT_EQ(qz::lang::kernel_instance(), lang);
    EXPECT_EQ(state().splash, nullptr);
    EXPECT_EQ(g_probe_calls, 0);
    EXPECT_EQ(state().probe_result, first_probe);

    QzKernel_SetProcessorFeatureMasks(QZCPU_SSE2 | QZCPU_MMX, QZCPU_AVX512BW);
    EXPECT_EQ(QzKernel_GetProcessorFeatures(), (first_probe & QZCPU_ALL));  // not yet applied
    ASSERT_TRUE(QzKernel_EarlyInitialize(module_, 0));
    EXPECT_EQ(QzKernel_GetProcessorFeatures(),
              (first_probe & (QZCPU_SSE2 | QZCPU_MMX)) | QZCPU_AVX512BW);
}

TEST_F(FrameInitTest, LateTerminationClearsEveryHandle) {
    state().cursors[3] = reinterpret_cast<HCURSOR>(0x10);
    state().more_cursors[49] = reinterpret_cast<HCURSOR>(0x20);
    EXPECT_TRUE(QzKernel_LateTerminate(0, 0));
    EXPECT_EQ(QzKernel_GetAppKernel(), nullptr);
    EXPECT_EQ(qz::lang::kernel_instance(), nullptr);
    EXPECT_EQ(state().registered_objects, nullptr);
    EXPECT_EQ(state().cursors[3], nullptr);
    EXPECT_EQ(state().more_cursors[49], nullptr);
    EXPECT_FALSE(state().colours_created);
    EXPECT_TRUE(QzKernel_LateTerminate(0, 0));  // twice is harmless
    ASSERT_TRUE(QzKernel_EarlyInitialize(module_, QZKERNEL_INIT_ATTACH));
    EXPECT_NE(state().registered_objects, nullptr);
    EXPECT_NE(qz::lang::kernel_instance(), nullptr);
}

int g_registered = 0;
int g_unregistered = 0;
constexpr qz::frame::WindowSteps kCountingSteps = {[](HMODULE) { ++g_registered; },
                                                   [](HMODULE) { ++g_unregistered; }};

TEST(FrameAttach, RunDllHostIsRecognisedAndSkipsTheWindowStepsBothWays) {
    const HMODULE module = QzKernel_GetAppKernel();
    g_registered = g_unregistered = 0;
    ASSERT_TRUE(qz::frame::process_detach(kCountingSteps));  // the load-time attach
    EXPECT_EQ(g_unregistered, 1);
    EXPECT_EQ(state().thread_table, nullptr);

    ASSERT_TRUE(
        qz::frame::process_attach(module, QZTEXT("C:\\Windows\\rundll32.exe"), kCountingSteps));
    EXPECT_TRUE(state().hosted_by_rundll);
    EXPECT_EQ(g_registered, 0);
    EXPECT_EQ(state().settings, nullptr);
    ASSERT_TRUE(qz::frame::process_detach(kCountingSteps));
    EXPECT_EQ(g_unregistered, 1);

    ASSERT_TRUE(qz::frame::process_attach(module, QZTEXT("/usr/bin/host"), kCountingSteps));
    EXPECT_FALSE(state().hosted_by_rundll);
    EXPECT_EQ(g_registered, 1);
    EXPECT_NE(state().settings, nullptr);
    ASSERT_TRUE(qz::frame::process_detach(kCountingSteps));
    EXPECT_EQ(g_unregistered, 2);

    ASSERT_TRUE(qz::platform::on_process_attach(module));  // as the loader glue does
    EXPECT_EQ(QzKernel_GetAppKernel(), module);
    // The host is recognised whatever the case and the folder.
    struct Case {
        const WCHAR* path;
        bool rundll;
    };
    const Case cases[] = {{QZTEXT("rundll32.exe"), true},
                          {QZTEXT("C:\\Windows\\SysWOW64\\RUNDLL32.EXE"), true},
                          {QZTEXT("C:\\rundll32.exe\\host.exe"), false},
                          {QZTEXT("rundll32.exe.bak"), false},
                          {nullptr, false}};
    for (const Case& c : cases) EXPECT_EQ(qz::frame::is_rundll_host(c.path), c.rundll);
}

TEST(FrameThreadStorage, BlocksLiveUntilTheirThreadEnds) {
    tQZLIST* table = state().thread_table;
    ASSERT_NE(table, nullptr);
    const LONG before = table->count;
    LONG during = 0;
    bool zeroed = false, kept = false;
    std::thread([&] {
        auto* block = static_cast<BYTE*>(qz::frame::thread_storage(64));
        ASSERT_NE(block, nullptr);
        zeroed = block[0] == 0 && block[63] == 0;
        block[10] = 0x5A;
        auto* grown = static_cast<BYTE*>(qz::frame::thread_storage(4096));
        ASSERT_NE(grown, nullptr);
        kept = grown[10] == 0x5A && grown[4095] == 0;
        during = table->count;
    }).join();
    EXPECT_TRUE(zeroed);
    EXPECT_TRUE(kept);
    EXPECT_EQ(during, before + 1);
    EXPECT_EQ(table->count, before);  // freed by the thread's detach

    qz::frame::thread_detach();  // this thread has no entry
    EXPECT_EQ(table->count, before);
}

TEST(FrameQueries, ModulePathSplashAndColourChanges) {
    WCHAR path[MAX_PATH] = {};
    ASSERT_EQ(QzKernel_GetAppKernelPathName(path, MAX_PATH), S_OK);
    // The suite's program holds the library's objects: its own path.
#if defined(_WIN32)
    const WString text(path), suffix = QZTEXT("\\qz_kernel_tests.exe");
#else
    const WString text(path), suffix = QZTEXT("/qz_kernel_tests");
#endif
    EXPECT_TRUE(text.size() > suffix.size() && text.ends_with(suffix));
    // No room: the system's error, through the error handler's translation.
    EXPECT_EQ(QzKernel_GetAppKernelPathName(path, 0),
              QzErrorHandler_TranslateWin32Error(ERROR_INSUFFICIENT_BUFFER));
    HWND splash = reinterpret_cast<HWND>(0x77);
    EXPECT_EQ(QzKernel_SetSplash(splash), splash);
    EXPECT_EQ(state().splash, splash);
    // Colour changes, not display changes, recreate the drawing objects.
    const DWORD generation = state().colour_generation;
    QzKernel_UserPrefChanges(nullptr, WM_DISPLAYCHANGE, 0, 0);
    EXPECT_EQ(state().colour_generation, generation);
    QzKernel_UserPrefChanges(nullptr, WM_SYSCOLORCHANGE, 0, 0);
    EXPECT_EQ(state().colour_generation, generation + 1);
    EXPECT_TRUE(state().colours_created);
    EXPECT_TRUE(qz::frame::high_colour());  // no display information: the default
}

}  // namespace
