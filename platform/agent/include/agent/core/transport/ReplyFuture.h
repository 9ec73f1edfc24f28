#pragma once

#include "agent/core/transport/Message.h"

#include <chrono>
#include <future>

namespace agent::core::transport {

// The eventual reply to one request. Move-only; get() once. Any thread may wait.
// The transport always completes it: with the reply, with the remote failure, or with
// a local one (timeout, disconnect, the serving container gone), never by silence.
class ReplyFuture {
public:
    ReplyFuture() = default;
    explicit ReplyFuture(std::future<Message> future) noexcept : future_(std::move(future)) {}

    bool valid() const noexcept { return future_.valid(); }
    // Blocks until the reply is there or `deadline` passes.
    std::future_status wait_until(std::chrono::steady_clock::time_point deadline) const {
        return future_.wait_until(deadline);
    }
    void wait() const { future_.wait(); }
    // Blocks for the outcome: the reply message, or std::runtime_error carrying the
    // failure's text (the remote handler's error, "Request timed out", ...).
    Message get() { return future_.get(); }

private:
    std::future<Message> future_;
};

}  // namespace agent::core::transport
