// The details record: lines, owner thread, the size limit and the hyperlink.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/win32api.h"
#include "tests/support/error_support.h"

namespace {

using qz::testing::expanded;
using qz::testing::MessageBoxCapture;
using qz::testing::narrow;
using qz::testing::WString;

constexpr size_t kLimitChars = QZERROR_DETAILS_BYTES / sizeof(WCHAR);

class Details : public ::testing::Test {
protected:
    void SetUp() override { QzErrorHandler_DetailsInit(); }
    void TearDown() override { QzErrorHandler_DetailsInit(); }

    static std::string text() {
        return narrow(QzErrorHandler_DetailsInfo(nullptr, nullptr, nullptr));
    }
    static std::string box_text() {
        MessageBoxCapture capture;
        QzErrorHandler_MsgBoxText(nullptr, 0, QZTEXT("msg"), 0);
        return capture.boxes().size() == 1 ? narrow(capture.boxes()[0].text) : "<no box>";
    }
};

TEST_F(Details, LinesAreKeptWithTheirSeparatorCodeAndTheFirstThreadAsOwner) {
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, nullptr), E_POINTER);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("Reading %s at %u"),
                                              QZTEXT("a.wav"), 44u),
              S_OK);
    // Without "%" or "$" the format is copied and the arguments ignored.
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_WRITE, QZTEXT("50 percent"), 7), S_OK);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_WRITE, QZTEXT("100%% of $(AppName)")), S_OK);
    HRESULT code = 1;
    int lines = -1;
    DWORD owner = 1;
    EXPECT_EQ(QzErrorHandler_DetailsInfo(&code, &lines, &owner),
              QZTEXT("Reading a.wav at 44\r\n50 percent\r\n") +
                  expanded(QZTEXT("100% of $(AppName)")) + QZTEXT("\r\n"));
    EXPECT_EQ(QzErrorHandler_GetLastError(), QZE_FILE_WRITE);
    EXPECT_EQ(lines, 3);
    EXPECT_EQ(owner, GetCurrentThreadId());

    // The owner is the first thread to add; other threads keep its code.
    QzErrorHandler_DetailsInit();
    DWORD helper_id = 0;
    HRESULT same = 0, other = 0;
    std::thread([&] {
        helper_id = GetCurrentThreadId();
        QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("from the owner"));
    }).join();
    same = QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("from another thread"));
    other = QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("unrelated"));
    QzErrorHandler_DetailsInfo(nullptr, nullptr, &owner);
    EXPECT_EQ(owner, helper_id);
    EXPECT_EQ(same, S_OK);
    EXPECT_EQ(other, E_FAIL);
    EXPECT_EQ(text(), "from the owner\r\nfrom another thread\r\n");
    // The owner itself may change the code.
    QzErrorHandler_DetailsInit();
    ASSERT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("a")), S_OK);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("b")), S_OK);
}

TEST_F(Details, LinesStopBelowTheByteLimitAndExpandedLinesAreRefusedWhole) {
    // Text, line and "\r\n" stay below the limit; the zero fills the last character.
    const size_t first = 5000;
    ASSERT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, WString(first, WCHAR('a')).c_str()),
              S_OK);
    const size_t room = kLimitChars - first - 2;
    const struct {
        size_t length;
        HRESULT expected;
    } cases[] = {{room - 2, E_FAIL}, {room - 1, E_FAIL}, {room - 3, S_OK}};
    for (const auto& c : cases)
        EXPECT_EQ(
            QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, WString(c.length, WCHAR('b')).c_str()),
            c.expected)
            << c.length;
    int lines = 0;
    EXPECT_EQ(WString(QzErrorHandler_DetailsInfo(nullptr, &lines, nullptr)).size(),
              kLimitChars - 1);
    EXPECT_EQ(lines, 2);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("")), E_FAIL);
    QzErrorHandler_DetailsInit();
    const WString huge(20000, WCHAR('z'));
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("%s"), huge.c_str()), E_FAIL);
    EXPECT_EQ(QzErrorHandler_DetailsInfo(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(Details, HyperlinkNeedsBothPartsIsCutAndInitClearsAll) {
    EXPECT_EQ(QzErrorHandler_DetailsSetHyperlink(nullptr, QZTEXT("text")), E_POINTER);
    EXPECT_EQ(QzErrorHandler_DetailsSetHyperlink(QZTEXT("https://x"), nullptr), E_POINTER);
    const std::string target = "https://" + std::string(3000, 't');
    const std::string label(3000, 'l');
    ASSERT_EQ(QzErrorHandler_DetailsSetHyperlink(qz::testing::wide(target).c_str(),
                                                 qz::testing::wide(label).c_str()),
              S_OK);
    EXPECT_EQ(box_text(), "msg\n\n" + label.substr(0, 2047) + ": " + target.substr(0, 2082));
    QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("line"));
    QzErrorHandler_DetailsSetHyperlink(QZTEXT("https://x"), QZTEXT("x"));
    EXPECT_EQ(QzErrorHandler_DetailsInit(), S_OK);
    HRESULT code = 1;
    int lines = 1;
    DWORD owner = 1;
    EXPECT_EQ(QzErrorHandler_DetailsInfo(&code, &lines, &owner), nullptr);
    EXPECT_TRUE(code == S_OK && lines == 0 && owner == 0u);
    EXPECT_EQ(box_text(), "msg");
}

}  // namespace
