// A lock for process-wide state that must work before any constructor has
// run and after every destructor (the message-box handler, the application
// name, the registered error tables): it is constant-initialised on every
// platform. A namespace-scope std::mutex is not on MinGW, whose mutex is
// set up by a constructor that may run after the library's attach code has
// already used it. Held only for short copies.
#ifndef QZ_BASE_SPIN_LOCK_H
#define QZ_BASE_SPIN_LOCK_H

#include <atomic>
#include <thread>

namespace qz::base {

class SpinLock {
public:
    constexpr SpinLock() = default;
    void lock() {
        while (flag_.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
    }
    void unlock() { flag_.clear(std::memory_order_release); }

private:
    std::atomic_flag flag_;
};

}  // namespace qz::base

#endif
