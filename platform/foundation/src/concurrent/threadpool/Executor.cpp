#include "foundation/concurrent/threadpool/Executor.h"

#include "concurrent/threadpool/GuardedCall.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace foundation::concurrent::threadpool {

class Executor::State : public std::enable_shared_from_this<State> {
public:
    State(std::shared_ptr<ThreadPool> pool, bool ownsPool) : pool_(std::move(pool)), ownsPool_(ownsPool) {}

    std::shared_ptr<WorkHandle> post(const boost::uuids::uuid& group, std::function<void(stop_token)> work,
                                     bool highPriority);
    void waitForTaskGroups(const std::set<boost::uuids::uuid>& groups);
    void shutDown();
    std::size_t pendingCount() const;

    mutable std::shared_mutex shutdownMutex_;
    std::atomic<bool> shutDown_{false};  // changed only with shutdownMutex_ held exclusively

private:
    struct Item {
        std::uint64_t sequence = 0;
        std::shared_ptr<WorkHandle> handle;
        std::function<void(stop_token)> work;
    };

    // Runs the item at the head of the queues; one pool task per posted item.
    void runNext();
    // Call with itemsMutex_ held.
    void forget(std::uint64_t sequence, const boost::uuids::uuid& group);
    // Call with itemsMutex_ held. Takes the item with this sequence out of the queues.
    bool unqueue(std::uint64_t sequence);

    // What the current thread is running, to refuse waits on itself.
    static thread_local const State* currentExecutor_;
    static thread_local const boost::uuids::uuid* currentGroup_;

    const std::shared_ptr<ThreadPool> pool_;
    const bool ownsPool_;

    mutable std::mutex itemsMutex_;
    std::condition_variable itemFinished_;
    bool accepting_ = true;
    std::deque<Item> highPriorityQueue_;
    std::deque<Item> normalQueue_;
    std::uint64_t lastSequence_ = 0;
    std::map<std::uint64_t, std::shared_ptr<WorkHandle>> unfinished_;
    std::map<boost::uuids::uuid, std::set<std::uint64_t>> unfinishedByGroup_;
    std::size_t shutDownCallsFromItems_ = 0;  // items blocked in shutDown, not waited for
};

thread_local const Executor::State* Executor::State::currentExecutor_ = nullptr;
thread_local const boost::uuids::uuid* Executor::State::currentGroup_ = nullptr;

std::shared_ptr<WorkHandle> Executor::State::post(const boost::uuids::uuid& group,
                                                  std::function<void(stop_token)> work, bool highPriority) {
    auto handle = std::make_shared<WorkHandle>(group);
    std::uint64_t sequence = 0;
    {
        std::lock_guard<std::mutex> lock(itemsMutex_);
        if (!accepting_) {
            throw std::runtime_error("Executor is shut down");
        }
        sequence = ++lastSequence_;
        auto& queue = highPriority ? highPriorityQueue_ : normalQueue_;
        queue.push_back(Item{sequence, handle, std::move(work)});
        try {
            unfinished_.emplace(sequence, handle);
            unfinishedByGroup_[group].insert(sequence);
        } catch (...) {
            forget(sequence, group);
            queue.pop_back();
            throw;
        }
    }
    try {
        pool_->post([self = shared_from_this()] { self->runNext(); });
    } catch (...) {
        std::shared_ptr<WorkHandle> orphan;
        {
            std::lock_guard<std::mutex> lock(itemsMutex_);
            // Another pool task may already have taken our item; then the pool refused
            // work for good and the newest queued item is the one left without a task.
            if (!unqueue(sequence)) {
                auto& queue = !normalQueue_.empty() ? normalQueue_ : highPriorityQueue_;
                if (!queue.empty()) {
                    orphan = queue.back().handle;
                    forget(queue.back().sequence, orphan->group());
                    queue.pop_back();
                }
            }
        }
        if (orphan) {
            orphan->requestStop();
            orphan->markFinished();
            threadPoolLogger().log(log::severity::error, "Executor discarded a work item: its thread pool refused it");
        }
        itemFinished_.notify_all();
        throw;
    }
    return handle;
}

bool Executor::State::unqueue(std::uint64_t sequence) {
    for (auto* queue : {&highPriorityQueue_, &normalQueue_}) {
        for (auto it = queue->begin(); it != queue->end(); ++it) {
            if (it->sequence == sequence) {
                forget(sequence, it->handle->group());
                queue->erase(it);
                return true;
            }
        }
    }
    return false;
}

void Executor::State::forget(std::uint64_t sequence, const boost::uuids::uuid& group) {
    unfinished_.erase(sequence);
    auto found = unfinishedByGroup_.find(group);
    if (found != unfinishedByGroup_.end()) {
        found->second.erase(sequence);
        if (found->second.empty()) {
            unfinishedByGroup_.erase(found);
        }
    }
}

void Executor::State::runNext() {
    Item item;
    {
        std::lock_guard<std::mutex> lock(itemsMutex_);
        auto& queue = !highPriorityQueue_.empty() ? highPriorityQueue_ : normalQueue_;
        if (queue.empty()) {
            return;  // its item was withdrawn after the pool refused another post
        }
        item = std::move(queue.front());
        queue.pop_front();
    }
    const auto* previousExecutor = currentExecutor_;
    const auto* previousGroup = currentGroup_;
    currentExecutor_ = this;
    currentGroup_ = &item.handle->group();
    stop_token token = item.handle->getStopToken();
    runGuarded([&] { item.work(std::move(token)); });
    currentExecutor_ = previousExecutor;
    currentGroup_ = previousGroup;
    item.work = nullptr;  // release what the work captured before it counts as finished

    item.handle->markFinished();
    {
        std::lock_guard<std::mutex> lock(itemsMutex_);
        forget(item.sequence, item.handle->group());
    }
    itemFinished_.notify_all();
}

void Executor::State::waitForTaskGroups(const std::set<boost::uuids::uuid>& groups) {
    if (currentExecutor_ == this && groups.count(*currentGroup_) != 0) {
        throw std::logic_error("Executor::waitForTaskGroups called from a task of a group it waits for");
    }
    std::unique_lock<std::mutex> lock(itemsMutex_);
    const std::uint64_t postedBefore = lastSequence_;
    itemFinished_.wait(lock, [&] {
        for (const auto& group : groups) {
            auto found = unfinishedByGroup_.find(group);
            if (found != unfinishedByGroup_.end() && *found->second.begin() <= postedBefore) {
                return false;
            }
        }
        return true;
    });
}

void Executor::State::shutDown() {
    const bool fromItem = currentExecutor_ == this;
    std::vector<std::shared_ptr<WorkHandle>> unfinished;
    {
        std::lock_guard<std::mutex> lock(itemsMutex_);
        accepting_ = false;
        unfinished.reserve(unfinished_.size());
        for (const auto& entry : unfinished_) {
            unfinished.push_back(entry.second);
        }
    }
    for (const auto& handle : unfinished) {
        handle->requestStop();
    }
    {
        std::unique_lock<std::shared_mutex> exclusive(shutdownMutex_);
        shutDown_.store(true, std::memory_order_release);
    }
    {
        std::unique_lock<std::mutex> lock(itemsMutex_);
        if (fromItem) {
            ++shutDownCallsFromItems_;
        }
        itemFinished_.wait(lock, [&] {
            return fromItem ? unfinished_.size() <= shutDownCallsFromItems_ : unfinished_.empty();
        });
        if (fromItem) {
            --shutDownCallsFromItems_;
        }
    }
    // Another item blocked in shutDown waits for this one no longer.
    itemFinished_.notify_all();
    if (ownsPool_) {
        pool_->shutDown();
    }
}

std::size_t Executor::State::pendingCount() const {
    std::lock_guard<std::mutex> lock(itemsMutex_);
    return unfinished_.size();
}

Executor::Executor() : state_(std::make_shared<State>(std::make_shared<ThreadPool>(), true)) {}

Executor::Executor(std::shared_ptr<ThreadPool> pool) {
    if (!pool) {
        throw std::invalid_argument("Executor needs a thread pool");
    }
    state_ = std::make_shared<State>(std::move(pool), false);
}

Executor::~Executor() { shutDown(); }

std::shared_ptr<WorkHandle> Executor::postItem(const boost::uuids::uuid& group,
                                               std::function<void(stop_token)> work, bool highPriority) {
    return state_->post(group, std::move(work), highPriority);
}

void Executor::waitForTaskGroups(const std::set<boost::uuids::uuid>& groups) {
    state_->waitForTaskGroups(groups);
}

std::shared_mutex& Executor::shutdownMutex() const noexcept { return state_->shutdownMutex_; }

bool Executor::isShutDown() const noexcept { return state_->shutDown_.load(std::memory_order_acquire); }

void Executor::shutDown() { state_->shutDown(); }

std::size_t Executor::pendingCount() const { return state_->pendingCount(); }

}  // namespace foundation::concurrent::threadpool
