// The details record: lines, owner thread, the size limit and the hyperlink.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/error_support.h"
#include "win32api.h"

namespace {

using qz::test::expanded;
using qz::test::MessageBoxCapture;
using qz::test::narrow;
using qz::test::WString;

constexpr size_t kLimitChars = QZERROR_DETAILS_BYTES / sizeof(WCHAR);

class Details : public ::testing::Test {
protected:
    void SetUp() override { QzErrorHandler_DetailsInit(); }
    void TearDown() override { QzErrorHandler_DetailsInit(); }

    static WString text() {
        const LPCWSTR t = QzErrorHandler_DetailsInfo(nullptr, nullptr, nullptr);
        return t ? WString(t) : WString(QZTEXT("<null>"));
    }
};

TEST_F(Details, LinesAreKeptWithTheirSeparatorCodeAndOwner) {
    HRESULT code = 1;
    int lines = -1;
    DWORD owner = 1;
    EXPECT_EQ(QzErrorHandler_DetailsInfo(&code, &lines, &owner), nullptr);
    EXPECT_EQ(code, S_OK);
    EXPECT_EQ(lines, 0);
    EXPECT_EQ(owner, 0u);

    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("Reading %s at %u"),
                                              QZTEXT("a.wav"), 44u),
              S_OK);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_WRITE, QZTEXT("plain line")), S_OK);
    EXPECT_EQ(narrow(QzErrorHandler_DetailsInfo(&code, &lines, &owner)),
              "Reading a.wav at 44\r\nplain line\r\n");
    EXPECT_EQ(code, QZE_FILE_WRITE);
    EXPECT_EQ(QzErrorHandler_GetLastError(), QZE_FILE_WRITE);
    EXPECT_EQ(lines, 2);
    EXPECT_EQ(owner, GetCurrentThreadId());
}

TEST_F(Details, FormatsWithoutConversionsStandAsTheyAre) {
    // A "%" or "$" asks for expansion; anything else is copied, so the
    // arguments are ignored.
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("50 percent"), 7), S_OK);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("100%% of $(AppName)")), S_OK);
    EXPECT_EQ(text(), WString(QZTEXT("50 percent\r\n")) + expanded(QZTEXT("100% of $(AppName)")) +
                          QZTEXT("\r\n"));
}

TEST_F(Details, NullFormatIsRefusedAndCountsNothing) {
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, nullptr), E_POINTER);
    int lines = -1;
    HRESULT code = 1;
    EXPECT_EQ(QzErrorHandler_DetailsInfo(&code, &lines, nullptr), nullptr);
    EXPECT_EQ(lines, 0);
    EXPECT_EQ(code, S_OK);
}

TEST_F(Details, OtherThreadsMayOnlyAddUnderTheLastCode) {
    ASSERT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("owner's line")), S_OK);
    HRESULT same = 0, other = 0;
    std::thread([&] {
        same = QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("helper's line"));
        other = QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("unrelated"));
    }).join();
    EXPECT_EQ(same, S_OK);
    EXPECT_EQ(other, E_FAIL);
    EXPECT_EQ(narrow(text()), "owner's line\r\nhelper's line\r\n");
    // The owner itself may change the code.
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("owner again")), S_OK);
}

TEST_F(Details, FirstThreadToAddAfterClearingBecomesOwner) {
    DWORD helper_id = 0;
    std::thread([&] {
        helper_id = GetCurrentThreadId();
        QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("from the helper"));
    }).join();
    DWORD owner = 0;
    QzErrorHandler_DetailsInfo(nullptr, nullptr, &owner);
    EXPECT_EQ(owner, helper_id);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_READ, QZTEXT("refused")), E_FAIL);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("accepted")), S_OK);
}

TEST_F(Details, LinesStopBelowTheByteLimit) {
    // The text, the line and "\r\n" must stay below 16384 bytes; the zero
    // fills the last character.
    const size_t first = 5000;
    ASSERT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, WString(first, WCHAR('a')).c_str()),
              S_OK);
    const size_t used = first + 2;
    const struct {
        size_t length;
        HRESULT expected;
    } cases[] = {
        {kLimitChars - used - 2, E_FAIL},  // would fill the last character
        {kLimitChars - used - 1, E_FAIL},
        {kLimitChars - used - 3, S_OK},  // the longest line that fits
    };
    for (const auto& c : cases) {
        EXPECT_EQ(
            QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, WString(c.length, WCHAR('b')).c_str()),
            c.expected)
            << c.length;
    }
    int lines = 0;
    const WString all = QzErrorHandler_DetailsInfo(nullptr, &lines, nullptr);
    EXPECT_EQ(lines, 2);
    EXPECT_EQ(all.size(), kLimitChars - 1);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("")), E_FAIL);
}

TEST_F(Details, ExpandedLinePastTheLimitIsRefusedWhole) {
    const WString huge(20000, WCHAR('z'));
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("%s"), huge.c_str()), E_FAIL);
    EXPECT_EQ(QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, huge.c_str()), E_FAIL);
    EXPECT_EQ(QzErrorHandler_DetailsInfo(nullptr, nullptr, nullptr), nullptr);
}

TEST_F(Details, HyperlinkNeedsBothPartsAndIsCut) {
    EXPECT_EQ(QzErrorHandler_DetailsSetHyperlink(nullptr, QZTEXT("text")), E_POINTER);
    EXPECT_EQ(QzErrorHandler_DetailsSetHyperlink(QZTEXT("https://x"), nullptr), E_POINTER);
    const WString target = QZTEXT("https://") + WString(3000, WCHAR('t'));
    const WString label(3000, WCHAR('l'));
    ASSERT_EQ(QzErrorHandler_DetailsSetHyperlink(target.c_str(), label.c_str()), S_OK);
    MessageBoxCapture capture;
    QzErrorHandler_MsgBoxText(nullptr, 0, QZTEXT("msg"), 0);
    ASSERT_EQ(capture.boxes().size(), 1u);
    EXPECT_EQ(capture.boxes()[0].text,
              QZTEXT("msg\n\n") + label.substr(0, 2047) + QZTEXT(": ") + target.substr(0, 2082));
}

TEST_F(Details, InitClearsLinesCodeOwnerAndHyperlink) {
    QzErrorHandler_DetailsAddString(QZE_NOT_FOUND, QZTEXT("line"));
    QzErrorHandler_DetailsSetHyperlink(QZTEXT("https://x"), QZTEXT("x"));
    EXPECT_EQ(QzErrorHandler_DetailsInit(), S_OK);
    HRESULT code = 1;
    int lines = 1;
    DWORD owner = 1;
    EXPECT_EQ(QzErrorHandler_DetailsInfo(&code, &lines, &owner), nullptr);
    EXPECT_EQ(code, S_OK);
    EXPECT_EQ(lines, 0);
    EXPECT_EQ(owner, 0u);
    MessageBoxCapture capture;
    QzErrorHandler_MsgBoxText(nullptr, 0, QZTEXT("msg"), 0);
    ASSERT_EQ(capture.boxes().size(), 1u);
    EXPECT_EQ(narrow(capture.boxes()[0].text), "msg");
}

}  // namespace
