#ifndef TESTS_SUPPORT_GATE_H
#define TESTS_SUPPORT_GATE_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace testsupport
{
    // Holds the threads that pass it until it is opened, and counts them. A pass gives up at
    // its deadline, so that a fault cannot leave a thread waiting for good. Thread-safe.
    class Gate
    {
      public:
        using Clock = std::chrono::steady_clock;

        // Blocks until the gate is open or `until` passes; returns whether it opened.
        bool
        pass(Clock::time_point until = Clock::now() + std::chrono::seconds(20))
        {
            std::unique_lock<std::mutex> lock(mutex);
            ++passers;
            changed.notify_all();
            return changed.wait_until(lock, until, [this] { return isOpen; });
        }
        void
        open()
        {
            std::lock_guard<std::mutex> lock(mutex);
            isOpen = true;
            changed.notify_all();
        }
        // Waits, at most 20 s, until `count` threads have come to the gate.
        bool
        waitForPassers(int count)
        {
            std::unique_lock<std::mutex> lock(mutex);
            return changed.wait_for(lock, std::chrono::seconds(20), [&] { return passers >= count; });
        }

      private:
        std::mutex mutex; // guards passers and isOpen
        std::condition_variable changed;
        int passers = 0;
        bool isOpen = false;
    };
} // namespace testsupport

#endif // TESTS_SUPPORT_GATE_H
