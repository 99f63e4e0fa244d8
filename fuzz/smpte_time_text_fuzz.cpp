// Fuzzes the nano-time displays with any time, format, rate, tempo (NaN and
// infinities included) and buffer size, and the format texts with any
// UTF-16 text. Layout: time (8 bytes), format, rate (4 each), tempo
// (8 + 4 * 3), count (1), then the format text as UTF-16 units.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qz/qzsmpte.h"

namespace {

constexpr size_t kHeader = 8 + 4 + 4 + 8 + 12 + 1;
constexpr WCHAR kSentinel = 0xBEEF;
constexpr size_t kBuffer = 64;

template <class T>
T take(const uint8_t*& p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    p += sizeof value;
    return value;
}

// The text ends in a zero within the count, matches the length returned,
// and nothing past the count is touched.
void check(const WCHAR* text, UINT count, UINT length) {
    if (count == 0) {
        if (length != 0 || text[0] != kSentinel) std::abort();
    } else {
        if (length >= count || length >= QZ_NANOTIME_TEXT_MAX || text[length] != 0) std::abort();
        for (UINT i = 0; i < length; ++i)
            if (text[i] == 0) std::abort();
    }
    for (size_t i = count; i < kBuffer; ++i)
        if (text[i] != kSentinel) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHeader) return 0;
    const uint8_t* p = data;
    const LONGLONG t = take<LONGLONG>(p);
    const DWORD format = take<DWORD>(p) % 8;
    const DWORD rate = take<DWORD>(p);
    _qztempo tempo = {};
    tempo.beats_per_minute = take<double>(p);
    tempo.beats_per_measure = take<DWORD>(p);
    tempo.beat_unit = take<DWORD>(p);
    tempo.ticks_per_beat = take<DWORD>(p);
    const UINT count = *p++ % (QZ_NANOTIME_TEXT_MAX + 2);
    std::vector<WCHAR> name_text;
    for (; p + 1 < data + size; p += 2) name_text.push_back(WCHAR(p[0] | (p[1] << 8)));
    name_text.push_back(0);

    WCHAR text[kBuffer];
    for (WCHAR& c : text) c = kSentinel;
    check(text, count, QzNanoTimeToTextExN(t, format, rate, &tempo, text, count));
    for (WCHAR& c : text) c = kSentinel;
    check(text, count, QzNanoTimeToTextFormatN(t, name_text.data(), text, count));
    for (WCHAR& c : text) c = kSentinel;
    check(text, QZ_NANOTIME_TEXT_MAX, QzNanoTimeToTextEx(t, format, rate, &tempo, text));

    _qzmbt mbt;
    QzNanoTimeToMeasures(t, &tempo, &mbt);
    if (mbt.beat > 98 || mbt.tick > 9998) std::abort();
    return 0;
}
