// The managed-service-factory side: factory configurations parsed into publisher
// configurations, recorded by key and modification count.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"

#include "foundation/log/Severity.h"

#include <cppmicroservices/Any.h>

#include <boost/property_tree/json_parser.hpp>

#include <sstream>

namespace agent::spf::legacyservicepublisher {

namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;

// The int at key (a compound key) of map, or fallback when the key is absent. A value of
// another type throws cppmicroservices::BadAnyCastException.
int intAt(const AnyMap& map, const std::string& key, int fallback) {
    return cppmicroservices::any_cast<int>(map.AtCompoundKey(key, Any(fallback)));
}

boost::property_tree::ptree requestedPropertiesTree(const AnyMap& requested) {
    boost::property_tree::ptree tree;
    if (requested.empty()) {
        return tree;
    }
    try {
        std::stringstream json;
        cppmicroservices::any_value_to_json(json, requested);
        boost::property_tree::read_json(json, tree);
    } catch (...) {
        logCurrentException(foundation::log::severity::error, "Invalid ServiceConfiguration requestedProperties");
        tree.clear();
    }
    return tree;
}

}  // namespace

std::string ServicePublisher::configurationKey(const std::string& pid) {
    // A fixed cut, not a search for '~': the factory PID "qz.spf.legacyservicepublisher" and its
    // separator take exactly 30 characters.
    constexpr std::size_t prefixLength = 30;
    return pid.size() <= prefixLength ? pid : pid.substr(prefixLength);
}

ServicePublisher::PublisherConfiguration ServicePublisher::toPublisherConfiguration(const AnyMap& properties) {
    const auto modificationCount = static_cast<unsigned int>(intAt(properties, "modificationCount", 0));

    std::set<std::string> endpoints;
    for (const auto& element :
         cppmicroservices::ref_any_cast<std::vector<Any>>(properties.AtCompoundKey("config.endpointsToConnectTo"))) {
        try {
            endpoints.insert(cppmicroservices::any_cast<std::string>(element));
        } catch (...) {
            logCurrentException(foundation::log::severity::error, "Invalid PublisherConfiguration exchangeEndpoint");
        }
    }

    const auto& services =
        cppmicroservices::ref_any_cast<std::vector<Any>>(properties.AtCompoundKey("serviceConfigurations"));
    std::vector<ServiceConfiguration> serviceConfigurations;
    serviceConfigurations.reserve(services.size());
    for (const auto& element : services) {
        try {
            const auto& service = cppmicroservices::ref_any_cast<AnyMap>(element);
            auto name = cppmicroservices::any_cast<std::string>(service.AtCompoundKey("name"));
            const agent::spf::core::APIVersion version(static_cast<std::uint32_t>(intAt(service, "version.major", 1)),
                                                       static_cast<std::uint32_t>(intAt(service, "version.minor", 0)),
                                                       static_cast<std::uint32_t>(intAt(service, "version.patch", 0)),
                                                       static_cast<std::uint32_t>(intAt(service, "version.extension", 0)));
            const auto requested =
                requestedPropertiesTree(cppmicroservices::ref_any_cast<AnyMap>(service.AtCompoundKey("requestedProperties")));
            auto uniqueID = cppmicroservices::any_cast<std::string>(service.AtCompoundKey("uniqueID"));
            serviceConfigurations.emplace_back(std::move(name), version, requested, std::move(uniqueID));
        } catch (...) {
            logCurrentException(foundation::log::severity::error, "Invalid PublisherConfiguration ServiceConfiguration");
        }
    }
    return PublisherConfiguration(std::move(endpoints), std::move(serviceConfigurations), modificationCount);
}

void ServicePublisher::Updated(const std::string& pid, const AnyMap& properties) {
    if (properties.empty()) {
        return;
    }
    const auto key = configurationKey(pid);
    auto configuration = toPublisherConfiguration(properties);
    {
        std::lock_guard<std::mutex> lock(connectionsMutex);
        const auto stored = publisherConfigurations.find(key);
        if (stored == publisherConfigurations.end()) {
            publisherConfigurations.emplace(key, std::move(configuration));
        } else if (configuration.modificationCount <= stored->second.modificationCount) {
            return;
        } else {
            stored->second.endpoints = std::move(configuration.endpoints);
            stored->second.serviceConfigurations = std::move(configuration.serviceConfigurations);
            stored->second.modificationCount = configuration.modificationCount;
        }
        // A changed configuration gives endpoints that failed for good a new chance.
        failedAgentConnections.clear();
        forgetServiceProblemsOf(key);
        ensureAllPublisherConfigurationsAreHonoured(ChangeType::ConfigurationOrPass);
    }
    stateChanged.notify_all();
    wakeWorkThread();
}

void ServicePublisher::Removed(const std::string& pid) {
    const auto key = configurationKey(pid);
    {
        std::lock_guard<std::mutex> lock(connectionsMutex);
        const auto stored = publisherConfigurations.find(key);
        if (stored == publisherConfigurations.end()) {
            return;
        }
        publisherConfigurations.erase(stored);
        failedAgentConnections.clear();
        forgetServiceProblemsOf(key);
    }
    // The work thread's next pass stops the services no configuration asks for any more.
    wakeWorkThread();
}

}  // namespace agent::spf::legacyservicepublisher
