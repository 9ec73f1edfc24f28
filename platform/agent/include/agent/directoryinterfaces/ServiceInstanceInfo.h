#pragma once

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/core/transport/Address.h"

#include <boost/uuid/uuid.hpp>

#include <map>
#include <string>

namespace agent::directoryinterfaces {

// What the directory knows of one service instance. A plain value.
struct ServiceInstanceInfo {
    std::string name;
    boost::uuids::uuid instance{};
    core::serviceutils::APIVersion version;
    std::map<std::string, std::string> metadata;
    // Method name → the address its requests go to.
    std::map<std::string, core::transport::Address> methods;
    // The container (node) that registered it; its instances go when its connection goes.
    boost::uuids::uuid node{};
};

}  // namespace agent::directoryinterfaces
