#pragma once

#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

#include <memory>

namespace agent::spf::threadpoolprovider {

// A ThreadPoolProvider owning one executor on a pool of its own (threads started on
// demand, no maximum, so a task that waits for other tasks never starves them).
// Thread-safe.
class ExecutorThreadPoolProvider final : public ThreadPoolProvider {
public:
    // Throws std::bad_alloc only; starts no thread until work is posted.
    ExecutorThreadPoolProvider();
    // Shuts the executor down (see shutDown); must therefore not run on one of its tasks'
    // threads while other tasks wait for that one.
    ~ExecutorThreadPoolProvider() override;

    std::shared_ptr<foundation::concurrent::threadpool::Executor> getExecutor() const override;

    // Refuses new work, requests stop on every unfinished task, then blocks until every
    // task has finished and the pool's threads are gone. Idempotent. Must not be called
    // while the calling thread holds the executor's shutdownMutex().
    void shutDown();

private:
    const std::shared_ptr<foundation::concurrent::threadpool::Executor> executor_;
};

}  // namespace agent::spf::threadpoolprovider
