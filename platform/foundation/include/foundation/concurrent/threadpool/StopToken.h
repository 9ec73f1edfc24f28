#pragma once

#include <atomic>
#include <memory>

namespace foundation::concurrent::threadpool {

// A C++17 stand-in for std::stop_token / std::stop_source (without callbacks).
// Tokens and sources are cheap to copy and share one atomic flag; every member is
// thread-safe, non-blocking and lock-free.
class stop_token {
public:
    // A token with no source: stop_possible() and stop_requested() are false.
    stop_token() noexcept = default;

    bool stop_requested() const noexcept {
        return state_ && state_->load(std::memory_order_acquire);
    }
    bool stop_possible() const noexcept { return static_cast<bool>(state_); }

private:
    friend class stop_source;
    explicit stop_token(std::shared_ptr<std::atomic<bool>> state) noexcept
        : state_(std::move(state)) {}

    std::shared_ptr<std::atomic<bool>> state_;
};

class stop_source {
public:
    // Allocates the shared state; throws std::bad_alloc.
    stop_source() : state_(std::make_shared<std::atomic<bool>>(false)) {}

    // Returns true if this call made the request (false if stop was already requested).
    bool request_stop() noexcept { return !state_->exchange(true, std::memory_order_acq_rel); }
    bool stop_requested() const noexcept { return state_->load(std::memory_order_acquire); }
    stop_token get_token() const noexcept { return stop_token(state_); }

private:
    std::shared_ptr<std::atomic<bool>> state_;
};

}  // namespace foundation::concurrent::threadpool
