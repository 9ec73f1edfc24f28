#pragma once

#include <boost/uuid/uuid.hpp>

#include <string>

namespace agent::directoryinterfaces {

// A service instance left the directory: deregistered, its container's connection went,
// or (for the instance named "directory") the exchange is shutting down.
struct ServiceStoppedNotification {
    std::string serviceName;
    boost::uuids::uuid serviceInstance{};

    friend bool operator==(const ServiceStoppedNotification& a, const ServiceStoppedNotification& b) {
        return a.serviceName == b.serviceName && a.serviceInstance == b.serviceInstance;
    }
};

}  // namespace agent::directoryinterfaces
