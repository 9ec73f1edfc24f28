#ifndef TESTS_SUPPORT_CONTAINERSUPPORT_H
#define TESTS_SUPPORT_CONTAINERSUPPORT_H

// For the tests that run services on an exchange: bounded waits, ids, containers dialling
// an exchange, and the outcome of a request.

#include "agent/core/container/ServiceContainer.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/random_generator.hpp>

#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <string>

namespace testsupport
{
    using Clock = std::chrono::steady_clock;

    // Generous: a deadline only exists so that a fault fails the test instead of hanging it.
    inline Clock::time_point
    deadline(std::chrono::milliseconds in = std::chrono::seconds(20))
    {
        return Clock::now() + in;
    }

    inline boost::uuids::uuid
    randomId()
    {
        thread_local boost::uuids::random_generator generator;
        return generator();
    }

    // A connected container with a bounded pool (bursts must not start hundreds of threads).
    inline std::shared_ptr<agent::core::container::ServiceContainer>
    makeContainer(std::string const& endpoint,
                  std::chrono::milliseconds requestTimeout = std::chrono::milliseconds(5000))
    {
        auto container = std::make_shared<agent::core::container::ServiceContainer>();
        container->setNewMaximumPoolSize(8);
        container->createTransport(
            agent::nanomsgtransport::getTransport(*container, requestTimeout, std::chrono::milliseconds(5000)));
        container->connectTransport(endpoint);
        return container;
    }

    // The outcome of a request, waited for with a deadline: the reply's bytes, or
    // "error: <what>", or "no answer".
    inline std::string
    outcome(agent::core::transport::ReplyFuture& future, Clock::time_point until = deadline())
    {
        if (future.wait_until(until) != std::future_status::ready)
        {
            return "no answer";
        }
        try
        {
            return std::string(future.get().asStringView());
        }
        catch (std::exception const& e)
        {
            return std::string("error: ") + e.what();
        }
    }

    inline std::string
    outcome(agent::core::transport::ReplyFuture&& future, Clock::time_point until = deadline())
    {
        return outcome(future, until);
    }
} // namespace testsupport

#endif // TESTS_SUPPORT_CONTAINERSUPPORT_H
