// Fuzzes the typed-timecode parser and runs what it reads through the other
// timecode functions. The first byte picks the rate code (0..7, so unknown
// codes are covered too); the rest is the text as UTF-16 units.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qz/qzsmpte.h"

namespace {

DWORD label_fps(DWORD rate) {
    return rate == 3 ? 25 : (rate == 4 || rate == 6) ? 24 : 30;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const DWORD rate = data[0] % 8;
    std::vector<WCHAR> text;
    for (size_t i = 1; i + 1 < size; i += 2) text.push_back(WCHAR(data[i] | (data[i + 1] << 8)));
    text.push_back(0);

    _smpteval t = {rate, 0, 0, 0, 0, 0};
    const HRESULT hr = QZSMPTE_TextToSMPTE(text.data(), &t);
    if (hr != S_OK && hr != S_FALSE) std::abort();
    if (t.rate != rate || t.reserved != 0) std::abort();
    const bool known = rate >= 1 && rate <= 6;
    // Every field is at most two digits; known rates carry into range.
    if (t.hours > 99 || t.minutes > 99 || t.seconds > 99 || t.frames > 99) std::abort();
    if (known && (t.hours > 23 || t.minutes > 59 || t.seconds > 59 || t.frames >= label_fps(rate)))
        std::abort();

    const DWORD count = QZSMPTE_SMPTEToFrameCount(&t);
    _smpteval u = t;
    QZSMPTE_FrameCountToSMPTE(&u, count);
    if (known && QZSMPTE_SMPTEToFrameCount(&u) != count) std::abort();
    QZSMPTE_NanoToSMPTE(QZSMPTE_SMPTEToNanos(&t), &u);
    if (known && QZSMPTE_SMPTEToFrameCount(&u) != count) std::abort();
    QZSMPTE_IncrementByFrame(&u, 0);
    QZSMPTE_DeccrementByFrame(&u, 0);
    QZSMPTE_AddSMPTE(&u, &t);
    QZSMPTE_SubtractSMPTE(&u, &t);
    QzNanoTimeToHMSF(QzHMSFToNanoTime(&t, 47.5), &u, 47.5);
    return 0;
}
