#pragma once

// Shared by the directory tests: bounded waits, an exchange on inproc:// with containers
// dialling it, and small builders for directory entries.

#include "agent/AgentTestSupport.h"
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

// Bounded waits, ids and containers are the agent tests' own.
using agent::testing::Clock;
using agent::testing::deadline;
using agent::testing::eventually;
using agent::testing::inprocUrl;
using agent::testing::makeContainer;
using agent::testing::randomId;
using namespace std::chrono_literals;

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
