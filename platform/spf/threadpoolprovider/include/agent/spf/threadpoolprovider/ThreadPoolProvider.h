#pragma once

#include "foundation/concurrent/threadpool/Executor.h"

#include <memory>

namespace agent::spf::threadpoolprovider {

// The service through which a host shares one executor among its components: work is
// posted in task groups with stop tokens, a component waits for its own group only
// (Executor::waitForTaskGroups), and reads whether the pool is shut down under the pool's
// shared lock (Executor::shutdownMutex, Executor::isShutDown) before it waits.
//
// Registered under "agent::spf::threadpoolprovider::ThreadPoolProvider". Implementations
// are thread-safe.
class ThreadPoolProvider {
public:
    // The executor; never null, the same one on every call. Callers may keep it: it stays
    // valid (refusing new work once shut down) after the provider is gone. Non-blocking,
    // any thread, throws nothing.
    virtual std::shared_ptr<foundation::concurrent::threadpool::Executor> getExecutor() const = 0;

    virtual ~ThreadPoolProvider();

protected:
    ThreadPoolProvider() = default;
    ThreadPoolProvider(const ThreadPoolProvider&) = delete;
    ThreadPoolProvider& operator=(const ThreadPoolProvider&) = delete;
};

}  // namespace agent::spf::threadpoolprovider
