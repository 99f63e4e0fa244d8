// The error handler's texts: the kernel's table, registered tables, the
// context sentences, composed messages and the error boxes.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "kernel/error_internal.h"
#include "tests/support/error_support.h"

namespace {

using namespace qz::testing;

WString text_of(HRESULT code) {
    const LPCWSTR text = QzErrorHandler_GetHresultString(code);
    return text ? WString(text) : WString(QZTEXT("<null>"));
}

TEST(ErrorMessages, TextsFollowTwoLineBreaksAndUnlistedCodesHaveNone) {
    // The codes as numbers, so the test does not lean on the names: the
    // first and last of the table, the kernel's and Windows' ranges.
    const struct {
        DWORD code;
        const char* text;
    } cases[] = {
        {0x8004E000, "An unsupported media type was requested."},
        {0x8004E00B, "The file is most likely corrupted or of an unknown format."},
        {0x8004E00E,
         "A necessary resource is missing. You should re-install $(AppName) as the application "
         "file appears to be corrupted."},
        {0x8004E03C, "Buffer to small."},
        {0x0004E000,
         "The file had a problem in it; however, some content may have been recovered."},
        {0x800A0026, "End of File is not an error."},
        {0x80070057, "A value passed to the operation is not valid."},
        {0x80030103, "The storage file is most likely corrupted or of an unknown format."}};
    for (const auto& c : cases)
        EXPECT_EQ(narrow(text_of(HRESULT(c.code))), "\n\n" + std::string(c.text))
            << std::hex << c.code;
    // The licensing block 0x8004E12C..54 (around the kernel's own 0x8004E142).
    for (DWORD code : {0x8004E12Cu, 0x8004E141u, 0x8004E143u, 0x8004E154u, 0x00000000u, 0x8004E013u,
                       0x8004E18Bu, 0x0004E001u, 0xFFFFFFFFu})
        EXPECT_EQ(QzErrorHandler_GetHresultString(HRESULT(code)), nullptr) << std::hex << code;
}

TEST(ErrorCompose, ContextSentenceTakesTheExtraTextThenTheMessage) {
    EXPECT_EQ(narrow(QzErrorHandler_GetContextString(QZERRCTX_RECORDER)),
              "An error occurred while communicating with the portable recorder \"%s\".");
    for (DWORD_PTR unknown : {DWORD_PTR(57), DWORD_PTR(0xFFFF)})
        EXPECT_EQ(narrow(QzErrorHandler_GetContextString(unknown)), "An error has occurred.");
    // Values above the identifier range are the caller's own text.
    static const WCHAR own[] = QZTEXT("Mixing %s went wrong.");
    EXPECT_EQ(QzErrorHandler_GetContextString(reinterpret_cast<DWORD_PTR>(own)), own);
    EXPECT_EQ(narrow(QzErrorHandler_GetErrorMessage(QZERRCTX_FILE_OPEN, QZE_NOT_FOUND,
                                                    QZTEXT("take 3.wav"))),
              "An error occurred while opening the file \"take 3.wav\".\n\nThe item was not "
              "found.");
    EXPECT_EQ(narrow(QzErrorHandler_GetErrorMessage(QZERRCTX_FILE_SAVE, QZE_DISK_FULL, nullptr)),
              "An error occurred while saving the file \"(unnamed)\".\n\nThe disk is full. "
              "Please free some space and try again.");
    EXPECT_EQ(narrow(QzErrorHandler_GetErrorMessage(QZERRCTX_DEFAULT, HRESULT(0x80041234),
                                                    QZTEXT("ignored"))),
              "An error has occurred.\n\nAn unknown error occurred (0x80041234).");
    // "$(AppName)" is replaced in the sentence and in the message.
    EXPECT_EQ(QzErrorHandler_GetErrorMessage(QZERRCTX_STARTUP, QZE_RESOURCE_MISSING, nullptr),
              expanded(WString(QZTEXT("An error occurred while starting $(AppName).")) +
                       text_of(QZE_RESOURCE_MISSING)));
}

TEST(ErrorCompose, CallersSentenceTakesOneStringConversionAndTheMessageBelow1948Characters) {
    const struct {
        const char* sentence;
        const char* expected;
    } cases[] = {{"Could not mix %s.", "Could not mix drums."},
                 {"%-8s|100%% sure", "drums   |100% sure"},
                 {"100% done %d", "100% done %d"},
                 {"%s and %s", "%s and %s"},
                 {"50 %", "50 %"},
                 {"no conversion", "no conversion"}};
    for (const auto& c : cases) {
        const WString sentence = wide(c.sentence);
        const WString message = QzErrorHandler_GetErrorMessage(
            reinterpret_cast<DWORD_PTR>(sentence.c_str()), QZE_NOT_FOUND, QZTEXT("drums"));
        EXPECT_EQ(narrow(message), std::string(c.expected) + "\n\nThe item was not found.")
            << c.sentence;
    }
    // The message is appended only below 1948 characters.
    const WString not_found = text_of(QZE_NOT_FOUND);
    for (size_t length : {1947u, 1948u, 5000u}) {
        const WString sentence(length, WCHAR('x'));
        const WString composed = QzErrorHandler_GetErrorMessage(
            reinterpret_cast<DWORD_PTR>(sentence.c_str()), QZE_NOT_FOUND, nullptr);
        if (length < 1948)
            EXPECT_EQ(composed, sentence + not_found) << length;
        else
            EXPECT_EQ(composed, sentence.substr(0, QZERROR_MESSAGE_CHARS - 1)) << length;
    }
}

TEST(ErrorBox, BoxAndComposedTextShowTheMessageOfTheDetailsCode) {
    QzErrorHandler_DetailsInit();
    ASSERT_EQ(
        QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("Path: %s"), QZTEXT("/music/a.wav")),
        S_OK);
    ASSERT_EQ(QzErrorHandler_DetailsAddString(QZE_FILE_OPEN, QZTEXT("Tried %d times"), 3), S_OK);
    ASSERT_EQ(
        QzErrorHandler_DetailsSetHyperlink(QZTEXT("https://example.com/e007"), QZTEXT("More help")),
        S_OK);
    const WString message =
        QzErrorHandler_GetErrorMessage(QZERRCTX_FILE_OPEN, QZE_FILE_OPEN, QZTEXT("a.wav"));
    WCHAR composed[QZERROR_MESSAGE_CHARS];
    EXPECT_EQ(QzErrorHandler_ComposeErrorText(QZERRCTX_FILE_OPEN, QZTEXT("a.wav"), composed), S_OK);
    EXPECT_EQ(WString(composed), message);
    EXPECT_EQ(QzErrorHandler_ComposeErrorText(QZERRCTX_FILE_OPEN, nullptr, nullptr), E_POINTER);
    MessageBoxCapture capture(7);
    EXPECT_EQ(
        QzErrorHandler_MsgBox(nullptr, 0x30, QZERRCTX_FILE_OPEN, QZE_FILE_OPEN, QZTEXT("a.wav"), 0),
        7);
    EXPECT_EQ(QzErrorHandler_MsgBox(nullptr, 0x10, QZERRCTX_FILE_OPEN, QZE_FILE_OPEN,
                                    QZTEXT("a.wav"), QZERRMB_NODETAILS | QZERRMB_NOHYPERLINK),
              7);
    // A cancellation and a null text show nothing.
    EXPECT_EQ(
        QzErrorHandler_MsgBox(nullptr, 0x30, QZERRCTX_FILE_OPEN, QZE_CANCELLED, QZTEXT("a.wav"), 0),
        1);
    EXPECT_EQ(QzErrorHandler_MsgBoxText(nullptr, 0, nullptr, 0), 0);
    ASSERT_EQ(capture.boxes().size(), 2u);
    EXPECT_EQ(narrow(capture.boxes()[0].text),
              narrow(message) +
                  "\n\nDetails:\nPath: /music/a.wav\r\nTried 3 times\n\nMore help: "
                  "https://example.com/e007");
    EXPECT_EQ(capture.boxes()[0].caption, expanded(QZTEXT("$(AppName)")));
    EXPECT_EQ(capture.boxes()[1].text, message);
    EXPECT_EQ(capture.boxes()[1].style, 0x10u);
    QzErrorHandler_DetailsInit();
}

// Registration tests last: the registry lives for the process.
const QzLocalText<1> kAppOwnCode = qz::errors::english(QZTEXT("Loop has no tempo."));
const QzLocalText<1> kRecorderFull = qz::errors::english(QZTEXT("The recorder's card is full."));
constexpr HRESULT kAppCode = HRESULT(0xA0041001);

TEST(ErrorTables, ResourceIdTablesResolveThroughTheirLanguage) {
    HQZLANG lang = nullptr;
    ASSERT_EQ(QzLang_Open(nullptr, &lang), S_OK);
    static const QZLANGSTRING strings[] = {{4711, kRecorderFull.record()}};
    ASSERT_EQ(QzLang_AddStrings(lang, strings, 1), S_OK);
    static const QZERROR_TABLE_RCID table[] = {
        {QZE_RECORDER_17C, 4711},
        {QZE_RECORDER_17D, 4712}  // no such string: the kernel's text stands
    };
    ASSERT_EQ(QzErrorHandler_AddErrorTable(lang, table, 2), S_OK);
    EXPECT_EQ(narrow(text_of(QZE_RECORDER_17C)), "The recorder's card is full.");
    EXPECT_EQ(narrow(text_of(QZE_RECORDER_17D)),
              "\n\nThe portable recorder reported an error (E17D).");
}

TEST(ErrorTables, RegistrationStopsAt32WithResultOne) {
    static QZERROR_TABLE tables[QZERROR_MAX_TABLES + 2][1];
    const int before = qz::errors::registered_table_count();
    // Bad tables are refused without registering.
    static const QZERROR_TABLE table[] = {{kAppCode, kAppOwnCode.record()}};
    EXPECT_EQ(QzErrorHandler_AddErrorTable(static_cast<const QZERROR_TABLE*>(nullptr), 1),
              E_POINTER);
    EXPECT_EQ(QzErrorHandler_AddErrorTable(table, 0), E_INVALIDARG);
    EXPECT_EQ(qz::errors::registered_table_count(), before);
    int accepted = 0;
    for (int i = 0; i < QZERROR_MAX_TABLES + 2; ++i) {
        tables[i][0] = {HRESULT(0xA0042000 + i), kAppOwnCode.record()};
        const bool fits = before + i < QZERROR_MAX_TABLES;
        EXPECT_EQ(QzErrorHandler_AddErrorTable(tables[i], 1), fits ? S_OK : 1) << i;
        accepted += fits;
    }
    EXPECT_EQ(qz::errors::registered_table_count(), QZERROR_MAX_TABLES);
    EXPECT_NE(QzErrorHandler_GetHresultString(HRESULT(0xA0042000 + accepted - 1)), nullptr);
    EXPECT_EQ(QzErrorHandler_GetHresultString(HRESULT(0xA0042000 + accepted)), nullptr);
}

}  // namespace
