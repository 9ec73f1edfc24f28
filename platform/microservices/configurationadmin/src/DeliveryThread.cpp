#include "DeliveryThread.h"

#include "CmLogger.h"

#include "foundation/log/Severity.h"

#include <exception>
#include <utility>

namespace cppmicroservices::cmimpl
{
    DeliveryThread::DeliveryThread()
        : queue(std::make_shared<Queue>())
        , thread(&DeliveryThread::Run, queue)
    {
        threadId = thread.get_id();
    }

    DeliveryThread::~DeliveryThread() { Stop(); }

    DeliveryThread::Ticket
    DeliveryThread::Post(Task task)
    {
        Item item{ std::move(task), 0, std::promise<void>() };
        Ticket ticket{ 0, item.done.get_future().share() };
        {
            std::lock_guard<std::mutex> lock(queue->queueMutex);
            ticket.sequence = item.sequence = queue->nextSequence++;
            if (!queue->stopping)
            {
                queue->pending.push_back(std::move(item));
                queue->changed.notify_all();
                return ticket;
            }
        }
        item.done.set_value();
        return ticket;
    }

    void
    DeliveryThread::Stop()
    {
        std::deque<Item> dropped;
        {
            std::lock_guard<std::mutex> lock(queue->queueMutex);
            queue->stopping = true;
            dropped.swap(queue->pending);
            queue->changed.notify_all();
        }
        for (auto& item : dropped)
        {
            item.done.set_value();
        }
        // The tasks' captures die here, outside the queue lock.
        dropped.clear();

        std::thread owned;
        {
            std::lock_guard<std::mutex> lock(threadMutex);
            owned = std::move(thread);
        }
        if (IsCurrentThread())
        {
            // Waiting would wait for ourselves; the thread ends when the task
            // that called us returns, and keeps the queue alive until then.
            if (owned.joinable())
            {
                owned.detach();
            }
            return;
        }
        if (owned.joinable())
        {
            owned.join();
            return;
        }
        // Another Stop owns the thread; wait for the same moment it waits for.
        std::unique_lock<std::mutex> lock(queue->queueMutex);
        queue->changed.wait(lock, [this] { return queue->finished; });
    }

    bool
    DeliveryThread::IsCurrentThread() const
    {
        return std::this_thread::get_id() == threadId;
    }

    void
    DeliveryThread::Run(std::shared_ptr<Queue> queue)
    {
        for (;;)
        {
            Item item;
            {
                std::unique_lock<std::mutex> lock(queue->queueMutex);
                queue->changed.wait(lock, [&] { return queue->stopping || !queue->pending.empty(); });
                if (queue->stopping)
                {
                    queue->finished = true;
                    queue->changed.notify_all();
                    return;
                }
                item = std::move(queue->pending.front());
                queue->pending.pop_front();
            }
            try
            {
                item.task(item.sequence);
            }
            catch (std::exception const& e)
            {
                FOUNDATION_LOG(CmLogger(), foundation::log::severity::error)
                    << "A delivery task failed: " << e.what();
            }
            catch (...)
            {
                FOUNDATION_LOG(CmLogger(), foundation::log::severity::error)
                    << "A delivery task failed with an unknown exception";
            }
            item.task = nullptr;
            item.done.set_value();
        }
    }
} // namespace cppmicroservices::cmimpl
