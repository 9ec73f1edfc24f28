#pragma once

#include <boost/uuid/uuid.hpp>

#include <string>

namespace agent::directoryinterfaces {

// A service instance appeared in the directory (or, for a retrospective subscription,
// was already running when the subscription began).
struct ServiceStartedNotification {
    std::string serviceName;
    boost::uuids::uuid serviceInstance{};

    friend bool operator==(const ServiceStartedNotification& a, const ServiceStartedNotification& b) {
        return a.serviceName == b.serviceName && a.serviceInstance == b.serviceInstance;
    }
};

}  // namespace agent::directoryinterfaces
