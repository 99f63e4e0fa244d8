// aiff_*: the 80-bit extended sample rate of "COMM", to an integer and back.
#include <algorithm>

#include "qz/iff.h"

namespace {

constexpr int kExponentBias = 16383;
constexpr WORD kSignBit = 0x8000;
constexpr WORD kIntegerBit = 0x8000;
/* What a negative rate reads as. */
constexpr DWORD kRateOfNegative = 44100;
/* Doubling stops once the value is above this. */
constexpr double kDoublingCeiling = 96000.0;

}  // namespace

/*
 * The mantissa becomes a double in [0, 2) and is doubled once per step of
 * the exponent, up to the ceiling. Whatever the 80 bits hold (an
 * exponent of 0x7FFF for infinity or NaN, a huge exponent, an exponent
 * below the bias, which wraps to 65535 steps), the value stays finite and
 * at most twice the ceiling, so the conversion to an integer is always
 * defined. A value of 0 stays 0 however often it is doubled.
 */
QZ_EXTERN_C QZ_API DWORD QZ_STDCALL aiff_ConvertRate(WORD exponent, const WORD* mantissa) {
    if (exponent & kSignBit) return kRateOfNegative;
    const WORD zeros[4] = {};
    const WORD* w = mantissa ? mantissa : zeros;
    auto steps = WORD((exponent & 0x7FFF) - kExponentBias);
    double m = (((w[3] / 65536.0 + w[2]) / 65536.0 + w[1]) / 65536.0 + (w[0] & 0x7FFF)) / 32768.0;
    if (w[0] & kIntegerBit) m += 1.0;
    if (m == 0.0) return 0;
    for (; steps > 0 && m <= kDoublingCeiling; --steps) m *= 2.0;
    return DWORD(m);
}

QZ_EXTERN_C QZ_API void QZ_STDCALL aiff_CreateRate(DWORD rate, WORD* exponent, WORD* mantissa) {
    double x = rate;
    int halvings = 0;
    for (; x >= 2.0; x /= 2.0) ++halvings;
    WORD words[4] = {};
    if (x >= 1.0) {
        words[0] = kIntegerBit;
        x -= 1.0;
    }
    // 15 fraction bits in the first word, 16 in each of the others.
    x *= 32768.0;
    words[0] = WORD(words[0] | WORD(x));
    for (int i = 1; i < 4; ++i) {
        x = (x - double(WORD(x))) * 65536.0;
        words[i] = WORD(x);
    }
    if (exponent) *exponent = WORD(kExponentBias + halvings);
    if (mantissa) std::copy(words, words + 4, mantissa);
}
