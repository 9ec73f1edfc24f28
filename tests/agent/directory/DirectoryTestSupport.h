#pragma once

// Shared by the directory tests: bounded waits, an exchange on inproc:// with containers
// dialling it, and small builders for directory entries.

#include "support/Barrier.h"
#include "agent/core/container/ServiceContainer.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/directoryinterfaces/ServiceNotification.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace agent::directory::testing {

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

inline std::string inprocUrl() {
    static std::atomic<int> counter{0};
    return "inproc://directory-test-" + std::to_string(counter.fetch_add(1));
}

// A connected container with a bounded pool.
inline std::shared_ptr<core::container::ServiceContainer> makeContainer(
    const std::string& endpoint, std::chrono::milliseconds requestTimeout = 5000ms) {
    auto container = std::make_shared<core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(nanomsgtransport::getTransport(*container, requestTimeout, 5000ms));
    container->connectTransport(endpoint);
    return container;
}

// Polls `condition` until it holds or the deadline passes (for state without a signal).
template <class Condition>
bool eventually(Condition condition, Clock::time_point until = deadline()) {
    while (!condition()) {
        if (Clock::now() >= until) {
            return condition();
        }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

// Releases a fixed number of threads at once.
using StartBarrier = testsupport::Barrier;

inline directoryinterfaces::ServiceInstanceInfo instance(const std::string& name,
                                                         std::map<std::string, std::string> metadata = {},
                                                         const boost::uuids::uuid& node = {}) {
    directoryinterfaces::ServiceInstanceInfo info;
    info.name = name;
    info.instance = randomId();
    info.metadata = std::move(metadata);
    info.node = node;
    return info;
}

// "started <name>" or "stopped <name>".
inline std::string describe(const directoryinterfaces::ServiceNotification& n) {
    if (const auto* started = boost::get<directoryinterfaces::ServiceStartedNotification>(&n)) {
        return "started " + started->serviceName;
    }
    return "stopped " + boost::get<directoryinterfaces::ServiceStoppedNotification>(n).serviceName;
}

}  // namespace agent::directory::testing
