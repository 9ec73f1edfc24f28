#include "foundation/concurrent/threadpool/ThreadPool.h"

#include "concurrent/threadpool/GuardedCall.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <vector>

namespace foundation::concurrent::threadpool {

class ThreadPool::State : public std::enable_shared_from_this<State> {
public:
    explicit State(unsigned maximum) : maximum_(maximum) {}

    void setMaximum(unsigned maximum);
    unsigned maximum() const;
    void setIdleTimeout(std::chrono::milliseconds timeout);
    std::chrono::milliseconds idleTimeout() const;
    void post(std::function<void()> task);
    void shutDown();
    bool isShutDown() const;
    std::size_t threadCount() const;
    std::size_t idleThreadCount() const;
    bool isWorkerThread() const noexcept;

private:
    void workerLoop();
    // Call with poolMutex_ held.
    void startWorker();
    // Call with poolMutex_ held, from the retiring worker itself.
    void retireCallingWorker();
    // Call with poolMutex_ held. True while there are more workers than the maximum allows.
    bool isSurplus() const;

    // The pool whose worker the current thread is, if any.
    static thread_local const State* currentPool_;

    // Guards everything below.
    mutable std::mutex poolMutex_;
    std::condition_variable workAvailable_;
    std::condition_variable shutDownFinished_;
    std::deque<std::function<void()>> tasks_;
    std::unordered_map<std::thread::id, std::thread> workers_;
    std::vector<std::thread> retired_;  // left their loop; joined later
    std::size_t idle_ = 0;              // workers blocked waiting for work
    std::size_t starting_ = 0;          // workers started that have not yet looked at the queue
    unsigned maximum_;
    std::chrono::milliseconds idleTimeout_{std::chrono::seconds(30)};
    bool shuttingDown_ = false;
    bool shutDownComplete_ = false;
};

thread_local const ThreadPool::State* ThreadPool::State::currentPool_ = nullptr;

void ThreadPool::State::setMaximum(unsigned maximum) {
    std::lock_guard<std::mutex> lock(poolMutex_);
    const bool lowered = maximum != 0 && (maximum_ == 0 || maximum < maximum_);
    maximum_ = maximum;
    if (lowered) {
        // Idle surplus workers must retire now, or a post could wake more than the maximum.
        workAvailable_.notify_all();
        return;
    }
    // Queued work that waited for the old maximum gets threads now.
    while (!shuttingDown_ && tasks_.size() > idle_ + starting_ &&
           (maximum_ == 0 || workers_.size() < maximum_)) {
        try {
            startWorker();
        } catch (...) {
            break;  // the workers we have will get to the queue
        }
    }
}

unsigned ThreadPool::State::maximum() const {
    std::lock_guard<std::mutex> lock(poolMutex_);
    return maximum_;
}

void ThreadPool::State::setIdleTimeout(std::chrono::milliseconds timeout) {
    {
        std::lock_guard<std::mutex> lock(poolMutex_);
        idleTimeout_ = timeout;
    }
    // Surplus workers re-arm their wait with the new timeout.
    workAvailable_.notify_all();
}

std::chrono::milliseconds ThreadPool::State::idleTimeout() const {
    std::lock_guard<std::mutex> lock(poolMutex_);
    return idleTimeout_;
}

void ThreadPool::State::post(std::function<void()> task) {
    std::vector<std::thread> finished;
    {
        std::unique_lock<std::mutex> lock(poolMutex_);
        if (shuttingDown_) {
            throw std::runtime_error("Thread pool is shut down");
        }
        tasks_.push_back(std::move(task));
        // A woken worker still counts in idle_ until it takes a task, and a starting one
        // will look at the queue, so one of them is free for this task only if they
        // outnumber the tasks queued before it.
        if (idle_ + starting_ >= tasks_.size()) {
            lock.unlock();
            workAvailable_.notify_one();
            return;
        }
        if (maximum_ == 0 || workers_.size() < maximum_) {
            try {
                startWorker();
            } catch (...) {
                if (workers_.empty()) {
                    tasks_.pop_back();  // nobody would ever run it
                    throw;
                }
                // The running workers will get to it.
            }
            finished.swap(retired_);
        }
    }
    for (auto& thread : finished) {
        thread.join();
    }
}

void ThreadPool::State::startWorker() {
    std::thread thread([self = shared_from_this()] { self->workerLoop(); });
    const auto id = thread.get_id();
    workers_.emplace(id, std::move(thread));
    ++starting_;
}

void ThreadPool::State::retireCallingWorker() {
    auto found = workers_.find(std::this_thread::get_id());
    if (found != workers_.end()) {
        retired_.push_back(std::move(found->second));
        workers_.erase(found);
    }
    if (!tasks_.empty()) {
        workAvailable_.notify_one();  // a post may have counted on this worker
    }
}

bool ThreadPool::State::isSurplus() const {
    return !shuttingDown_ && maximum_ != 0 && workers_.size() > maximum_;
}

void ThreadPool::State::workerLoop() {
    currentPool_ = this;
    std::unique_lock<std::mutex> lock(poolMutex_);
    --starting_;
    for (;;) {
        if (isSurplus()) {
            retireCallingWorker();
            return;
        }
        if (!tasks_.empty()) {
            std::function<void()> task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            runGuarded(task);
            task = nullptr;  // release what the task captured before taking the lock
            lock.lock();
            continue;
        }
        if (shuttingDown_) {
            return;  // shutDown joins or has detached this thread
        }
        ++idle_;
        bool timedOut = false;
        if (workers_.size() <= kCoreThreads) {
            workAvailable_.wait(lock);
        } else {
            timedOut = workAvailable_.wait_for(lock, idleTimeout_) == std::cv_status::timeout;
        }
        --idle_;
        if (timedOut && tasks_.empty() && !shuttingDown_ && workers_.size() > kCoreThreads) {
            retireCallingWorker();
            return;
        }
    }
}

void ThreadPool::State::shutDown() {
    const bool fromWorker = isWorkerThread();
    std::unordered_map<std::thread::id, std::thread> workers;
    std::vector<std::thread> retired;
    {
        std::unique_lock<std::mutex> lock(poolMutex_);
        if (shuttingDown_) {
            // A worker must not wait: the first caller may be joining it.
            if (!fromWorker) {
                shutDownFinished_.wait(lock, [this] { return shutDownComplete_; });
            }
            return;
        }
        shuttingDown_ = true;
        workers.swap(workers_);
        retired.swap(retired_);
    }
    workAvailable_.notify_all();
    for (auto& [id, thread] : workers) {
        if (id == std::this_thread::get_id()) {
            thread.detach();  // finishes its task, drains the queue and exits on its own
        } else {
            thread.join();
        }
    }
    for (auto& thread : retired) {
        thread.join();
    }
    {
        std::lock_guard<std::mutex> lock(poolMutex_);
        shutDownComplete_ = true;
    }
    shutDownFinished_.notify_all();
}

bool ThreadPool::State::isShutDown() const {
    std::lock_guard<std::mutex> lock(poolMutex_);
    return shuttingDown_;
}

std::size_t ThreadPool::State::threadCount() const {
    std::lock_guard<std::mutex> lock(poolMutex_);
    return workers_.size();
}

std::size_t ThreadPool::State::idleThreadCount() const {
    std::lock_guard<std::mutex> lock(poolMutex_);
    return idle_;
}

bool ThreadPool::State::isWorkerThread() const noexcept { return currentPool_ == this; }

ThreadPool::ThreadPool(unsigned maximumPoolSize) : state_(std::make_shared<State>(maximumPoolSize)) {}

ThreadPool::~ThreadPool() { shutDown(); }

void ThreadPool::setNewMaximumPoolSize(unsigned maximumPoolSize) { state_->setMaximum(maximumPoolSize); }

unsigned ThreadPool::maximumPoolSize() const { return state_->maximum(); }

void ThreadPool::setIdleTimeout(std::chrono::milliseconds timeout) { state_->setIdleTimeout(timeout); }

std::chrono::milliseconds ThreadPool::idleTimeout() const { return state_->idleTimeout(); }

void ThreadPool::post(std::function<void()> task) { state_->post(std::move(task)); }

void ThreadPool::shutDown() { state_->shutDown(); }

bool ThreadPool::isShutDown() const { return state_->isShutDown(); }

std::size_t ThreadPool::threadCount() const { return state_->threadCount(); }

std::size_t ThreadPool::idleThreadCount() const { return state_->idleThreadCount(); }

bool ThreadPool::isWorkerThread() const { return state_->isWorkerThread(); }

}  // namespace foundation::concurrent::threadpool
