// The kernel section of `qzk demo`: start-up, the version agreement and a
// list being built, sorted and searched.
#include <cstdio>
#include <cstring>

#include "tools/qzk/qzk.h"

namespace qzk {

namespace {

int QZ_STDCALL compare_words(LONG_PTR, const void* a, const void* b) {
    DWORD x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return x < y ? -1 : (x > y ? 1 : 0);
}

void print_list(const char* label, const tQZLIST* list) {
    std::printf("%-8s", label);
    for (LONG i = 0; i < list->count; ++i)
        std::printf(" %u", unsigned(*static_cast<const DWORD*>(QZLIST_ITEMADDR(list, i))));
    std::printf("\n");
}

const char* feature_names(DWORD features, char* out, size_t size) {
    static const struct {
        DWORD bit;
        const char* name;
    } kNames[] = {
        {QZCPU_MMX, "mmx"},           {QZCPU_SSE, "sse"},       {QZCPU_SSE2, "sse2"},
        {QZCPU_SSE3, "sse3"},         {QZCPU_SSSE3, "ssse3"},   {QZCPU_SSE41, "sse4.1"},
        {QZCPU_SSE42, "sse4.2"},      {QZCPU_AVX, "avx"},       {QZCPU_AVX2, "avx2"},
        {QZCPU_FMA3, "fma"},          {QZCPU_F16C, "f16c"},     {QZCPU_AVX512F, "avx512f"},
        {QZCPU_AVX512BW, "avx512bw"}, {QZCPU_POPCNT, "popcnt"}, {QZCPU_CMOV, "cmov"},
        {QZCPU_3DNOW, "3dnow"}};
    out[0] = 0;
    for (const auto& entry : kNames) {
        if (!(features & entry.bit)) continue;
        if (out[0]) std::strncat(out, " ", size - std::strlen(out) - 1);
        std::strncat(out, entry.name, size - std::strlen(out) - 1);
    }
    return out[0] ? out : "none";
}

}  // namespace

int demo_kernel() {
    // The library initialised itself when it was loaded; a host repeats the
    // early initialisation with its own flags and agrees the version.
    if (!QzKernel_EarlyInitialize(QzKernel_GetAppKernel(), QZKERNEL_INIT_HOSTED)) {
        std::printf("early initialisation failed\n");
        return 1;
    }
    const HRESULT agreed =
        QzKernel_CheckVersion(nullptr, "qzk", QZKERNEL_VERSION, QZKERNEL_AGREEMENT, 0, FALSE);
    std::printf("kernel version word: 0x%08X, agreement %d: %s\n", unsigned(QzKernel_GetVersion()),
                QZKERNEL_AGREEMENT, SUCCEEDED(agreed) ? "accepted" : "refused");
    const HRESULT newer =
        QzKernel_CheckVersion(nullptr, "qzk", QZKERNEL_VERSION + 1, QZKERNEL_AGREEMENT, 0, TRUE);
    std::printf("a client built for 0x%08X: %s (quietly)\n", unsigned(QZKERNEL_VERSION + 1),
                hex_code(newer).c_str());
    char names[160];
    std::printf("processor features: %s\n",
                feature_names(QzKernel_GetProcessorFeatures(), names, sizeof(names)));

    tQZLIST* list = nullptr;
    HRESULT hr = QzList_CreateExZ(&list, sizeof(DWORD), 0, 0, QZLIST_VALUES, 0, 0, 0);
    if (FAILED(hr)) return fail("demo", hr);
    DWORD seed = 2024;
    for (int i = 0; i < 12; ++i) {
        seed = seed * 1103515245u + 12345u;
        const DWORD value = (seed >> 16) % 100;
        if (FAILED(hr = QzList_InsertList(list, -1, &value, 1))) break;
    }
    if (SUCCEEDED(hr)) {
        print_list("built:", list);
        hr = QzList_HeapSort(list, 0, compare_words);
    }
    if (SUCCEEDED(hr)) {
        print_list("sorted:", list);
        const DWORD present = *static_cast<const DWORD*>(QZLIST_ITEMADDR(list, 5));
        const DWORD absent = 100;
        std::printf("search %u: index %d; %u would go at index %d of %d\n", unsigned(present),
                    QzList_FindSortedItemRange(list, &present, 0, -1, compare_words),
                    unsigned(absent),
                    QzList_FindSortedInsertIndexRange(list, &absent, 0, -1, compare_words),
                    int(list->count));
        std::printf("list memory: %ld bytes in %d slots\n", long(QzList_AllocSize(list, -1)),
                    int(list->allocated));
    }
    QzList_Destroy(list);
    return SUCCEEDED(hr) ? 0 : fail("demo", hr);
}

}  // namespace qzk
