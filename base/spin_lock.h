// A lock for the kernel's few process-wide words (the message-box handler,
// the application name) that must work before any constructor has run and
// after every destructor: constant-initialised on every platform, which
// std::mutex is not on MinGW. Held only for a copy of a few hundred bytes.
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
