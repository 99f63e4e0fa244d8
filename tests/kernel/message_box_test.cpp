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
    WString text;
    WString caption;
    UINT style;
};

struct Recorder {
    std::vector<ShownBox> boxes;
    int answer = IDNO;
};

int QZ_STDCALL record_box(void* context, HWND owner, LPCWSTR text, LPCWSTR caption, UINT style) {
    auto* recorder = static_cast<Recorder*>(context);
    recorder->boxes.push_back({owner, text, caption, style});
    return recorder->answer;
}

// Installs the recorder for one test and restores the default afterwards.
class MessageBoxTest : public ::testing::Test {
protected:
    void SetUp() override { QzKernel_SetMessageBoxHandler(record_box, &recorder_); }
    void TearDown() override {
        QzKernel_SetMessageBoxHandler(nullptr, nullptr);
        QzLang_SetAppName(nullptr);
    }
    Recorder recorder_;
};

TEST_F(MessageBoxTest, HandlerSeesExpandedTextAndGivesTheAnswer) {
    ASSERT_EQ(QzLang_SetAppName(QZTEXT("Vegas")), S_OK);
    HWND owner = reinterpret_cast<HWND>(0x1234);
    EXPECT_EQ(QzMessageBox(owner, QZTEXT("Close $(AppName)?"), QZTEXT("$(AppName) Pro"),
                           MB_YESNO | MB_ICONQUESTION),
              IDNO);
    ASSERT_EQ(recorder_.boxes.size(), 1u);
    EXPECT_EQ(recorder_.boxes[0].owner, owner);
    EXPECT_EQ(recorder_.boxes[0].text, WString(QZTEXT("Close Vegas?")));
    EXPECT_EQ(recorder_.boxes[0].caption, WString(QZTEXT("Vegas Pro")));
    EXPECT_EQ(recorder_.boxes[0].style, MB_YESNO | MB_ICONQUESTION);
}

TEST_F(MessageBoxTest, NullTextAndCaptionReachTheHandlerAsEmpty) {
    EXPECT_EQ(QzMessageBox(nullptr, nullptr, nullptr, MB_OK), IDNO);
    ASSERT_EQ(recorder_.boxes.size(), 1u);
    EXPECT_TRUE(recorder_.boxes[0].text.empty());
    EXPECT_TRUE(recorder_.boxes[0].caption.empty());
}

TEST_F(MessageBoxTest, NullHandlerRestoresTheStandardErrorBox) {
    QzKernel_SetMessageBoxHandler(nullptr, &recorder_);
    ::testing::internal::CaptureStderr();
    const int answer = QzMessageBox(nullptr, QZTEXT("Disk full \u00e9"), QZTEXT("Kavo Kernel"),
                                    MB_OK | MB_ICONINFORMATION);
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(answer, IDOK);
    EXPECT_TRUE(recorder_.boxes.empty());
    EXPECT_EQ(written, "Kavo Kernel: Disk full \xC3\xA9\n");
}

}  // namespace
