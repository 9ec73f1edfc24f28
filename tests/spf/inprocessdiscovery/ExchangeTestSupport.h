#pragma once

// Shared by the SPF tests that run services on an exchange: bounded waits, ids, containers
// dialling an exchange, and the outcome of a request.

#include "agent/core/container/ServiceContainer.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/random_generator.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace agent::spf::testing {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Generous: a deadline only exists so that a fault fails the test instead of hanging it.
inline Clock::time_point deadline(std::chrono::milliseconds in = std::chrono::seconds(20)) {
    return Clock::now() + in;
}

inline boost::uuids::uuid randomId() {
    thread_local boost::uuids::random_generator generator;
    return generator();
}

inline std::shared_ptr<agent::core::container::ServiceContainer> makeContainer(const std::string& endpoint) {
    auto container = std::make_shared<agent::core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    container->connectTransport(endpoint);
    return container;
}

// The outcome of a request: the reply's bytes, "error: <what>", or "no answer".
inline std::string outcome(agent::core::transport::ReplyFuture future, Clock::time_point until = deadline()) {
    if (future.wait_until(until) != std::future_status::ready) {
        return "no answer";
    }
    try {
        return std::string(future.get().asStringView());
    } catch (const std::exception& e) {
        return std::string("error: ") + e.what();
    }
}

}  // namespace agent::spf::testing
