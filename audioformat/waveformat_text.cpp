// waveformat_text.cpp - the localised names of the sample types.
#include "base/format.h"
#include "qz/qzlang.h"
#include "qz/qzwaveformat.h"

namespace {

// Language texts, English first. "%d" receives the sample width.
constexpr QzLocalText<1> kTextBits = {QZLANG_TEXT_MARKER, 1, {QZTEXT("%d Bit")}};
constexpr QzLocalText<1> kTextFloat = {QZLANG_TEXT_MARKER, 1, {QZTEXT("%d Bit (IEEE Float)")}};
constexpr QzLocalText<1> kTextUnpacked = {QZLANG_TEXT_MARKER, 1, {QZTEXT("24 Bit (Unpacked)")}};
constexpr QzLocalText<1> kTextSigned = {QZLANG_TEXT_MARKER, 1, {QZTEXT("8 Bit (Signed)")}};
constexpr QzLocalText<1> kTextMac = {QZLANG_TEXT_MARKER, 1, {QZTEXT("%d Bit (MAC)")}};
constexpr QzLocalText<1> kTextRa = {QZLANG_TEXT_MARKER, 1, {QZTEXT("%d Bit (RA)")}};
constexpr QzLocalText<1> kText24Bit = {QZLANG_TEXT_MARKER, 1, {QZTEXT("24 Bit")}};
constexpr QzLocalText<1> kText8Bit = {QZLANG_TEXT_MARKER, 1, {QZTEXT("8 Bit")}};
// Foreign formats: the record knows the tag but has no sample type.
constexpr QzLocalText<1> kTextOther = {QZLANG_TEXT_MARKER, 1, {QZTEXT("Other Format")}};

struct TypeTexts {
    QZSAMPLETYPE type;
    int width;  // what "%d" shows; the 0xFE03 types have it only here
    const QzLocalText<1>* sample_type;
    const QzLocalText<1>* bit_depth;
};

constexpr TypeTexts kTypeTexts[] = {
    {QZST_NONE, 0, &kTextOther, &kTextOther},    {QZST_PCM8, 8, &kTextBits, &kTextBits},
    {QZST_PCM16, 16, &kTextBits, &kTextBits},    {QZST_PCM24, 24, &kTextBits, &kTextBits},
    {QZST_PCM32, 32, &kTextBits, &kTextBits},    {QZST_FLOAT32, 32, &kTextFloat, &kTextBits},
    {QZST_FLOAT64, 64, &kTextFloat, &kTextBits}, {QZST_PCM24IN32, 24, &kTextUnpacked, &kText24Bit},
    {QZST_PCM8S, 8, &kTextSigned, &kText8Bit},   {QZST_PCM16BE, 16, &kTextMac, &kTextBits},
    {QZST_PCM24BE, 24, &kTextMac, &kTextBits},   {QZST_PCM32BE, 32, &kTextMac, &kTextBits},
    {QZST_RA16, 16, &kTextRa, &kTextBits},       {QZST_RA24, 24, &kTextRa, &kTextBits},
};

const TypeTexts* find_texts(DWORD type) {
    for (const TypeTexts& t : kTypeTexts)
        if (t.type == type) return &t;
    return nullptr;
}

// Texts without a width are handed out as the language's own string; the
// others are formatted into the caller's buffer.
const WCHAR* resolve(const QzLocalText<1>* text, int width, WCHAR* buf, UINT cch) {
    const WCHAR* own = QzGetString(nullptr, text->record());
    if (!own) return buf;
    const bool fixed = text == &kTextUnpacked || text == &kTextSigned || text == &kText24Bit ||
                       text == &kText8Bit || text == &kTextOther;
    if (fixed) return own;
    if (buf && cch) qz::base::format(buf, cch, own, width);
    return buf;
}

void empty(WCHAR* buf, UINT cch) {
    if (buf && cch) buf[0] = 0;
}

}  // namespace

QZ_API const WCHAR* QZ_STDCALL QzAudio_GetSampleTypeText(QZSAMPLETYPE type, WCHAR* buf, UINT cch) {
    empty(buf, cch);
    const TypeTexts* texts = find_texts(type);
    if (!texts) return buf;
    return resolve(texts->sample_type, texts->width, buf, cch);
}

QZ_API const WCHAR* QZ_STDCALL QzAudio_GetSampleTypeText(const _qzwaveformat* rec, WCHAR* buf,
                                                         UINT cch) {
    if (!rec) {
        empty(buf, cch);
        return buf;
    }
    return QzAudio_GetSampleTypeText(QZSAMPLETYPE(rec->sampleType), buf, cch);
}

QZ_API const WCHAR* QZ_STDCALL QzAudio_GetBitDepthText(QZSAMPLETYPE type, WCHAR* buf, UINT cch,
                                                       BOOL placeholder) {
    empty(buf, cch);
    const TypeTexts* texts = find_texts(type);
    if (!texts || (type == QZST_NONE && !placeholder)) return buf;
    return resolve(texts->bit_depth, texts->width, buf, cch);
}

QZ_API const WCHAR* QZ_STDCALL QzAudio_GetBitDepthText(const _qzwaveformat* rec, WCHAR* buf,
                                                       UINT cch, BOOL placeholder) {
    if (!rec) {
        empty(buf, cch);
        return buf;
    }
    return QzAudio_GetBitDepthText(QZSAMPLETYPE(rec->sampleType), buf, cch, placeholder);
}
