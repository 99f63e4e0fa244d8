// The kernel's message box and the host's handler.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qz/qzkernel.h"
#include "qz/qzlang.h"

namespace {

using WString = std::basic_string<WCHAR>;

struct ShownBox {
    HWND owner;
    WString text, caption;
    UINT style;
};

int QZ_STDCALL record_box(void* context, HWND owner, LPCWSTR text, LPCWSTR caption, UINT style) {
    static_cast<std::vector<ShownBox>*>(context)->push_back({owner, text, caption, style});
    return IDNO;
}

class MessageBoxTest : public ::testing::Test {
protected:
    void SetUp() override { QzKernel_SetMessageBoxHandler(record_box, &boxes_); }
    void TearDown() override {
        QzKernel_SetMessageBoxHandler(nullptr, nullptr);
        QzLang_SetAppName(nullptr);
    }
    std::vector<ShownBox> boxes_;
};

TEST_F(MessageBoxTest, HandlerSeesExpandedTextAndNullsAsEmptyAndGivesTheAnswer) {
    ASSERT_EQ(QzLang_SetAppName(QZTEXT("Vegas")), S_OK);
    HWND owner = reinterpret_cast<HWND>(0x1234);
    EXPECT_EQ(QzMessageBox(owner, QZTEXT("Close $(AppName)?"), QZTEXT("$(AppName) Pro"),
                           MB_YESNO | MB_ICONQUESTION),
              IDNO);
    EXPECT_EQ(QzMessageBox(nullptr, nullptr, nullptr, MB_OK), IDNO);
    ASSERT_EQ(boxes_.size(), 2u);
    EXPECT_EQ(boxes_[0].owner, owner);
    EXPECT_EQ(boxes_[0].text, WString(QZTEXT("Close Vegas?")));
    EXPECT_EQ(boxes_[0].caption, WString(QZTEXT("Vegas Pro")));
    EXPECT_EQ(boxes_[0].style, MB_YESNO | MB_ICONQUESTION);
    EXPECT_TRUE(boxes_[1].text.empty() && boxes_[1].caption.empty());
}

#if !defined(_WIN32)
// The standard box of POSIX writes to standard error; Windows' is the
// system's MessageBoxW, which waits for a person.
TEST_F(MessageBoxTest, NullHandlerRestoresTheStandardErrorBox) {
    QzKernel_SetMessageBoxHandler(nullptr, &boxes_);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(QzMessageBox(nullptr, QZTEXT("Disk full \u00e9"), QZTEXT("Kavo Kernel"),
                           MB_OK | MB_ICONINFORMATION),
              IDOK);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Kavo Kernel: Disk full \xC3\xA9\n");
    EXPECT_TRUE(boxes_.empty());
}
#endif

}  // namespace
