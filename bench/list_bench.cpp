// tQZLIST against the standard library.
//
// Appending: 100,000 / 1,000,000 / 10,000,000 items of 4 and 16 bytes one
// at a time to a value list with the default grow step, against
// std::vector::push_back; bytes_held is the memory under each at the end. The time per item should stay flat as
// the count grows (the slot block grows in whole grow steps, the memory
// under it geometrically).
//
// Sorting: QzList_HeapSort of 1,000,000 items against std::make_heap +
// std::sort_heap, both calling the same comparison through a pointer.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "qz/qzlist.h"
#include "qz/win32compat.h"

namespace {

int QZ_STDCALL compare_u32(LONG_PTR, const void* a, const void* b) {
    uint32_t x, y;
    std::memcpy(&x, a, 4);
    std::memcpy(&y, b, 4);
    return x < y ? -1 : (x > y ? 1 : 0);
}

// Read through a variable so neither side can inline the comparison.
QZLISTCOMPARE g_compare = compare_u32;

std::vector<uint32_t> random_values(size_t n) {
    std::mt19937 random(1234);
    std::vector<uint32_t> values(n);
    for (auto& v : values) v = uint32_t(random());
    return values;
}

// An item of `Bytes` bytes whose first word counts up.
template <size_t Bytes>
struct Item {
    uint32_t words[Bytes / 4];
};

template <size_t Bytes>
void BM_ListAppend(benchmark::State& state) {
    const auto n = uint32_t(state.range(0));
    LONG_PTR held = 0;
    for (auto _ : state) {
        tQZLIST* list = nullptr;
        if (QzList_CreateExZ(&list, Bytes, 0, 0, QZLIST_VALUES, 0, 0, 0) < 0) {
            state.SkipWithError("create failed");
            break;
        }
        Item<Bytes> item{};
        for (uint32_t i = 0; i < n; ++i) {
            item.words[0] = i;
            QzList_InsertList(list, -1, &item, 1);
        }
        benchmark::DoNotOptimize(list->items);
        // The block under the slots, which grows to whole powers of two.
        held = LONG_PTR(GlobalSize(list->items));
        QzList_Destroy(list);
    }
    state.counters["bytes_held"] = double(held);
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

template <size_t Bytes>
void BM_VectorPushBack(benchmark::State& state) {
    const auto n = uint32_t(state.range(0));
    size_t held = 0;
    for (auto _ : state) {
        std::vector<Item<Bytes>> values;
        Item<Bytes> item{};
        for (uint32_t i = 0; i < n; ++i) {
            item.words[0] = i;
            values.push_back(item);
        }
        benchmark::DoNotOptimize(values.data());
        held = values.capacity() * Bytes;
    }
    state.counters["bytes_held"] = double(held);
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

void BM_ListHeapSort(benchmark::State& state) {
    const auto input = random_values(size_t(state.range(0)));
    tQZLIST* list = nullptr;
    QzList_CreateExZ(&list, 4, 0, 0, QZLIST_VALUES, 0, 0, 0);
    QzList_ArrayForceItemCount(list, int(input.size()), FALSE);
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(list->items, input.data(), input.size() * 4);
        state.ResumeTiming();
        QzList_HeapSort(list, 0, g_compare);
    }
    if (!std::is_sorted(static_cast<uint32_t*>(list->items),
                        static_cast<uint32_t*>(list->items) + input.size()))
        state.SkipWithError("not sorted");
    QzList_Destroy(list);
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

void BM_StdHeapSort(benchmark::State& state) {
    const auto input = random_values(size_t(state.range(0)));
    std::vector<uint32_t> values(input.size());
    const auto less = [](const uint32_t& a, const uint32_t& b) { return g_compare(0, &a, &b) < 0; };
    for (auto _ : state) {
        state.PauseTiming();
        values = input;
        state.ResumeTiming();
        std::make_heap(values.begin(), values.end(), less);
        std::sort_heap(values.begin(), values.end(), less);
    }
    if (!std::is_sorted(values.begin(), values.end())) state.SkipWithError("not sorted");
    state.SetItemsProcessed(int64_t(state.iterations()) * state.range(0));
}

#define QZ_APPEND_SIZES(bench) \
    BENCHMARK(bench)->Arg(100000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond)
QZ_APPEND_SIZES(BM_ListAppend<4>);
QZ_APPEND_SIZES(BM_VectorPushBack<4>);
QZ_APPEND_SIZES(BM_ListAppend<16>);
QZ_APPEND_SIZES(BM_VectorPushBack<16>);
BENCHMARK(BM_ListHeapSort)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdHeapSort)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // By default freed memory stays in the process, so that neither side
    // pays for fresh pages on every iteration and the figures compare the
    // work done; --fresh_pages measures with the allocator's defaults, where
    // large blocks come from and go back to the system each time.
    bool fresh_pages = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--fresh_pages") == 0) {
            fresh_pages = true;
            for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
            --argc;
            break;
        }
    }
    if (!fresh_pages) {
        mallopt(M_MMAP_THRESHOLD, 1 << 30);
        mallopt(M_TRIM_THRESHOLD, 1 << 30);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
