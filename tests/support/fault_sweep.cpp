#include "tests/support/fault_sweep.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>

namespace qz::testing {

namespace {

using Codes = std::set<HRESULT>;

Codes allowed(const FaultCase& c, FaultOp op, unsigned nth) {
    if (size_t(op) >= std::strlen(c.codes)) return {};
    // A search takes a first position query failing with ERROR_SEEK for a
    // pipe's answer and reads on header by header.
    if (c.codes[int(op)] == 'P')
        return nth == 1 ? Codes{QZE_FILE_READ, S_OK} : Codes{QZE_FILE_READ};
    static const std::map<char, Codes> by_letter = {
        {'R', {QZE_FILE_READ}},
        {'W', {QZE_FILE_WRITE}},
        {'B', {QZE_FILE_READ, QZE_FILE_WRITE}},
        {'L', {QZE_FILE_READ, QZE_FILE_WRITE, S_FALSE}},
        {'H', {QZE_FILE_READ, QZE_NO_RIFF_HEADER}},
        {'C', {QZE_FILE_READ, QZE_FILE_WRITE, QZE_CORRUPT_OR_UNKNOWN}},
        {'M', {E_OUTOFMEMORY}},
        {'-', {}}};
    return by_letter.at(c.codes[int(op)]);
}

const char* const kOpNames[] = {"read", "write", "seek", "truncate", "alloc", "open", "rename"};

}  // namespace

void unchanged(const TempFile& f, const Bytes& original, FaultOp) {
    EXPECT_EQ(f.contents(), original);
}

void unchanged_unless_seek(const TempFile& f, const Bytes& original, FaultOp op) {
    EXPECT_TRUE(op == FaultOp::Seek || f.contents() == original);
}

FaultCheck nothing_past(size_t length) {
    return [length](const TempFile& f, const Bytes&, FaultOp) {
        EXPECT_LE(f.contents().size(), length);
    };
}

unsigned sweep_calls(const std::function<FaultStep()>& prepare,
                     const std::function<void(FaultOp, HRESULT)>& check) {
    unsigned counted[int(FaultOp::kCount)] = {}, runs = 0;
    {
        const FaultStep step = prepare();
        FaultPlan count;
        EXPECT_TRUE(SUCCEEDED(step())) << "the clean run must succeed";
        for (int op = 0; op < int(FaultOp::kCount); ++op) counted[op] = count.calls(FaultOp(op));
    }
    for (int op = 0; op < int(FaultOp::kCount); ++op) {
        for (unsigned n = 1; n <= counted[op]; ++n, ++runs) {
            SCOPED_TRACE(std::string(kOpNames[op]) + " #" + std::to_string(n) + " failing");
            const FaultStep step = prepare();
            HRESULT hr;
            {
                FaultPlan plan;
                plan.fail(FaultOp(op), n);
                hr = step();
                EXPECT_EQ(plan.failures(FaultOp(op)), 1u);
            }
            check(FaultOp(op), hr);
        }
    }
    return runs;
}

void sweep(const FaultCase& c) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<TempFile> f;
    unsigned nth[int(FaultOp::kCount)] = {};  // runs come in order of kind and call
    sweep_calls(
        [&]() -> FaultStep {
            f = std::make_unique<TempFile>(c.file);
            f->seek(c.start);
            return [&] { return c.run(f->handle()); };
        },
        [&](FaultOp op, HRESULT hr) {
            EXPECT_TRUE(allowed(c, op, ++nth[int(op)]).count(hr))
                << "gave 0x" << std::hex << uint32_t(hr);
            if (c.check) c.check(*f, c.file, op);
        });
}

void sweep_writes(const std::function<HRESULT(HANDLE)>& write,
                  std::initializer_list<FailingWrite> rows) {
    for (const FailingWrite& row : rows) {
        TempFile f({});
        FaultPlan plan;
        plan.fail(FaultOp::Write, row.nth);
        EXPECT_EQ(write(f.handle()), row.result) << row.nth;
        EXPECT_EQ(f.contents(), row.contents) << row.nth;
    }
}

}  // namespace qz::testing
