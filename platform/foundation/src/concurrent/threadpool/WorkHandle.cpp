#include "foundation/concurrent/threadpool/WorkHandle.h"

namespace foundation::concurrent::threadpool {

WorkHandle::WorkHandle(const boost::uuids::uuid& group) : group_(group) {}

void WorkHandle::requestStop() noexcept { stopSource_.request_stop(); }

stop_token WorkHandle::getStopToken() const noexcept { return stopSource_.get_token(); }

bool WorkHandle::isFinished() const {
    std::lock_guard<std::mutex> lock(finishedMutex_);
    return finished_;
}

void WorkHandle::wait() const {
    std::unique_lock<std::mutex> lock(finishedMutex_);
    finishedCondition_.wait(lock, [this] { return finished_; });
}

bool WorkHandle::waitUntil(std::chrono::steady_clock::time_point deadline) const {
    std::unique_lock<std::mutex> lock(finishedMutex_);
    return finishedCondition_.wait_until(lock, deadline, [this] { return finished_; });
}

void WorkHandle::markFinished() {
    {
        std::lock_guard<std::mutex> lock(finishedMutex_);
        finished_ = true;
    }
    finishedCondition_.notify_all();
}

}  // namespace foundation::concurrent::threadpool
