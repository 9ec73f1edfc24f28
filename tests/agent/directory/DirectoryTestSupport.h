#pragma once

// Shared by the directory tests: the agent tests' bounded waits, ids, containers and stand-in
// exchange, and a builder for directory entries.

#include "agent/AgentTestSupport.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"

#include <map>
#include <string>

namespace agent::directory::testing {

using namespace agent::testing;

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

}  // namespace agent::directory::testing
