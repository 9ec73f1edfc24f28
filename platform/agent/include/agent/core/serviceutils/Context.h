#pragma once

#include "agent/core/transport/Transport.h"

#include "foundation/concurrent/threadpool/ConcurrencyLimitedExecutor.h"
#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <boost/uuid/uuid.hpp>

#include <functional>
#include <memory>

namespace agent::core::serviceutils {

// What a service instance runs with: its node, its own uuid, the container's pool and
// transport, and a uuid generator. A cheap value: copies share one thread-pool facade.
// The pool and the transport are borrowed and must outlive every copy.
// Valid when its service instance uuid is not nil.
class Context {
public:
    using ThreadPool = foundation::concurrent::threadpool::ThreadPool;

    // The thread-pool facade of a context: work posted here runs on the container's pool,
    // at most `limit` items at once. Thread-safe; shared by all copies of the context.
    class _ThreadPool {
    public:
        explicit _ThreadPool(ThreadPool* pool);
        // Waits for the work posted here (see ConcurrencyLimitedExecutor).
        ~_ThreadPool();
        _ThreadPool(const _ThreadPool&) = delete;
        _ThreadPool& operator=(const _ThreadPool&) = delete;

        // 0 = unlimited (the default). Non-blocking.
        void setConcurrencyLimit(unsigned limit);
        // Non-blocking. Throws std::logic_error("Context has no thread pool") on the
        // facade of an empty context, std::runtime_error when the pool is shut down.
        void postWork(std::function<void()> work);
        // Blocks until all work posted here before the call has finished. Must not be
        // called from that work (std::logic_error). No-op without a pool.
        void wait();

    private:
        std::unique_ptr<foundation::concurrent::threadpool::ConcurrencyLimitedExecutor> executor_;
    };

    // The empty context: not valid, no pool, no transport.
    Context();
    Context(boost::uuids::uuid node, boost::uuids::uuid serviceInstance, ThreadPool* pool,
            transport::Transport* transport, std::function<boost::uuids::uuid()> uuidGenerator);

    bool isValid() const noexcept { return !serviceInstance_.is_nil(); }
    const boost::uuids::uuid& getNodeID() const noexcept { return node_; }
    const boost::uuids::uuid& getServiceInstance() const noexcept { return serviceInstance_; }
    transport::Transport* getTransport() const noexcept { return transport_; }
    ThreadPool* getPool() const noexcept { return pool_; }
    _ThreadPool& getThreadPool() const noexcept { return *threadPool_; }
    // A new uuid from the generator (random when the context has none).
    boost::uuids::uuid generateUUID() const;

private:
    boost::uuids::uuid node_{};
    boost::uuids::uuid serviceInstance_{};
    ThreadPool* pool_ = nullptr;
    transport::Transport* transport_ = nullptr;
    std::function<boost::uuids::uuid()> uuidGenerator_;
    std::shared_ptr<_ThreadPool> threadPool_;
};

}  // namespace agent::core::serviceutils
