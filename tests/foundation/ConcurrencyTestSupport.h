#pragma once

// Helpers for the foundation tests: a deadline, a counter to wait on and a meter of how much runs
// at once; tests/support/Barrier.h releases threads at once, tests/support/WaitFor.h polls a condition.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace foundation::testing {

// Generous: a deadline only exists so that a fault fails the test instead of hanging it.
inline std::chrono::steady_clock::time_point deadline(std::chrono::milliseconds in = std::chrono::seconds(20)) {
    return std::chrono::steady_clock::now() + in;
}

// A counter others can wait on; as a gate, open() is its first increment.
class Counter {
public:
    // Notifies with the lock held: a waiter may destroy the counter as soon as it returns.
    void increment() {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    void open() { increment(); }
    bool wait() { return waitFor(1); }
    bool waitFor(std::size_t n, std::chrono::steady_clock::time_point until = deadline()) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_until(lock, until, [&] { return count_ >= n; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t count_ = 0;
};
using Gate = Counter;

// Tracks the most work items running at once: enter() and leave() around each.
struct ConcurrencyMeter {
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    void enter() {
        const int now = ++running;
        for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {
        }
        std::this_thread::yield();
    }
    void leave() { --running; }
};

}  // namespace foundation::testing
