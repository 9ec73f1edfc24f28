#include "foundation/concurrent/threadpool/ConcurrencyLimitedExecutor.h"

#include "concurrent/threadpool/GuardedCall.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace foundation::concurrent::threadpool {

class ConcurrencyLimitedExecutor::State : public std::enable_shared_from_this<State> {
public:
    State(ThreadPool& pool, unsigned limit) : pool_(pool), limit_(limit) {}

    void setLimit(unsigned limit);
    unsigned limit() const;
    void post(std::function<void()> work);
    void wait();
    // Waits for everything posted so far unless called from one of our own items.
    void drain();
    std::size_t pendingCount() const;

private:
    struct Item {
        std::uint64_t sequence;
        std::function<void()> work;
    };

    // Hands one item to the pool; the task then keeps taking queued items.
    void launch(Item item);
    // Runs on a pool thread: `item`, then queued items while the limit allows.
    void run(Item item);
    // Call with itemsMutex_ held. Returns true if finishedBelow_ advanced.
    bool markFinished(std::uint64_t sequence);
    // Call with itemsMutex_ held. True if another item may start now.
    bool hasRoom() const { return limit_ == 0 || running_ < limit_; }

    static thread_local const State* current_;  // the facade whose item this thread runs

    ThreadPool& pool_;

    mutable std::mutex itemsMutex_;
    std::condition_variable progress_;
    unsigned limit_;
    unsigned running_ = 0;  // pool tasks working for this facade
    std::deque<Item> queue_;
    std::uint64_t nextSequence_ = 0;
    // Every item below finishedBelow_ has finished; finished_[i] is whether item
    // finishedBelow_ + i has. Items finish out of order when the limit exceeds 1.
    std::uint64_t finishedBelow_ = 0;
    std::deque<bool> finished_;
};

thread_local const ConcurrencyLimitedExecutor::State* ConcurrencyLimitedExecutor::State::current_ = nullptr;

void ConcurrencyLimitedExecutor::State::setLimit(unsigned limit) {
    std::vector<Item> startable;
    {
        std::lock_guard<std::mutex> lock(itemsMutex_);
        limit_ = limit;
        while (!queue_.empty() && hasRoom()) {
            startable.push_back(std::move(queue_.front()));
            queue_.pop_front();
            ++running_;
        }
    }
    for (auto& item : startable) {
        try {
            launch(std::move(item));
        } catch (...) {
            // The pool is shut down; launch has accounted for the item.
        }
    }
}

unsigned ConcurrencyLimitedExecutor::State::limit() const {
    std::lock_guard<std::mutex> lock(itemsMutex_);
    return limit_;
}

void ConcurrencyLimitedExecutor::State::post(std::function<void()> work) {
    Item item{0, std::move(work)};
    {
        std::lock_guard<std::mutex> lock(itemsMutex_);
        item.sequence = nextSequence_++;
        finished_.push_back(false);
        if (!hasRoom()) {
            queue_.push_back(std::move(item));
            return;
        }
        ++running_;
    }
    launch(std::move(item));
}

void ConcurrencyLimitedExecutor::State::launch(Item item) {
    const std::uint64_t sequence = item.sequence;
    try {
        pool_.post([self = shared_from_this(), item = std::move(item)]() mutable { self->run(std::move(item)); });
        return;
    } catch (...) {
        std::deque<Item> stranded;  // destroyed after the lock is released
        {
            std::lock_guard<std::mutex> lock(itemsMutex_);
            --running_;
            markFinished(sequence);
            // Queued items wait for a running task to take them; with none left and the
            // pool refusing work, none ever will.
            if (running_ == 0 && !queue_.empty()) {
                for (const auto& queued : queue_) {
                    markFinished(queued.sequence);
                }
                stranded.swap(queue_);
            }
        }
        progress_.notify_all();
        if (!stranded.empty()) {
            FOUNDATION_LOG(threadPoolLogger(), log::severity::error)
                << "Discarded " << stranded.size() << " queued work items: the thread pool refused them";
        }
        throw;
    }
}

void ConcurrencyLimitedExecutor::State::run(Item item) {
    const State* const previous = current_;
    current_ = this;
    for (bool more = true; more;) {
        runGuarded(item.work);
        item.work = nullptr;  // release what the work captured before it counts as finished
        bool advanced = false;
        {
            std::lock_guard<std::mutex> lock(itemsMutex_);
            advanced = markFinished(item.sequence);
            // Taking the next item here, on this thread, saves a hand-off to another one.
            if (!queue_.empty() && (limit_ == 0 || running_ <= limit_)) {
                item = std::move(queue_.front());
                queue_.pop_front();
            } else {
                --running_;
                more = false;
            }
        }
        if (advanced) {
            progress_.notify_all();
        }
    }
    current_ = previous;
}

bool ConcurrencyLimitedExecutor::State::markFinished(std::uint64_t sequence) {
    finished_[static_cast<std::size_t>(sequence - finishedBelow_)] = true;
    bool advanced = false;
    while (!finished_.empty() && finished_.front()) {
        finished_.pop_front();
        ++finishedBelow_;
        advanced = true;
    }
    return advanced;
}

void ConcurrencyLimitedExecutor::State::wait() {
    if (current_ == this) {
        throw std::logic_error("ConcurrencyLimitedExecutor::wait called from one of its own work items");
    }
    drain();
}

void ConcurrencyLimitedExecutor::State::drain() {
    if (current_ == this) {
        return;
    }
    std::unique_lock<std::mutex> lock(itemsMutex_);
    const std::uint64_t postedBefore = nextSequence_;
    progress_.wait(lock, [&] { return finishedBelow_ >= postedBefore; });
}

std::size_t ConcurrencyLimitedExecutor::State::pendingCount() const {
    std::lock_guard<std::mutex> lock(itemsMutex_);
    return static_cast<std::size_t>(nextSequence_ - finishedBelow_);
}

ConcurrencyLimitedExecutor::ConcurrencyLimitedExecutor(ThreadPool& pool, unsigned limit)
    : state_(std::make_shared<State>(pool, limit)) {}

ConcurrencyLimitedExecutor::~ConcurrencyLimitedExecutor() { state_->drain(); }

void ConcurrencyLimitedExecutor::setConcurrencyLimit(unsigned limit) { state_->setLimit(limit); }

unsigned ConcurrencyLimitedExecutor::concurrencyLimit() const { return state_->limit(); }

void ConcurrencyLimitedExecutor::postWork(std::function<void()> work) { state_->post(std::move(work)); }

void ConcurrencyLimitedExecutor::wait() { state_->wait(); }

std::size_t ConcurrencyLimitedExecutor::pendingCount() const { return state_->pendingCount(); }

}  // namespace foundation::concurrent::threadpool
