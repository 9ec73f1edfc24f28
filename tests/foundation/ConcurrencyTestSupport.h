#pragma once

// Helpers for the foundation tests: bounded waits, a gate and a barrier.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace foundation::testing {

// Generous: a deadline only exists so that a fault fails the test instead of hanging it.
inline std::chrono::steady_clock::time_point deadline(std::chrono::milliseconds in = std::chrono::seconds(20)) {
    return std::chrono::steady_clock::now() + in;
}

// Closed until open(); wait() blocks while closed.
class Gate {
public:
    // Notifies with the lock held: a waiter may destroy the gate as soon as it returns.
    void open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    bool wait(std::chrono::steady_clock::time_point until = deadline()) {
        std::unique_lock<std::mutex> lock(mutex_);
        return opened_.wait_until(lock, until, [this] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};

// Counts arrivals; arriveAndWait() returns true once `parties` threads have arrived,
// false if the deadline passes first.
class Barrier {
public:
    explicit Barrier(std::size_t parties) : parties_(parties) {}
    bool arriveAndWait(std::chrono::steady_clock::time_point until = deadline()) {
        std::unique_lock<std::mutex> lock(mutex_);
        ++arrived_;
        arrival_.notify_all();  // for waitForArrivals as well as the other parties
        return arrival_.wait_until(lock, until, [this] { return arrived_ >= parties_; });
    }
    // Waits until `n` parties have arrived, without arriving.
    bool waitForArrivals(std::size_t n, std::chrono::steady_clock::time_point until = deadline()) {
        std::unique_lock<std::mutex> lock(mutex_);
        return arrival_.wait_until(lock, until, [&] { return arrived_ >= n; });
    }

private:
    std::mutex mutex_;
    std::condition_variable arrival_;
    const std::size_t parties_;
    std::size_t arrived_ = 0;
};

// A counter others can wait on.
class Counter {
public:
    // Notifies with the lock held: a waiter may destroy the counter as soon as it returns.
    void increment() {
        std::lock_guard<std::mutex> lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    std::size_t value() {
        std::lock_guard<std::mutex> lock(mutex_);
        return count_;
    }
    bool waitFor(std::size_t n, std::chrono::steady_clock::time_point until = deadline()) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_until(lock, until, [&] { return count_ >= n; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t count_ = 0;
};

}  // namespace foundation::testing
