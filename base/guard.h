/*
 * guard.h - the one place where C++ exceptions stop.
 *
 * Hosts call the library through a C interface with the stdcall
 * convention; an exception that reached them would unwind through frames
 * that know nothing of it. Every exported function whose body can throw
 * (it allocates through the standard library, or takes a std::mutex) runs
 * that body through guarded(), which turns an allocation failure into the
 * function's out-of-memory answer and anything else into its failure
 * answer. Internal code therefore need not catch std::bad_alloc itself,
 * unless it must undo something before the failure is reported.
 */
#ifndef QZ_BASE_GUARD_H
#define QZ_BASE_GUARD_H

#include <new>
#include <utility>

#include "qz/qzresult.h"

namespace qz::base {

/* Runs `body`; an exception becomes `out_of_memory` (std::bad_alloc) or `failure`. */
template <class Result, class Body>
Result guarded(Result out_of_memory, Result failure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        return out_of_memory;
    } catch (...) {
        return failure;
    }
}

/* The same for functions that report a result code. */
template <class Body>
HRESULT guarded(Body&& body) noexcept {
    return guarded<HRESULT>(E_OUTOFMEMORY, E_UNEXPECTED, std::forward<Body>(body));
}

/* The same for functions with no result: an exception is dropped. */
template <class Body>
void guarded_void(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
    }
}

}  // namespace qz::base

#endif
