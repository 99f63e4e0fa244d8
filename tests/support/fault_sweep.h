// The fault sweep: every failure of the platform layer must come back as
// the family's code, and leave the files as the family promises.
//
// A step runs once without faults to count the calls of each kind it
// makes, then again from a fresh start once per call, with just that call
// failing; the check then looks at the result and at what the files hold.
#ifndef QZ_TESTS_SUPPORT_FAULT_SWEEP_H
#define QZ_TESTS_SUPPORT_FAULT_SWEEP_H

#include <functional>
#include <initializer_list>

#include "platform/posix/fault_plan.h"
#include "tests/support/riff_files.h"

namespace qz::testing {

// `prepare` sets up a fresh start, outside the fault plan, and returns the
// step to run under it; `check` sees the kind of the failed call and the
// step's result. The clean run must succeed. Returns the runs with a failure.
using FaultStep = std::function<HRESULT()>;
unsigned sweep_calls(const std::function<FaultStep()>& prepare,
                     const std::function<void(FaultOp, HRESULT)>& check);

// The chunk-file cases: a step on a handle to a copy of `file`, at `start`.
using FaultCheck = std::function<void(const TempFile&, const Bytes& original, FaultOp)>;

struct FaultCase {
    const char* name;
    Bytes file;
    uint64_t start;
    std::function<HRESULT(HANDLE)> run;
    // One letter per kind (read, write, seek, truncate, alloc; the kinds
    // past the letters make no calls) for the codes allowed when it fails:
    // R read, W write, B either, L either or S_FALSE, H read or "no RIFF
    // header", C either or "corrupt or unknown", M out of memory, - no such
    // calls at all; P read, or S_OK when
    // the first one fails (a search takes that for a pipe's answer and reads
    // header by header).
    const char* codes;
    FaultCheck check;
};

void sweep(const FaultCase& c);

// Runs `write` on an empty file once per row, with write number `nth`
// failing; the result and the bytes that reached the file must be the row's.
struct FailingWrite {
    unsigned nth;
    HRESULT result;
    Bytes contents;
};
void sweep_writes(const std::function<HRESULT(HANDLE)>& write,
                  std::initializer_list<FailingWrite> rows);

// Checks for FaultCase::check.
void unchanged(const TempFile& f, const Bytes& original, FaultOp);
void unchanged_unless_seek(const TempFile& f, const Bytes& original, FaultOp op);
FaultCheck nothing_past(size_t length);

}  // namespace qz::testing

#endif
