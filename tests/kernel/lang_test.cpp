// The language service: text records, language choice, string tables and
// the "$(AppName)" macro.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "kernel/lang.h"
#include "qz/qzlang.h"
#include "qz/qzresult.h"
#include "tests/support/error_support.h"

namespace {

using qz::testing::WString;

// Opens an instance for one test and closes it afterwards.
class LangInstance {
public:
    LangInstance() { EXPECT_EQ(QzLang_Open(nullptr, &lang_), S_OK); }
    ~LangInstance() { EXPECT_EQ(QzLang_Close(lang_), S_OK); }
    HQZLANG get() const { return lang_; }

private:
    HQZLANG lang_ = nullptr;
};

// Restores the default application name after a test.
struct AppNameGuard {
    ~AppNameGuard() { QzLang_SetAppName(nullptr); }
};

const QzLocalText<3> kThreeLanguages = {
    QZLANG_TEXT_MARKER, 3, {QZTEXT("Hello"), QZTEXT("Hallo"), QZTEXT("")}};
const QzLocalText<1> kEnglishOnly = {QZLANG_TEXT_MARKER, 1, {QZTEXT("Only")}};
const QzLocalText<2> kNullGerman = {QZLANG_TEXT_MARKER, 2, {QZTEXT("Fallback"), nullptr}};
const QzLocalText<1> kWrongMarker = {0xFFFE, 1, {QZTEXT("Swapped")}};
const QzLocalText<1> kNoLanguages = {QZLANG_TEXT_MARKER, 0, {QZTEXT("Unused")}};

TEST(LangGetString, ResolvesTheSlotFallsBackToEnglishAndRejectsBadArguments) {
    struct Case {
        const QZLOCALTEXT* record;
        DWORD language;
        const WCHAR* expected;
    };
    const Case cases[] = {
        {kThreeLanguages.record(), QZLANG_ENGLISH, QZTEXT("Hello")},
        {kThreeLanguages.record(), QZLANG_GERMAN, QZTEXT("Hallo")},
        {kThreeLanguages.record(), QZLANG_FRENCH, QZTEXT("Hello")},    // empty text
        {kEnglishOnly.record(), QZLANG_GERMAN, QZTEXT("Only")},  // past the count
        {kNullGerman.record(), QZLANG_GERMAN, QZTEXT("Fallback")},  // null text
        {kWrongMarker.record(), QZLANG_ENGLISH, nullptr},
        {kNoLanguages.record(), QZLANG_ENGLISH, nullptr},
        {nullptr, QZLANG_ENGLISH, nullptr}};
    EXPECT_EQ(WString(QzGetString(nullptr, kEnglishOnly.record())), QZTEXT("Only"));
    LangInstance lang;
    for (const Case& c : cases) {
        ASSERT_EQ(QzLang_SetLanguage(lang.get(), c.language), S_OK);
        const WCHAR* text = QzGetString(lang.get(), c.record);
        EXPECT_EQ(WString(text ? text : QZTEXT("<null>")),
                  c.expected ? c.expected : QZTEXT("<null>"))
            << "language " << c.language;
    }
    // Instance calls reject bad arguments.
    HQZLANG opened = nullptr;
    EXPECT_EQ(QzLang_Open(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(QzLang_Close(nullptr), S_OK);
    ASSERT_EQ(QzLang_Open(nullptr, &opened), S_OK);
    const QZLANGSTRING entry = {1, kEnglishOnly.record()};
    EXPECT_EQ(QzLang_AddStrings(opened, &entry, -1), E_INVALIDARG);
    EXPECT_EQ(QzLang_AddStrings(opened, nullptr, 1), E_INVALIDARG);
    EXPECT_EQ(QzLang_SetLanguage(opened, QZLANG_COUNT), E_INVALIDARG);
    EXPECT_EQ(QzLang_Close(opened), S_OK);
}

TEST(LangLocale, PicksTheLanguageSlotAndSeparators) {
    struct Case {
        const char* locale;
        DWORD language;
        WCHAR decimal;
        WCHAR date_sep;
        DWORD metric;
    };
    const Case cases[] = {{"de_DE.UTF-8", QZLANG_GERMAN, QZTEXT(','), QZTEXT('.'), 1},
                          {"de-AT", QZLANG_GERMAN, QZTEXT(','), QZTEXT('.'), 1},  // the Windows spelling
                          {"fr_FR@euro", QZLANG_FRENCH, QZTEXT(','), QZTEXT('/'), 1},
                          {"en_US.UTF-8", QZLANG_ENGLISH, QZTEXT('.'), QZTEXT('/'), 0},
                          {"ES_mx", QZLANG_SPANISH, QZTEXT(','), QZTEXT('/'), 1},
                          {"pt_BR", QZLANG_ENGLISH, QZTEXT('.'), QZTEXT('/'), 1},  // not shipped
                          {"", QZLANG_ENGLISH, QZTEXT('.'), QZTEXT('/'), 1}};
    for (const Case& c : cases) {
        EXPECT_EQ(qz::lang::language_from_locale(c.locale), c.language) << c.locale;
        const QZINTERNATIONALS intl = qz::lang::internationals_from_locale(c.locale);
        const std::tuple got{intl.language,    intl.decimal[0],  intl.decimal[1],
                             intl.date_sep[0], intl.time_sep[0], intl.metric};
        EXPECT_EQ(got,
                  std::tuple(c.language, c.decimal, WCHAR(0), c.date_sep, WCHAR(QZTEXT(':')), c.metric))
            << c.locale;
    }
}

TEST(LangExpandText, ReplacesAppNameCutsToCapacityAndMeasures) {
    AppNameGuard guard;
    ASSERT_EQ(QzLang_SetAppName(QZTEXT("Vegas")), S_OK);
    struct Case {
        const WCHAR* text;
        int capacity;
        const WCHAR* expected;
    };
    const Case cases[] = {
        {QZTEXT("Restart $(AppName)."), 64, QZTEXT("Restart Vegas.")},
        {QZTEXT("$(AppName) and $(AppName)"), 64, QZTEXT("Vegas and Vegas")},
        {QZTEXT("$(AppNam) $(appname) $AppName"), 64, QZTEXT("$(AppNam) $(appname) $AppName")},
        {QZTEXT("ab$(AppName)"), 5, QZTEXT("abVe")},  // cut inside the name
        {QZTEXT("abc"), 3, QZTEXT("ab")},
        {QZTEXT("tail $("), 64, QZTEXT("tail $(")}};
    WCHAR buffer[80];
    for (const Case& c : cases) {
        std::fill(std::begin(buffer), std::end(buffer), WCHAR(0x7777));
        const int n = QzLang_ExpandText(c.text, buffer, c.capacity);
        EXPECT_EQ(WString(buffer), WString(c.expected));
        EXPECT_EQ(n, int(WString(c.expected).size()));
        EXPECT_EQ(buffer[c.capacity], WCHAR(0x7777)) << "wrote past the capacity";
    }
    // Without a buffer the whole length; without a text the empty string.
    EXPECT_EQ(QzLang_ExpandText(QZTEXT("Quit $(AppName) now?"), nullptr, 0), 15);
    EXPECT_EQ(QzLang_ExpandText(nullptr, buffer, 4), 0);
    EXPECT_EQ(buffer[0], 0);
    // An empty name goes back to the default: the host executable's.
    ASSERT_EQ(QzLang_SetAppName(QZTEXT("")), S_OK);
    QzLang_ExpandText(QZTEXT("$(AppName)"), buffer, 64);
    EXPECT_EQ(WString(buffer), WString(QZTEXT("qz_kernel_tests")));
}

TEST(LangLoadString, FindsIdsNewestTableFirstAndExpands) {
    AppNameGuard guard;
    ASSERT_EQ(QzLang_SetAppName(QZTEXT("ACID")), S_OK);
    const QzLocalText<2> reinstall = {
        QZLANG_TEXT_MARKER, 2, {QZTEXT("Reinstall $(AppName)."), QZTEXT("$(AppName) neu")}};
    const QzLocalText<1> first = {QZLANG_TEXT_MARKER, 1, {QZTEXT("first")}};
    const QzLocalText<1> second = {QZLANG_TEXT_MARKER, 1, {QZTEXT("second")}};
    const QZLANGSTRING older[] = {{100, reinstall.record()}, {200, first.record()}};
    const QZLANGSTRING newer[] = {{200, second.record()}};
    LangInstance lang;
    ASSERT_EQ(QzLang_AddStrings(lang.get(), older, 2), S_OK);
    ASSERT_EQ(QzLang_AddStrings(lang.get(), newer, 1), S_OK);

    WCHAR buffer[32];
    auto load = [&](UINT id, int size) {
        const int n = QzLoadString(lang.get(), id, buffer, size);
        return std::to_string(n) + ":" + qz::testing::narrow(buffer);
    };
    EXPECT_EQ(load(200, 32), "6:second");
    ASSERT_EQ(QzLang_SetLanguage(lang.get(), QZLANG_GERMAN), S_OK);
    EXPECT_EQ(load(100, 32), "8:ACID neu");
    EXPECT_EQ(load(100, 5), "4:ACID");

    buffer[0] = QZTEXT('x');
    EXPECT_EQ(QzLoadString(lang.get(), 300, buffer, 32), 0);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(QzLoadString(lang.get(), 100, nullptr, 32), 0);
}

}  // namespace
