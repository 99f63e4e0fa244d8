// The sample-type texts, in the kernel's language (English by default).
#include <gtest/gtest.h>

#include <string>

#include "qz/qzwaveformat.h"

namespace {

std::string narrow(const WCHAR* text) {
    std::string s;
    for (; text && *text; ++text) s += char(*text);
    return s;
}

// Texts with a width are formatted into the buffer; the others are the
// language's own strings, with the buffer emptied. 129 keeps its width only
// in the text table.
TEST(WaveFormatText, FormattedTextsStopAtTheBufferAndFixedOnesNeedNone) {
    const struct {
        DWORD type;
        const char *sample_type, *bit_depth;
        bool fixed;
    } rows[] = {
        {32, "32 Bit (IEEE Float)", "32 Bit", false},
        {48, "24 Bit (Unpacked)", "24 Bit", true},
        {49, "8 Bit (Signed)", "8 Bit", true},
        {129, "24 Bit (RA)", "24 Bit", false},
    };
    for (const auto& r : rows) {
        WCHAR buf[64] = {'X'};
        const WCHAR* text = QzAudio_GetSampleTypeText(QZSAMPLETYPE(r.type), buf, 64);
        EXPECT_EQ(narrow(text), r.sample_type) << r.type;
        EXPECT_EQ(text == buf, !r.fixed) << r.type;
        EXPECT_EQ(buf[0], r.fixed ? 0 : WCHAR(r.sample_type[0])) << r.type;
        EXPECT_EQ(narrow(QzAudio_GetBitDepthText(QZSAMPLETYPE(r.type), buf, 64, FALSE)),
                  r.bit_depth)
            << r.type;
    }
    WCHAR cut[8];
    for (WCHAR& c : cut) c = '#';
    // 4 characters: three of text and the terminator.
    EXPECT_EQ(narrow(QzAudio_GetSampleTypeText(QZST_FLOAT32, cut, 4)), "32 ");
    for (int i = 4; i < 8; ++i) EXPECT_EQ(cut[i], '#') << i;
    // No buffer: nothing is written, fixed texts still come back.
    EXPECT_EQ(QzAudio_GetSampleTypeText(QZST_PCM16, nullptr, 0), nullptr);
    EXPECT_EQ(narrow(QzAudio_GetSampleTypeText(QZST_PCM24IN32, nullptr, 0)), "24 Bit (Unpacked)");
}

TEST(WaveFormatText, UnknownTypesEmptyTheBufferForeignAndRecordsFollowTheType) {
    for (DWORD type : {1u, 20u, 130u}) {
        WCHAR buf[16] = {'X', 'Y', 0};
        EXPECT_EQ(QzAudio_GetSampleTypeText(QZSAMPLETYPE(type), buf, 16), buf) << type;
        EXPECT_EQ(buf[0], 0) << type;
        buf[0] = 'X';
        EXPECT_EQ(QzAudio_GetBitDepthText(QZSAMPLETYPE(type), buf, 16, TRUE), buf) << type;
        EXPECT_EQ(buf[0], 0) << type;
    }
    WCHAR buf[32] = {'X', 0};
    EXPECT_EQ(narrow(QzAudio_GetBitDepthText(QZST_NONE, buf, 32, TRUE)), "Other Format");
    buf[0] = 'X';
    EXPECT_EQ(QzAudio_GetBitDepthText(QZST_NONE, buf, 32, FALSE), buf);
    EXPECT_EQ(buf[0], 0);

    // The record forms go by the record's sample type.
    _qzwaveformat rec;
    rec.Init(44100, QZST_FLOAT64, 2, 0, 32);
    EXPECT_EQ(narrow(QzAudio_GetSampleTypeText(&rec, buf, 32)), "64 Bit (IEEE Float)");
    EXPECT_EQ(narrow(QzAudio_GetBitDepthText(&rec, buf, 32, FALSE)), "64 Bit");
    rec.InitAsWfx(0x55, 44100, 0, 2, 0, 32);
    EXPECT_EQ(narrow(QzAudio_GetSampleTypeText(&rec, buf, 32)), "Other Format");
    buf[0] = 'X';
    EXPECT_EQ(QzAudio_GetSampleTypeText(static_cast<const _qzwaveformat*>(nullptr), buf, 32), buf);
    EXPECT_EQ(buf[0], 0);
}

}  // namespace
