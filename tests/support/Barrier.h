#ifndef TESTS_SUPPORT_BARRIER_H
#define TESTS_SUPPORT_BARRIER_H

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace testsupport
{
    // Releases a fixed number of threads at once: each ArriveAndWait blocks
    // until all of them have arrived. Single use.
    class Barrier
    {
      public:
        explicit Barrier(std::size_t count) : remaining(count) {}

        void
        ArriveAndWait()
        {
            std::unique_lock<std::mutex> lock(mutex);
            if (--remaining == 0)
            {
                released.notify_all();
                return;
            }
            released.wait(lock, [this] { return remaining == 0; });
        }

      private:
        std::mutex mutex; // guards remaining
        std::condition_variable released;
        std::size_t remaining;
    };
} // namespace testsupport

#endif // TESTS_SUPPORT_BARRIER_H
