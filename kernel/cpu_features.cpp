// The processor probe behind the processor-feature word: CPUID feature bits
// of the vector extensions, kept only where the operating system saves the
// registers they use. Every system this library runs on saves the SSE
// state; the AVX families depend on what XGETBV reports.
#include "kernel/frame.h"

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#define QZ_HAVE_CPUID 1
#endif

namespace qz::frame {

#if defined(QZ_HAVE_CPUID)

namespace {

// CPUID leaf 1.
constexpr unsigned kEdxCmov = 1u << 15;
constexpr unsigned kEdxMmx = 1u << 23;
constexpr unsigned kEdxSse = 1u << 25;
constexpr unsigned kEdxSse2 = 1u << 26;
constexpr unsigned kEcxSse3 = 1u << 0;
constexpr unsigned kEcxSsse3 = 1u << 9;
constexpr unsigned kEcxFma = 1u << 12;
constexpr unsigned kEcxSse41 = 1u << 19;
constexpr unsigned kEcxSse42 = 1u << 20;
constexpr unsigned kEcxPopcnt = 1u << 23;
constexpr unsigned kEcxOsxsave = 1u << 27;
constexpr unsigned kEcxAvx = 1u << 28;
constexpr unsigned kEcxF16c = 1u << 29;
// CPUID leaf 7, sub-leaf 0.
constexpr unsigned kEbxAvx2 = 1u << 5;
constexpr unsigned kEbxAvx512f = 1u << 16;
constexpr unsigned kEbxAvx512bw = 1u << 30;
// CPUID leaf 0x80000001.
constexpr unsigned kExtEdx3dnow = 1u << 31;
// XCR0: the register states the operating system saves.
constexpr unsigned long long kXcr0Avx = 0x6;      // SSE and AVX state
constexpr unsigned long long kXcr0Avx512 = 0xE6;  // plus opmask and ZMM state

unsigned long long read_xcr0() {
    unsigned lo = 0, hi = 0;
    // XGETBV with ECX = 0, as bytes so no XSAVE target option is needed.
    __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<unsigned long long>(hi) << 32) | lo;
}

struct Rule {
    const unsigned* reg;
    unsigned bit;
    DWORD feature;
};

}  // namespace

DWORD probe_processor() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
    const unsigned ecx1 = c, edx1 = d;
    unsigned ebx7 = 0;
    if (__get_cpuid_max(0, nullptr) >= 7) {
        __cpuid_count(7, 0, a, b, c, d);
        ebx7 = b;
    }
    unsigned ext_edx = 0;
    if (__get_cpuid(0x80000001u, &a, &b, &c, &d)) ext_edx = d;

    const Rule base_rules[] = {
        {&edx1, kEdxMmx, QZCPU_MMX},       {&edx1, kEdxSse, QZCPU_SSE},
        {&edx1, kEdxSse2, QZCPU_SSE2},     {&edx1, kEdxCmov, QZCPU_CMOV},
        {&ecx1, kEcxSse3, QZCPU_SSE3},     {&ecx1, kEcxSsse3, QZCPU_SSSE3},
        {&ecx1, kEcxSse41, QZCPU_SSE41},   {&ecx1, kEcxSse42, QZCPU_SSE42},
        {&ecx1, kEcxPopcnt, QZCPU_POPCNT}, {&ext_edx, kExtEdx3dnow, QZCPU_3DNOW},
    };
    DWORD features = 0;
    for (const Rule& rule : base_rules)
        if (*rule.reg & rule.bit) features |= rule.feature;

    const unsigned long long xcr0 = (ecx1 & kEcxOsxsave) ? read_xcr0() : 0;
    if ((xcr0 & kXcr0Avx) == kXcr0Avx) {
        const Rule avx_rules[] = {
            {&ecx1, kEcxAvx, QZCPU_AVX},
            {&ecx1, kEcxFma, QZCPU_FMA3},
            {&ecx1, kEcxF16c, QZCPU_F16C},
            {&ebx7, kEbxAvx2, QZCPU_AVX2},
        };
        for (const Rule& rule : avx_rules)
            if (*rule.reg & rule.bit) features |= rule.feature;
    }
    if ((xcr0 & kXcr0Avx512) == kXcr0Avx512) {
        if (ebx7 & kEbxAvx512f) features |= QZCPU_AVX512F;
        if (ebx7 & kEbxAvx512bw) features |= QZCPU_AVX512BW;
    }
    return features;
}

#else

// Other processors have none of the x86 vector extensions.
DWORD probe_processor() {
    return 0;
}

#endif

}  // namespace qz::frame
