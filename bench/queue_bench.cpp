// The intrusive queue against a std::mutex + std::condition_variable +
// std::deque queue.
//
// 10,000,000 records go from producer threads to consumer threads, with one
// producer and one consumer, and with two of each. Both queues hand over
// the same preallocated records: the intrusive queue links them, the std
// queue moves pointers to them; consumers read each record's value, and the
// sum of the values is checked afterwards. Each consumer stops at an end
// marker, one per consumer, queued after the producers finished. The
// figure to compare is items_per_second; cpu_ns_per_item, the CPU time of
// all threads per record, stays comparable when other work shares the
// machine and the rates drop.
#include <benchmark/benchmark.h>

#include <time.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "qz/qzqueue.h"
#include "platform/win32api.h"

namespace {

constexpr uint64_t kRecords = 10000000;
constexpr uint64_t kEndMarker = ~uint64_t(0);

struct Record {
    tQZQELM links;
    uint64_t value;
};

std::vector<Record>& records() {
    static std::vector<Record> all = [] {
        std::vector<Record> r(kRecords);
        for (uint64_t i = 0; i < kRecords; ++i) r[i].value = i;
        return r;
    }();
    return all;
}

// CPU time of every thread of the process, so that a machine busy with
// other work shows up as a lower rate but the same CPU time per record.
double process_cpu_seconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

constexpr uint64_t expected_sum() {
    return kRecords * (kRecords - 1) / 2;
}

class IntrusiveQueue {
public:
    IntrusiveQueue() { QzQueueInitialize(&head_); }
    ~IntrusiveQueue() { QzQueueDelete(&head_); }
    void push(Record* r) { QzQueueInsert(&head_, &r->links); }
    Record* pop() {
        for (;;) {
            if (tQZQELM* e = QzQueueRemove(&head_, INFINITE)) return reinterpret_cast<Record*>(e);
        }
    }

private:
    tQZQHEAD head_{};
};

class StdQueue {
public:
    void push(Record* r) {
        {
            std::lock_guard<std::mutex> guard(lock_);
            records_.push_back(r);
        }
        not_empty_.notify_one();
    }
    Record* pop() {
        std::unique_lock<std::mutex> guard(lock_);
        not_empty_.wait(guard, [this] { return !records_.empty(); });
        Record* r = records_.front();
        records_.pop_front();
        return r;
    }

private:
    std::mutex lock_;
    std::condition_variable not_empty_;
    std::deque<Record*> records_;
};

template <class Queue>
void BM_Transfer(benchmark::State& state) {
    const auto producers = uint64_t(state.range(0));
    const auto consumers = uint64_t(state.range(1));
    std::vector<Record>& all = records();
    std::vector<Record> end_markers(consumers);
    for (Record& r : end_markers) r.value = kEndMarker;

    double cpu_seconds = 0;
    for (auto _ : state) {
        const double cpu_start = process_cpu_seconds();
        Queue queue;
        std::vector<uint64_t> sums(consumers);
        std::vector<std::thread> threads;
        for (uint64_t c = 0; c < consumers; ++c) {
            threads.emplace_back([&, c] {
                uint64_t sum = 0;
                for (Record* r = queue.pop(); r->value != kEndMarker; r = queue.pop()) {
                    sum += r->value;
                }
                sums[c] = sum;
            });
        }
        std::vector<std::thread> producing;
        for (uint64_t p = 0; p < producers; ++p) {
            producing.emplace_back([&, p] {
                const uint64_t end = kRecords * (p + 1) / producers;
                for (uint64_t i = kRecords * p / producers; i < end; ++i) queue.push(&all[i]);
            });
        }
        for (auto& t : producing) t.join();
        for (Record& r : end_markers) queue.push(&r);
        for (auto& t : threads) t.join();
        cpu_seconds += process_cpu_seconds() - cpu_start;

        uint64_t total = 0;
        for (uint64_t s : sums) total += s;
        if (total != expected_sum()) {
            state.SkipWithError("records were lost or duplicated");
            break;
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kRecords));
    state.counters["cpu_ns_per_item"] = cpu_seconds * 1e9 / double(state.iterations() * kRecords);
}

BENCHMARK_TEMPLATE(BM_Transfer, IntrusiveQueue)
    ->Args({1, 1})
    ->Args({2, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Transfer, StdQueue)
    ->Args({1, 1})
    ->Args({2, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
