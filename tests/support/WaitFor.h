#ifndef TESTS_SUPPORT_WAITFOR_H
#define TESTS_SUPPORT_WAITFOR_H

#include <chrono>
#include <thread>

namespace testsupport
{
    // Polls condition until it holds or timeout passes; returns its last
    // value. For conditions without a notification to wait on.
    template <class Condition>
    bool
    WaitFor(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10))
    {
        auto const deadline = std::chrono::steady_clock::now() + timeout;
        while (!condition())
        {
            if (std::chrono::steady_clock::now() >= deadline)
            {
                return condition();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }
} // namespace testsupport

#endif // TESTS_SUPPORT_WAITFOR_H
