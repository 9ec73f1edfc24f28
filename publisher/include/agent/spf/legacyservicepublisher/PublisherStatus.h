#pragma once

// What the legacy service publisher is doing, for operators: offered by the publisher bundle as
// "agent::spf::legacyservicepublisher::PublisherStatus" while its component is active.

#include "agent/spf/core/APIVersion.h"
#include "agent/spf/legacyservicepublisher/CallStatistics.h"

#include <cppmicroservices/ServiceInterface.h>

#include <boost/uuid/uuid.hpp>

#include <string>
#include <vector>

namespace agent::spf::legacyservicepublisher {

class PublisherStatus {
public:
    struct Connection {
        enum class State { connected, pending, failed, waiting };
        // What the configurations name: a URL, or a keyword ("inprocess",
        // "korvexConnectorDiscovery", "norbridgeServiceHostDiscovery").
        std::string endpoint;
        // The exchange it reached or looks for: the URL itself, the registry's agent, or empty.
        std::string exchange;
        State state = State::waiting;
        // Why the last attempt failed (failed), or what it waits for (waiting).
        std::string detail;
    };
    struct Service {
        std::string configuration;
        std::string name;
        std::uint32_t major = 0;
        std::string uniqueID;
        std::vector<std::string> runningOn;  // exchange endpoints
        // Why it does not run on an endpoint of its configuration: "<endpoint>: <why>".
        std::vector<std::string> problems;
    };
    struct Invokable {
        std::string name;
        agent::spf::core::APIVersion version;
        std::string endpoint;
        boost::uuids::uuid instance{};
        CallStatistics::Snapshot calls;
    };
    struct Report {
        std::vector<Connection> connections;
        std::vector<Service> services;
        std::vector<Invokable> invokables;
    };

    virtual ~PublisherStatus() = default;
    // Throws std::runtime_error("The publisher has stopped") once its component is deactivated.
    virtual Report report() const = 0;
};

}  // namespace agent::spf::legacyservicepublisher

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(agent::spf::legacyservicepublisher::PublisherStatus,
                                           "agent::spf::legacyservicepublisher::PublisherStatus")
