#ifndef TESTS_MICROSERVICES_RUNCONCURRENTLY_H
#define TESTS_MICROSERVICES_RUNCONCURRENTLY_H

#include "support/Barrier.h"

#include <thread>
#include <vector>

namespace testbundles
{
    // Runs body(i) for i in [0, threads) on threads of their own, released
    // together through a barrier; returns once every body has returned.
    template <class Body>
    void
    RunConcurrently(int threads, Body const& body)
    {
        testsupport::Barrier start(threads);
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
} // namespace testbundles

#endif // TESTS_MICROSERVICES_RUNCONCURRENTLY_H
