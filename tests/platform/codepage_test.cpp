// MultiByteToWideChar and WideCharToMultiByte: Windows-1252 and UTF-8.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/win32api.h"

namespace {

constexpr DWORD kSentinel = 0xDEADBEEF;

std::u16string to_wide(UINT code_page, const std::string& bytes, DWORD flags = 0) {
    const int n = MultiByteToWideChar(code_page, flags, bytes.data(),
                                      static_cast<int>(bytes.size()), nullptr, 0);
    if (n == 0) return u"<failed>";
    std::u16string out(n, u'#');
    if (MultiByteToWideChar(code_page, flags, bytes.data(), static_cast<int>(bytes.size()),
                            out.data(), n) != n) {
        return u"<failed>";
    }
    return out;
}

std::string to_bytes(UINT code_page, const std::u16string& text, DWORD flags = 0,
                     const char* default_char = nullptr, BOOL* used_default = nullptr) {
    const int n = WideCharToMultiByte(code_page, flags, text.data(), static_cast<int>(text.size()),
                                      nullptr, 0, default_char, used_default);
    if (n == 0) return "<failed>";
    std::string out(n, '#');
    if (WideCharToMultiByte(code_page, flags, text.data(), static_cast<int>(text.size()),
                            out.data(), n, default_char, used_default) != n) {
        return "<failed>";
    }
    return out;
}

// The typographic block of Windows-1252, as published with the code page.
constexpr char16_t kExpected1252[32] = {
    u'\u20AC', u'\u0081', u'\u201A', u'\u0192', u'\u201E', u'\u2026', u'\u2020', u'\u2021',
    u'\u02C6', u'\u2030', u'\u0160', u'\u2039', u'\u0152', u'\u008D', u'\u017D', u'\u008F',
    u'\u0090', u'\u2018', u'\u2019', u'\u201C', u'\u201D', u'\u2022', u'\u2013', u'\u2014',
    u'\u02DC', u'\u2122', u'\u0161', u'\u203A', u'\u0153', u'\u009D', u'\u017E', u'\u0178',
};

TEST(Cp1252, EveryByteMapsAndSurvivesARoundTripAndTheRestBecomesTheDefault) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
    const std::u16string wide = to_wide(CP_ACP, all);
    ASSERT_EQ(wide.size(), all.size());
    for (int byte = 1; byte < 256; ++byte) {
        const char16_t expected = byte >= 0x80 && byte <= 0x9F ? kExpected1252[byte - 0x80] : byte;
        EXPECT_EQ(wide[byte - 1], expected) << byte;
    }
    BOOL used_default = TRUE;
    EXPECT_EQ(to_bytes(CP_ACP, wide, 0, nullptr, &used_default), all);
    EXPECT_FALSE(used_default);
    // What it cannot show becomes the default character.
    struct Case {
        std::u16string text;
        const char* default_char;
        std::string expected;
    };
    const Case cases[] = {
        {u"a\u0100b\u4E2D", nullptr, "a?b?"},
        // The C1 control U+0080 is not what byte 0x80 means here; no best fit.
        {u"\u0080\u009F", nullptr, "??"},
        {u"x\U0001F3B5y", nullptr, "x?y"},              // a surrogate pair is one character
        {std::u16string(u"x\xD800y"), nullptr, "x?y"},  // and a lone surrogate one too
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        BOOL defaulted = FALSE;
        EXPECT_EQ(to_bytes(CP_ACP, c.text, WC_NO_BEST_FIT_CHARS, c.default_char, &defaulted),
                  c.expected);
        EXPECT_TRUE(defaulted);
    }
}

// Each malformed sequence or lone surrogate becomes one U+FFFD, and the
// strict flags refuse them.
TEST(Utf8, MalformedSequencesAndLoneSurrogatesBecomeReplacementCharacters) {
    const std::u16string R = u"\uFFFD";
    const std::string R8 = "\xEF\xBF\xBD";
    const struct {
        const char* what;
        std::string bytes;
        std::u16string text;
        bool well_formed;
        bool decoding;  // false: encoding `text`, which gives `bytes`
    } cases[] = {
        {"two bytes", "\xC3\xA9", u"\u00E9", true, true},
        {"four bytes become a pair", "\xF0\x9F\x8E\xB5", u"\U0001F3B5", true, true},
        {"byte order mark is kept", "\xEF\xBB\xBF\x61", u"\uFEFFa", true, true},
        {"overlong", "\xC0\x80", R + R, false, true},
        {"encoded surrogate", "\xED\xA0\x80", R + R + R, false, true},
        {"past U+10FFFF", "\xF4\x90\x80\x80", R + R + R + R, false, true},
        {"cut at the end", "a\xE2\x82", u"a" + R, false, true},
        {"stray continuation", "\x80\x62", R + u"b", false, true},
        {"never a lead", "\xFF\xFE", R + R, false, true},
        {"pair", "\xF0\x9F\x8E\xB5", u"\U0001F3B5", true, false},
        {"lone high", "a" + R8, std::u16string(u"a\xD83C"), false, false},
        {"high then not low", R8 + "A", std::u16string(u"\xD83C\x41"), false, false},
        {"two highs", R8 + "\xF0\x9F\x8E\xB5", std::u16string(u"\xD83C\xD83C\xDFB5"), false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        SetLastError(kSentinel);
        int n = 0;
        if (c.decoding) {
            EXPECT_EQ(to_wide(CP_UTF8, c.bytes), c.text);
            n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, c.bytes.data(),
                                    static_cast<int>(c.bytes.size()), nullptr, 0);
        } else {
            EXPECT_EQ(to_bytes(CP_UTF8, c.text), c.bytes);
            n = WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, c.text.data(),
                                    static_cast<int>(c.text.size()), nullptr, 0, nullptr, nullptr);
        }
        const size_t length = c.decoding ? c.text.size() : c.bytes.size();
        EXPECT_EQ(n, c.well_formed ? static_cast<int>(length) : 0);
        if (!c.well_formed) {
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_UNICODE_TRANSLATION));
        }
    }
}

TEST(CodePages, TooSmallBuffersFailWithInsufficientBuffer) {
    struct Case {
        UINT code_page;
        int capacity;
        int result;
    };
    // "a\u20AC" needs 2 units as UTF-16, 2 bytes in 1252, 4 bytes in UTF-8.
    const Case cases[] = {
        {CP_ACP, 1, 0},
        {CP_ACP, 2, 2},
        {CP_UTF8, 3, 0},
        {CP_UTF8, 4, 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.code_page << " into " << c.capacity);
        char narrow[16];
        SetLastError(kSentinel);
        EXPECT_EQ(WideCharToMultiByte(c.code_page, 0, u"a\u20AC", 2, narrow, c.capacity, nullptr,
                                      nullptr),
                  c.result);
        if (c.result == 0) {
            EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
        }
    }
    WCHAR wide[4] = {u'#', u'#', u'#', u'#'};
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xF0\x9F\x8E\xB5", 4, wide, 1), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(wide[1], u'#');  // nothing written past the capacity
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xF0\x9F\x8E\xB5", 4, wide, 2), 2);
}

TEST(CodePages, BadArgumentsFailWithTheirErrors) {
    // Null source or target, zero or negative lengths, code pages and flags
    // each side does not take, a default character for UTF-8.
    struct Case {
        bool to_wide;
        UINT code_page;
        DWORD flags;
        bool null_source, null_target;
        int length, capacity;
        const char* default_char;
        DWORD error;
    };
    const DWORD P = ERROR_INVALID_PARAMETER, F = ERROR_INVALID_FLAGS;
    const Case cases[] = {
        {true, CP_UTF8, 0, true, false, 3, 4, nullptr, P},
        {true, CP_UTF8, 0, false, false, 0, 4, nullptr, P},
        {true, CP_UTF8, 0, false, true, 3, 4, nullptr, P},
        {true, 932, 0, false, false, 3, 4, nullptr, P},
        {true, CP_UTF8, MB_PRECOMPOSED, false, false, 3, 4, nullptr, F},
        {false, CP_ACP, 0, false, true, 3, 4, nullptr, P},
        {false, CP_UTF8, 0, false, false, 3, 4, "?", P},
        {false, CP_ACP, WC_ERR_INVALID_CHARS, false, false, 3, 4, nullptr, F},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        WCHAR wide[4] = {u'#', u'#', u'#', u'#'};
        char narrow[4] = {'#', '#', '#', '#'};
        SetLastError(kSentinel);
        const int n =
            c.to_wide ? MultiByteToWideChar(c.code_page, c.flags, c.null_source ? nullptr : "abc",
                                            c.length, c.null_target ? nullptr : wide, c.capacity)
                      : WideCharToMultiByte(c.code_page, c.flags, c.null_source ? nullptr : u"abc",
                                            c.length, c.null_target ? nullptr : narrow, c.capacity,
                                            c.default_char, nullptr);
        EXPECT_EQ(n, 0);
        EXPECT_EQ(GetLastError(), c.error);
        EXPECT_EQ(std::u16string(wide, 4), u"####");
        EXPECT_EQ(std::string(narrow, 4), "####");
    }
}

}  // namespace
