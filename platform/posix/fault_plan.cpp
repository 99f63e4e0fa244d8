// Fault injection for the platform layer's tests.
#include "platform/posix/fault_plan.h"

#include "platform/posix/win32_internal.h"

namespace qz::testing {

namespace {

std::atomic<FaultPlan*> g_active_plan{nullptr};

DWORD usual_error(FaultOp op) {
    switch (op) {
        case FaultOp::Read:
            return ERROR_READ_FAULT;
        case FaultOp::Write:
            return ERROR_DISK_FULL;
        case FaultOp::Seek:
            return ERROR_SEEK;
        case FaultOp::Truncate:
            return ERROR_DISK_FULL;
        case FaultOp::Alloc:
            return ERROR_NOT_ENOUGH_MEMORY;
        case FaultOp::Open:
        case FaultOp::Rename:
            return ERROR_ACCESS_DENIED;
        case FaultOp::kCount:
            break;
    }
    return ERROR_GEN_FAILURE;
}

}  // namespace

FaultPlan::FaultPlan() {
    g_active_plan.store(this);
}

FaultPlan::~FaultPlan() {
    FaultPlan* self = this;
    g_active_plan.compare_exchange_strong(self, nullptr);
}

FaultPlan& FaultPlan::fail(FaultOp op, unsigned nth, unsigned times, DWORD error) {
    Rule& rule = rules_[static_cast<int>(op)];
    rule.first = rule.seen.load() + (nth == 0 ? 1 : nth);
    rule.times = times;
    rule.error = error ? error : usual_error(op);
    return *this;
}

unsigned FaultPlan::calls(FaultOp op) const {
    return rules_[static_cast<int>(op)].seen.load();
}

unsigned FaultPlan::failures(FaultOp op) const {
    return rules_[static_cast<int>(op)].failed.load();
}

bool FaultPlan::should_fail(FaultOp op, DWORD* error) {
    Rule& rule = rules_[static_cast<int>(op)];
    const unsigned n = ++rule.seen;
    if (rule.first == 0 || n < rule.first) return false;
    if (rule.times != 0 && n >= rule.first + rule.times) return false;
    ++rule.failed;
    if (error) *error = rule.error;
    return true;
}

}  // namespace qz::testing

namespace qz::posix {

bool inject_fault(qz::testing::FaultOp op, DWORD* error) {
    qz::testing::FaultPlan* plan = qz::testing::g_active_plan.load();
    return plan != nullptr && plan->should_fail(op, error);
}

}  // namespace qz::posix
