// The kernel's message box and the host's handler.
#include <gtest/gtest.h>

#include "tests/support/error_support.h"

namespace {

using qz::testing::MessageBoxCapture;
using qz::testing::WString;

TEST(MessageBox, HandlerSeesExpandedTextAndNullsAsEmptyAndGivesTheAnswer) {
    MessageBoxCapture capture(IDNO);
    ASSERT_EQ(QzLang_SetAppName(QZTEXT("Vegas")), S_OK);
    HWND owner = reinterpret_cast<HWND>(0x1234);
    EXPECT_EQ(QzMessageBox(owner, QZTEXT("Close $(AppName)?"), QZTEXT("$(AppName) Pro"),
                           MB_YESNO | MB_ICONQUESTION),
              IDNO);
    EXPECT_EQ(QzMessageBox(nullptr, nullptr, nullptr, MB_OK), IDNO);
    QzLang_SetAppName(nullptr);
    ASSERT_EQ(capture.boxes().size(), 2u);
    EXPECT_EQ(capture.boxes()[0].owner, owner);
    EXPECT_EQ(capture.boxes()[0].text, WString(QZTEXT("Close Vegas?")));
    EXPECT_EQ(capture.boxes()[0].caption, WString(QZTEXT("Vegas Pro")));
    EXPECT_EQ(capture.boxes()[0].style, UINT(MB_YESNO | MB_ICONQUESTION));
    EXPECT_TRUE(capture.boxes()[1].text.empty() && capture.boxes()[1].caption.empty());

#if !defined(_WIN32)
    // A null handler puts the standard box back. On POSIX it writes the text
    // to standard error; Windows' is the system's MessageBoxW, which waits
    // for a person.
    QzKernel_SetMessageBoxHandler(nullptr, &capture);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(QzMessageBox(nullptr, QZTEXT("Disk full \u00e9"), QZTEXT("Kavo Kernel"),
                           MB_OK | MB_ICONINFORMATION),
              IDOK);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Kavo Kernel: Disk full \xC3\xA9\n");
    EXPECT_EQ(capture.boxes().size(), 2u);
#endif
}

}  // namespace
