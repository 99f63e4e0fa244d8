// The fault plan of the POSIX platform layer (platform/posix/fault_plan.h),
// where there is one. On Windows the library calls the system directly and
// nothing stands between to make a call fail, so the cases that need the
// plan are compiled only where QZ_TEST_FAULTS is 1 (the POSIX builds).
#ifndef QZ_TESTS_SUPPORT_FAULTS_H
#define QZ_TESTS_SUPPORT_FAULTS_H

#if QZ_TEST_FAULTS
#include "platform/posix/fault_plan.h"
#else
namespace qz::testing {
// The operations alone, so that case tables can name them; the rows that
// need a failure are passed over on Windows.
enum class FaultOp { Read, Write, Seek, Truncate, Alloc, Open, Rename, kCount };
}  // namespace qz::testing
#endif

#endif
