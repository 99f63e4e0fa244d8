#include "tests/support/fault_sweep.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace qz::testing {

namespace {

using Codes = std::set<HRESULT>;

Codes allowed(const FaultCase& c, int op, unsigned nth = 0) {
    // A search takes a first position query failing with ERROR_SEEK for a
    // pipe's answer and reads on header by header.
    if (c.codes[op] == 'P') return nth == 1 ? Codes{QZE_FILE_READ, S_OK} : Codes{QZE_FILE_READ};
    static const std::map<char, Codes> by_letter = {{'R', {QZE_FILE_READ}},
                                                    {'W', {QZE_FILE_WRITE}},
                                                    {'B', {QZE_FILE_READ, QZE_FILE_WRITE}},
                                                    {'L', {QZE_FILE_READ, QZE_FILE_WRITE, S_FALSE}},
                                                    {'H', {QZE_FILE_READ, QZE_NO_RIFF_HEADER}},
                                                    {'M', {E_OUTOFMEMORY}},
                                                    {'-', {}}};
    return by_letter.at(c.codes[op]);
}

const char* const kOpNames[] = {"read", "write", "seek", "truncate", "alloc"};

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

void sweep(const FaultCase& c) {
    unsigned counted[int(FaultOp::kCount)] = {};
    {
        TempFile f(c.file);
        f.seek(c.start);
        FaultPlan count;
        ASSERT_TRUE(SUCCEEDED(c.run(f.handle()))) << c.name << ": the clean run must succeed";
        for (int op = 0; op < int(FaultOp::kCount); ++op) counted[op] = count.calls(FaultOp(op));
    }
    for (int op = 0; op < int(FaultOp::kCount); ++op) {
        if (counted[op] && allowed(c, op).empty())
            ADD_FAILURE() << c.name << " makes unexpected " << kOpNames[op] << " calls";
        for (unsigned n = 1; n <= counted[op]; ++n) {
            TempFile f(c.file);
            f.seek(c.start);
            HRESULT hr;
            {
                FaultPlan plan;
                plan.fail(FaultOp(op), n);
                hr = c.run(f.handle());
                EXPECT_EQ(plan.failures(FaultOp(op)), 1u) << c.name << " " << kOpNames[op] << n;
            }
            EXPECT_TRUE(allowed(c, op, n).count(hr)) << c.name << ": " << kOpNames[op] << " #" << n
                                                  << " failing gave 0x" << std::hex << uint32_t(hr);
            if (c.check) c.check(f, c.file, FaultOp(op));
        }
    }
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
