#pragma once

#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <functional>
#include <memory>

namespace foundation::concurrent::threadpool {

// A facade over a ThreadPool that runs at most `limit` of its own items at once and
// queues the rest in FIFO order. One post costs one hand-off to a pool thread; a worker
// that finishes an item takes the next queued one of this facade itself, without
// another hand-off. Many facades may share one pool.
//
// Items that throw are caught and logged on "foundation::concurrent::threadpool".
// The pool must outlive the facade. Thread-safe.
class ConcurrencyLimitedExecutor {
public:
    // limit 0 means unlimited.
    explicit ConcurrencyLimitedExecutor(ThreadPool& pool, unsigned limit = 0);
    // Waits until every item posted through this facade has finished, queued ones
    // included. Destroyed from one of its own items it does not wait; the remaining
    // items still run.
    ~ConcurrencyLimitedExecutor();
    ConcurrencyLimitedExecutor(const ConcurrencyLimitedExecutor&) = delete;
    ConcurrencyLimitedExecutor& operator=(const ConcurrencyLimitedExecutor&) = delete;

    // 0 means unlimited. Raising the limit starts queued items at once; lowering it lets
    // running items finish. Non-blocking.
    void setConcurrencyLimit(unsigned limit);
    unsigned concurrencyLimit() const;

    // Runs `work` on the pool, or queues it while `limit` items run. Never blocks.
    // Throws what ThreadPool::post throws (the pool is shut down), leaving nothing queued.
    void postWork(std::function<void()> work);

    // Blocks until every item posted through this facade before the call has finished.
    // Must not be called from one of this facade's own items: that throws
    // std::logic_error("ConcurrencyLimitedExecutor::wait called from one of its own work items").
    void wait();

    // Items running or queued.
    std::size_t pendingCount() const;

private:
    class State;
    // Shared with the pool tasks that run this facade's items.
    std::shared_ptr<State> state_;
};

}  // namespace foundation::concurrent::threadpool
