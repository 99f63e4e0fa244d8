// The formatter: Windows conventions for string widths, sizes and %p, and
// output that never passes its capacity.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/byteorder.h"
#include "base/format.h"

namespace {

using WString = std::basic_string<WCHAR>;

template <class... Args>
std::string narrow_format(size_t capacity, const char* format, Args... args) {
    std::string out(capacity + 4, '#');
    const qz::base::FormatResult r = qz::base::format(out.data(), capacity, format, args...);
    EXPECT_LT(r.length, capacity == 0 ? 1 : capacity);
    if (capacity > 0) {
        EXPECT_EQ(out[r.length], '\0');
    }
    // Nothing past the capacity was touched.
    for (size_t i = capacity; i < out.size(); ++i) EXPECT_EQ(out[i], '#') << "at " << i;
    return capacity ? std::string(out.c_str()) : std::string();
}

template <class... Args>
WString wide_format(const WCHAR* format, Args... args) {
    WCHAR out[256];
    qz::base::format(out, 256, format, args...);
    return WString(out);
}

TEST(Format, IntegerConversionsFollowPrintf) {
    struct Case {
        const char* format;
        long long value;
        const char* expected;
    };
    const Case cases[] = {{"%-5d|", 42, "42   |"},
                          {"%05d", -42, "-0042"},
                          {"%+d", 7, "+7"},
                          {"% d", 7, " 7"},
                          {"%.0d", 0, ""},
                          {"%x", 0xBEEF, "beef"},
                          {"%#x", 0x1F, "0x1f"},
                          {"%#X", 0, "0"},
                          {"%08X", 0xABC, "00000ABC"},
                          {"%#o", 8, "010"},
                          {"%u", 4294967295LL, "4294967295"}};
    for (const Case& c : cases)
        EXPECT_EQ(narrow_format(64, c.format, int(c.value)), c.expected) << c.format;
}

TEST(Format, SizePrefixesReadTheRightWidth) {
    // "l" is 32 bits, as on Windows; ll and I64 are 64; h and hh narrow.
    EXPECT_EQ(narrow_format(64, "%ld %lu", int32_t(-5), uint32_t(0xFFFFFFFF)), "-5 4294967295");
    EXPECT_EQ(narrow_format(64, "%lld", -1234567890123LL), "-1234567890123");
    EXPECT_EQ(narrow_format(64, "%I64X", 0x123456789ABCDEF0ULL), "123456789ABCDEF0");
    EXPECT_EQ(narrow_format(64, "%hd %hhu", 70000, 257), "4464 1");
    // I and z take a size_t: 64 bits on 64-bit builds, 32 in the data model
    // of the 32-bit DLL. The %d after each shows how much was taken.
    EXPECT_EQ(narrow_format(64, "%Iu %d %zu %d", SIZE_MAX, 7, SIZE_MAX, 8),
              sizeof(size_t) == 8 ? "18446744073709551615 7 18446744073709551615 8"
                                  : "4294967295 7 4294967295 8");
}

TEST(Format, PointerIsUpperCaseHexOfPointerWidth) {
    const void* p = reinterpret_cast<const void*>(uintptr_t(0xABCDEF));
    const std::string expected = sizeof(void*) == 8 ? "0000000000ABCDEF" : "00ABCDEF";
    EXPECT_EQ(narrow_format(64, "%p", p), expected);
}

TEST(Format, LowerSIsTheFormatsWidthAndCapitalSTheOther) {
    EXPECT_EQ(wide_format(QZTEXT("[%s]"), QZTEXT("wide")), QZTEXT("[wide]"));
    EXPECT_EQ(wide_format(QZTEXT("[%S|%hs]"), "S", "hs"), QZTEXT("[S|hs]"));
    EXPECT_EQ(wide_format(QZTEXT("[%ls|%ws]"), QZTEXT("l"), QZTEXT("w")), QZTEXT("[l|w]"));
    EXPECT_EQ(wide_format(QZTEXT("%c%C"), int(QZTEXT('\u00E9')), int('x')), QZTEXT("\u00E9x"));
    // 8-bit text is read in the ANSI code page: 0x80 is the euro sign.
    EXPECT_EQ(wide_format(QZTEXT("%hs"), "\x80"), QZTEXT("\u20AC"));
    EXPECT_EQ(narrow_format(64, "[%s]", "narrow"), "[narrow]");
    EXPECT_EQ(narrow_format(64, "[%S|%ls]", QZTEXT("S"), QZTEXT("ls")), "[S|ls]");
    // Wide text that the code page cannot hold becomes '?'.
    EXPECT_EQ(narrow_format(64, "%S", QZTEXT("\u20AC\u4E2D")), "\x80?");
}

TEST(Format, StringWidthPrecisionAndNull) {
    EXPECT_EQ(narrow_format(64, "%15s(%4d): ", "riff.cpp", 12), "       riff.cpp(  12): ");
    EXPECT_EQ(narrow_format(64, "%*.*s|", 5, 2, "abcdef"), "   ab|");
    EXPECT_EQ(narrow_format(64, "%-*d|", 4, 7), "7   |");
    EXPECT_EQ(narrow_format(64, "%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(wide_format(QZTEXT("%s"), static_cast<const WCHAR*>(nullptr)), QZTEXT("(null)"));
}

TEST(Format, FloatingPointLiteralsAndUnknownConversions) {
    EXPECT_EQ(narrow_format(64, "%8.3f|", -2.5), "  -2.500|");
    EXPECT_EQ(wide_format(QZTEXT("%.1f s"), 1.25), QZTEXT("1.2 s"));
    // "%%" is one percent; unknown conversions and a trailing "%" are copied.
    EXPECT_EQ(narrow_format(64, "100%% a%yb end%"), "100% a%yb end%");
}

TEST(Format, OutputIsCutAtCapacityAndAlwaysTerminated) {
    // narrow_format checks the guard bytes past the capacity.
    EXPECT_EQ(narrow_format(5, "%s", "abcdefgh"), "abcd");
    EXPECT_EQ(narrow_format(0, "%d", 12345), "");
    EXPECT_EQ(narrow_format(4, "%08X", 0xFF), "000");
    EXPECT_EQ(narrow_format(6, "%10s", "x"), "     ");

    // Filling the buffer exactly is not a cut.
    char buffer[8];
    for (const char* text : {"0123456789", "0123456"}) {
        const qz::base::FormatResult r = qz::base::format(buffer, sizeof buffer, "%s", text);
        EXPECT_EQ(r.truncated, std::strlen(text) > 7) << text;
        EXPECT_EQ(r.length, 7u);
    }

    WCHAR wide[4];
    EXPECT_TRUE(qz::base::format(wide, 4, QZTEXT("%s"), QZTEXT("abcdef")).truncated);
    EXPECT_EQ(WString(wide), QZTEXT("abc"));
}

TEST(Format, NullFormatGivesEmptyText) {
    char buffer[4] = "xyz";
    EXPECT_EQ(qz::base::format(buffer, sizeof buffer, static_cast<const char*>(nullptr)).length, 0u);
    EXPECT_EQ(buffer[0], '\0');
}

TEST(ByteOrder, LoadsTakeTheFirstByteAsTheirOrderSays) {
    const uint8_t b[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    using qz::base::ByteOrder;
    EXPECT_EQ(qz::base::load16(b, ByteOrder::Big), 0x0102u);
    EXPECT_EQ(qz::base::load16(b, ByteOrder::Little), 0x0201u);
    EXPECT_EQ(qz::base::load32(b, ByteOrder::Big), 0x01020304u);
    EXPECT_EQ(qz::base::load32(b, ByteOrder::Little), 0x04030201u);
    EXPECT_EQ(qz::base::load_be64(b), 0x0102030405060708ull);
    EXPECT_EQ(qz::base::load_le64(b), 0x0807060504030201ull);
}

}  // namespace
