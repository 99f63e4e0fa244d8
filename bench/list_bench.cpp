// tQZLIST against the standard library.
//
// Appending: 100,000 / 1,000,000 / 10,000,000 four-byte items one at a time
// to a value list with the default grow step, against
// std::vector<uint32_t>::push_back. The time per item should stay flat as
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

void BM_ListAppend(benchmark::State& state) {
    const auto n = uint32_t(state.range(0));
    for (auto _ : state) {
        tQZLIST* list = nullptr;
        if (QzList_CreateExZ(&list, 4, 0, 0, QZLIST_VALUES, 0, 0, 0) < 0) {
            state.SkipWithError("create failed");
            break;
        }
        for (uint32_t i = 0; i < n; ++i) QzList_InsertList(list, -1, &i, 1);
        benchmark::DoNotOptimize(list->items);
        QzList_Destroy(list);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
}

void BM_VectorPushBack(benchmark::State& state) {
    const auto n = uint32_t(state.range(0));
    for (auto _ : state) {
        std::vector<uint32_t> values;
        for (uint32_t i = 0; i < n; ++i) values.push_back(i);
        benchmark::DoNotOptimize(values.data());
    }
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

BENCHMARK(BM_ListAppend)->Arg(100000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VectorPushBack)
    ->Arg(100000)
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListHeapSort)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdHeapSort)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // Keep freed memory in the process, so that neither side pays for fresh
    // pages on every iteration and the figures compare the work done, not
    // the allocator's state left behind by the benchmark before.
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
