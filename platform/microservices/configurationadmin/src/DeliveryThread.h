#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_DELIVERYTHREAD_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_DELIVERYTHREAD_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

namespace cppmicroservices::cmimpl
{
    // One thread of Configuration Admin's own that runs posted tasks one at
    // a time, in the order they were posted.
    //
    // Lifecycle: the constructor starts the thread; Stop() closes and stops
    // in one step (pending tasks are dropped, the running one is waited for);
    // the destructor stops. A task may call Post and Stop; Stop from a task
    // does not wait for that task (it is the caller), the thread ends as soon
    // as the task returns.
    class DeliveryThread
    {
      public:
        DeliveryThread();
        ~DeliveryThread();
        DeliveryThread(DeliveryThread const&) = delete;
        DeliveryThread& operator=(DeliveryThread const&) = delete;

        // A task receives its own sequence number when it runs.
        using Task = std::function<void(std::uint64_t sequence)>;

        struct Ticket
        {
            std::uint64_t sequence;       ///< grows with every Post, from 1
            std::shared_future<void> done; ///< see Post
        };

        // Queues task behind every task posted before; tasks run in the
        // order of their sequence numbers. The future is ready once the task
        // has run, or once it was dropped because the thread stopped (at
        // once when it had stopped already). Non-blocking: only takes a leaf
        // lock, so it may be called with other locks held. Any thread. task
        // must not throw; if it does, the exception is logged.
        Ticket Post(Task task);

        // Drops the tasks not yet started and returns once the running task
        // has finished and the thread has left it (immediately when called
        // from a task). Idempotent; any thread, also several at once; blocks
        // without holding a lock.
        void Stop();

        // True on the delivery thread.
        bool IsCurrentThread() const;

      private:
        struct Item
        {
            Task task;
            std::uint64_t sequence = 0;
            std::promise<void> done;
        };

        // Shared with the thread, which may outlive this object when Stop
        // was called from a task.
        struct Queue
        {
            std::mutex queueMutex;
            std::condition_variable changed;
            std::deque<Item> pending;       // guarded by queueMutex
            std::uint64_t nextSequence = 1; // guarded by queueMutex
            bool stopping = false;          // guarded by queueMutex
            bool finished = false;          ///< the thread ran its last task; guarded by queueMutex
        };

        static void Run(std::shared_ptr<Queue> queue);

        std::shared_ptr<Queue> const queue;
        std::thread::id threadId;

        // The first Stop takes the thread out, to join or detach it once.
        std::mutex threadMutex;
        std::thread thread; // guarded by threadMutex
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_DELIVERYTHREAD_H
