#pragma once

#include "foundation/concurrent/threadpool/StopToken.h"

#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace foundation::concurrent::threadpool {

class Executor;

// The shared handle of one work item posted to an Executor. Thread-safe.
class WorkHandle {
public:
    explicit WorkHandle(const boost::uuids::uuid& group);
    WorkHandle(const WorkHandle&) = delete;
    WorkHandle& operator=(const WorkHandle&) = delete;

    // Asks the work to stop. Non-blocking. Requested before the work starts, the work
    // still runs and finds its token set (it decides what to do).
    void requestStop() noexcept;
    // The token the work receives.
    stop_token getStopToken() const noexcept;
    const boost::uuids::uuid& group() const noexcept { return group_; }

    // True once the work has returned or thrown.
    bool isFinished() const;
    // Blocks until the work has finished. Must not be called from the work itself.
    void wait() const;
    // As wait(), giving up at the deadline; returns isFinished().
    bool waitUntil(std::chrono::steady_clock::time_point deadline) const;

private:
    friend class Executor;
    // Called by the executor when the work has returned or thrown.
    void markFinished();

    const boost::uuids::uuid group_;
    stop_source stopSource_;

    mutable std::mutex finishedMutex_;
    mutable std::condition_variable finishedCondition_;
    bool finished_ = false;
};

}  // namespace foundation::concurrent::threadpool
