#pragma once

#include "foundation/concurrent/threadpool/StopToken.h"
#include "foundation/concurrent/threadpool/ThreadPool.h"
#include "foundation/concurrent/threadpool/WorkHandle.h"

#include <boost/uuid/uuid.hpp>

#include <functional>
#include <memory>
#include <set>
#include <shared_mutex>
#include <type_traits>
#include <utility>

namespace foundation::concurrent::threadpool {

// Runs work items in task groups, each with its own stop token, on a thread pool.
//
// The pool is either the executor's own (default constructor: an unbounded ThreadPool
// that shutDown() shuts down) or one shared with others (the other constructor, which
// throws std::invalid_argument("Executor needs a thread pool") for null; the executor
// keeps the pool alive but never shuts it down). On a shared pool with a maximum, an
// item that waits for other items needs a free thread for them.
// Items wait in the executor's own queue: high-priority items before normal ones,
// FIFO within each; each post hands one item to the pool.
//
// A work item that throws is caught and logged on "foundation::concurrent::threadpool";
// its handle is finished all the same.
class Executor {
public:
    Executor();
    explicit Executor(std::shared_ptr<ThreadPool> pool);
    // Calls shutDown().
    ~Executor();
    Executor(const Executor&) = delete;
    Executor& operator=(const Executor&) = delete;

    // Queues `work`, a callable taking a stop_token, in `group`. With highPriority the
    // item goes ahead of every normal item not yet started (after earlier high-priority
    // ones). Non-blocking. Throws std::runtime_error("Executor is shut down") after
    // shutDown() began. `work` may be move-only.
    template <class F>
    std::shared_ptr<WorkHandle> postWork(const boost::uuids::uuid& group, F&& work, bool highPriority) {
        static_assert(std::is_invocable_v<std::decay_t<F>&, stop_token>,
                      "work must be callable with a stop_token");
        auto callable = std::make_shared<std::decay_t<F>>(std::forward<F>(work));
        return postItem(group, [callable](stop_token token) { (*callable)(std::move(token)); },
                        highPriority);
    }

    // Blocks until every item of `groups` posted before this call has finished; items
    // of other groups, and items posted later, do not delay it. Item completion never
    // takes shutdownMutex(), so this may be called with it held shared.
    // Throws std::logic_error("Executor::waitForTaskGroups called from a task of a group it waits for")
    // when called from an item of one of `groups` (it would wait for itself).
    void waitForTaskGroups(const std::set<boost::uuids::uuid>& groups);

    // The lock that makes isShutDown() stable: hold it shared while acting on "not yet
    // shut down"; shutDown() takes it exclusively to change the state.
    std::shared_mutex& shutdownMutex() const noexcept;
    // Call with shutdownMutex() held (shared or exclusive).
    bool isShutDown() const noexcept;

    // Refuses new items and requests stop on every unfinished one (queued items still run
    // and see their token set); then takes shutdownMutex() exclusively to mark the
    // executor shut down; then, with no lock held, waits until every item has finished and
    // shuts down its own pool. Stops are requested before the exclusive lock is taken, so
    // items that a shared-lock holder waits for can see them and end. Idempotent. Blocks.
    // Called from its own items, it waits for all the others. Must not be called while
    // the calling thread holds shutdownMutex().
    void shutDown();

    // Items queued or running.
    std::size_t pendingCount() const;

private:
    std::shared_ptr<WorkHandle> postItem(const boost::uuids::uuid& group,
                                         std::function<void(stop_token)> work, bool highPriority);

    class State;
    std::shared_ptr<State> state_;
};

}  // namespace foundation::concurrent::threadpool
