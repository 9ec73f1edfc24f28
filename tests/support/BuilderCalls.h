#ifndef TESTS_SUPPORT_BUILDERCALLS_H
#define TESTS_SUPPORT_BUILDERCALLS_H

#include "support/Barrier.h"

#include "agent/core/service/ServiceBuilderBase.h"

#include <exception>
#include <string>
#include <thread>
#include <vector>

namespace testsupport
{
    // The text of what create() throws, or "no failure".
    inline std::string
    failureOf(agent::core::service::ServiceBuilderBase& builder)
    {
        try
        {
            builder.create();
            return "no failure";
        }
        catch (std::exception const& e)
        {
            return e.what();
        }
    }

    // Calls create() on `threads` threads released at once (so that first creates race);
    // returns each created service's name, or "failed: <what>" for a create that threw.
    inline std::vector<std::string>
    namesOfConcurrentCreates(agent::core::service::ServiceBuilderBase& builder, int threads)
    {
        Barrier barrier(threads);
        std::vector<std::string> names(threads);
        std::vector<std::thread> callers;
        for (int i = 0; i < threads; ++i)
        {
            callers.emplace_back([&, i] {
                barrier.ArriveAndWait();
                try
                {
                    names[i] = builder.create()->name();
                }
                catch (std::exception const& e)
                {
                    names[i] = std::string("failed: ") + e.what();
                }
            });
        }
        for (auto& caller : callers)
        {
            caller.join();
        }
        return names;
    }
} // namespace testsupport

#endif // TESTS_SUPPORT_BUILDERCALLS_H
