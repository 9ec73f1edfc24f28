#ifndef TESTS_SUPPORT_BARRIER_H
#define TESTS_SUPPORT_BARRIER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

namespace testsupport
{
    // Releases a fixed number of threads at once: each ArriveAndWait blocks
    // until all of them have arrived, and returns false instead if they have
    // not within a generous deadline, so that a fault fails a test instead of
    // hanging it. Single use.
    class Barrier
    {
      public:
        explicit Barrier(std::size_t count) : remaining(count) {}

        bool
        ArriveAndWait()
        {
            std::unique_lock<std::mutex> lock(mutex);
            if (--remaining == 0)
            {
                released.notify_all();
                return true;
            }
            return released.wait_for(lock, std::chrono::seconds(20), [this] { return remaining == 0; });
        }

      private:
        std::mutex mutex; // guards remaining
        std::condition_variable released;
        std::size_t remaining;
    };

    // Runs body(i) for i in [0, threads) on threads of their own, released
    // together through a barrier; returns once every body has returned.
    template <class Body>
    void
    RunConcurrently(int threads, Body const& body)
    {
        Barrier start(threads);
        std::vector<std::thread> running;
        for (int i = 0; i < threads; ++i)
        {
            running.emplace_back(
                [&, i]
                {
                    start.ArriveAndWait();
                    body(i);
                });
        }
        for (auto& thread : running)
        {
            thread.join();
        }
    }
} // namespace testsupport

#endif // TESTS_SUPPORT_BARRIER_H
