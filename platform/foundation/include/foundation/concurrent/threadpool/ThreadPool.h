#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace foundation::concurrent::threadpool {

// A pool of worker threads running posted tasks in FIFO order.
//
// Threads are started on demand: a post wakes exactly one idle worker, or starts a
// new thread when none is idle and the maximum allows it, else the task waits in the
// queue. Workers beyond the core (the first kCoreThreads threads) retire after
// idleTimeout() without work. Idle workers block on a condition variable; nothing polls.
//
// A task that throws is caught and logged on the logger "foundation::concurrent::threadpool"
// (error 0x100); its worker goes on.
//
// All members are thread-safe. The destructor shuts down; a derived class whose tasks use
// its own members must call shutDown() in its own destructor, before those members go.
class ThreadPool {
public:
    static constexpr unsigned kCoreThreads = 2;

    // maximumPoolSize 0 means no maximum.
    explicit ThreadPool(unsigned maximumPoolSize = 0);
    // Calls shutDown() (see there; queued tasks still run).
    virtual ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // 0 means no maximum: the pool grows a thread whenever work is queued and no
    // worker is idle. Raising it starts threads for queued work at once; lowering it
    // retires idle surplus workers at once and busy ones when their task returns, so no
    // new task starts beyond the maximum. Non-blocking.
    void setNewMaximumPoolSize(unsigned maximumPoolSize);
    unsigned maximumPoolSize() const;

    // How long a worker beyond the core waits for work before it retires (default 30 s).
    void setIdleTimeout(std::chrono::milliseconds timeout);
    std::chrono::milliseconds idleTimeout() const;

    // Queues `task`. Non-blocking (apart from a short lock; may start a thread).
    // Throws std::runtime_error("Thread pool is shut down") after shutDown(), and
    // std::system_error if the pool has no thread and cannot start one.
    void post(std::function<void()> task);

    // Stops accepting tasks, lets the workers run every task already queued, then joins
    // them. Blocks until then. Idempotent; a second caller waits for the first to finish.
    // Called from one of this pool's own workers (or its destructor run there), it joins
    // every other worker and leaves the calling worker to finish its task and exit on its
    // own (its thread is detached); it never deadlocks on itself.
    void shutDown();
    bool isShutDown() const;

    // Live worker threads (idle or busy).
    std::size_t threadCount() const;
    // Workers currently waiting for work.
    std::size_t idleThreadCount() const;
    // True when called from one of this pool's worker threads.
    bool isWorkerThread() const;

private:
    class State;
    // Shared with every worker, so a pool destroyed from its own task stays valid for
    // the worker that destroyed it.
    std::shared_ptr<State> state_;
};

}  // namespace foundation::concurrent::threadpool
