/*
 * fault_plan.h - fault injection for the POSIX platform layer.
 *
 * A test creates a FaultPlan and tells it which operations to fail: the
 * Nth read, write, seek, truncation, allocation, file opening (CreateFileW)
 * or change of a file's name (DeleteFileW, MoveFileW) counted from the
 * moment the plan was made (1 is the next one), optionally for several
 * calls in a row. A failed operation does nothing, sets the given Win32
 * error and returns the operation's Win32 failure value. Only one plan is
 * active at a time; the destructor removes it.
 *
 *     qz::testing::FaultPlan plan;
 *     plan.fail(qz::testing::FaultOp::Write, 2);   // the second write fails
 */
#ifndef QZ_PLATFORM_POSIX_FAULT_PLAN_H
#define QZ_PLATFORM_POSIX_FAULT_PLAN_H

#include <atomic>

#include "qz/qzdefs.h"

namespace qz::testing {

enum class FaultOp { Read, Write, Seek, Truncate, Alloc, Open, Rename, kCount };

class FaultPlan {
public:
    FaultPlan();
    ~FaultPlan();
    FaultPlan(const FaultPlan&) = delete;
    FaultPlan& operator=(const FaultPlan&) = delete;

    /*
     * Fails operations nth .. nth + times - 1 of `op` (times 0: every one
     * from nth on) with `error` (0: the operation's usual error, such as
     * ERROR_READ_FAULT, ERROR_DISK_FULL or ERROR_NOT_ENOUGH_MEMORY).
     */
    FaultPlan& fail(FaultOp op, unsigned nth, unsigned times = 1, DWORD error = 0);
    /* Operations of `op` seen since the plan was made. */
    unsigned calls(FaultOp op) const;
    /* Operations of `op` that the plan made fail. */
    unsigned failures(FaultOp op) const;

    /* Called by the platform layer: true (and *error set) when this call fails. */
    bool should_fail(FaultOp op, DWORD* error);

private:
    struct Rule {
        std::atomic<unsigned> seen{0};
        std::atomic<unsigned> failed{0};
        unsigned first = 0; /* 0: no rule */
        unsigned times = 0;
        DWORD error = 0;
    };
    Rule rules_[static_cast<int>(FaultOp::kCount)];
};

}  // namespace qz::testing

namespace qz::posix {
/* True when the active fault plan fails this operation; sets *error. */
bool inject_fault(qz::testing::FaultOp op, DWORD* error);
}  // namespace qz::posix

#endif
