#pragma once

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include <boost/uuid/uuid.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace agent::spf::legacyservicepublisher {

// Reads and seeds a publisher's state under the locks the publisher itself uses.
class ServicePublisherTestAccess {
public:
    using PublisherConfiguration = ServicePublisher::PublisherConfiguration;
    using ServiceConfiguration = ServicePublisher::ServiceConfiguration;
    using ServiceInterfaceEntry = ServicePublisher::ServiceInterfaceEntry;

    static std::map<std::string, PublisherConfiguration> configurations(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        return publisher.publisherConfigurations;
    }

    static std::string configurationKey(const std::string& pid) { return ServicePublisher::configurationKey(pid); }

    static std::set<std::string> failedAgentConnections(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        return publisher.failedAgentConnections;
    }

    static void markFailed(ServicePublisher& publisher, const std::string& endpoint) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.failedAgentConnections.insert(endpoint);
    }

    static std::size_t interfaceCount(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        return publisher.serviceInterfaces.size();
    }

    // The builder of the interface published under id; null when there is no such entry.
    static std::shared_ptr<agent::core::service::ServiceBuilderBase> builderOf(ServicePublisher& publisher,
                                                                              const boost::uuids::uuid& id) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        const auto& byUuid = publisher.serviceInterfaces.get<ServicePublisher::ByUuid>();
        const auto entry = byUuid.find(id);
        return entry == byUuid.end() ? nullptr : entry->serviceBuilder;
    }

    // (name, version text) of every interface, in name and version order.
    static std::vector<std::pair<std::string, std::string>> interfacesByNameAndVersion(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        std::vector<std::pair<std::string, std::string>> result;
        for (const auto& entry : publisher.serviceInterfaces.get<ServicePublisher::ByNameAndVersion>()) {
            result.emplace_back(entry.getServiceInterfaceName(), entry.getServiceInterfaceVersion().toString());
        }
        return result;
    }

    // Queues endpoints for forced teardown and wakes the work thread, as a directory reporting
    // its own stop does.
    static void queueForcedTeardown(ServicePublisher& publisher, const std::set<std::string>& endpoints) {
        {
            std::lock_guard<std::mutex> lock(publisher.workMutex);
            publisher.endpointsToForceTeardown.insert(endpoints.begin(), endpoints.end());
        }
        publisher.workCondition.notify_one();
    }

    static std::set<std::string> endpointsToForceTeardown(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.workMutex);
        return publisher.endpointsToForceTeardown;
    }

    // The directory operations, called as a connection of the publisher calls them.
    static boost::uuids::uuid registerForCallbacks(ServicePublisher& publisher, const std::string& endpoint,
                                                   agent::directory::DirectoryServiceClient& client) {
        return publisher.registerForCallbacks(endpoint, client);
    }

    static void serviceStopped(ServicePublisher& publisher, const std::string& endpoint, const std::string& name,
                               const boost::uuids::uuid& instance) {
        publisher.serviceStoppedNotification(endpoint, {name, instance});
    }

    static void removeExpiredDuplicateServicesIfRequired(ServicePublisher& publisher,
                                                         agent::directory::DirectoryServiceClient& client,
                                                         const std::string& serviceName,
                                                         const boost::property_tree::ptree& metadata,
                                                         unsigned int majorVersion) {
        publisher.removeExpiredDuplicateServicesIfRequired(client, serviceName, metadata, majorVersion);
    }

    // Connections, made and torn down as the work thread does (under connectionsMutex where
    // it holds it).
    using AgentConnection = ServicePublisher::AgentConnection;
    using ForceCleanup = ServicePublisher::ForceCleanup;

    static std::optional<AgentConnection> createNewAgentConnection(ServicePublisher& publisher,
                                                                   const std::string& endpoint) {
        return publisher.createNewAgentConnection(endpoint);
    }

    static void createNewAgentConnectionAsync(ServicePublisher& publisher, const std::string& endpoint) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.createNewAgentConnectionAsync(endpoint);
    }

    // Asks the pending creation for `endpoint` to stop, as Deactivate does.
    static void stopPendingConnection(ServicePublisher& publisher, const std::string& endpoint) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        const auto pending = publisher.pendingAgentConnections.find(endpoint);
        if (pending != publisher.pendingAgentConnections.end() && pending->second) {
            pending->second->requestStop();
        }
    }

    static std::set<std::string> pendingConnections(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        std::set<std::string> endpoints;
        for (const auto& pending : publisher.pendingAgentConnections) {
            endpoints.insert(pending.first);
        }
        return endpoints;
    }

    static std::set<std::string> connectedEndpoints(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        std::set<std::string> endpoints;
        for (const auto& connection : publisher.agentConnections) {
            endpoints.insert(connection.first);
        }
        return endpoints;
    }

    static void addConnection(ServicePublisher& publisher, const std::string& endpoint, AgentConnection connection) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.agentConnections.emplace(endpoint, std::move(connection));
    }

    static void cleanUpAgentConnection(ServicePublisher& publisher, const std::string& endpoint,
                                       AgentConnection& connection, ForceCleanup force) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.cleanUpAgentConnection(endpoint, connection, force);
    }

    static void cleanUpAgentConnection(ServicePublisher& publisher, const std::string& endpoint, ForceCleanup force) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.cleanUpAgentConnection(endpoint, force);
    }

    static void cleanUpAllAgentConnections(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.cleanUpAllAgentConnections();
    }

    // The in-process exchange.
    static bool hasInProcess(const ServicePublisher& publisher) { return publisher.hasInProcess(); }

    static std::shared_ptr<ServicePublisher::InProcessDiscovery> inProcessDiscoveryInUse(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.inProcessMutex);
        return publisher.inProcessDiscovery;
    }

    static void addInProcessExchangeEndpoint(ServicePublisher& publisher) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        publisher.addInProcessExchangeEndpoint();
    }

    // The subscription of the connection to `endpoint`; nil without one.
    static boost::uuids::uuid subscriptionOf(ServicePublisher& publisher, const std::string& endpoint) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        const auto connection = publisher.agentConnections.find(endpoint);
        return connection == publisher.agentConnections.end() ? boost::uuids::uuid{}
                                                              : connection->second.callbackRegistrationId;
    }

    // A context from the connection to `endpoint` (which must exist), as a service gets one.
    static agent::core::serviceutils::Context contextOn(ServicePublisher& publisher, const std::string& endpoint,
                                                        unsigned int concurrency) {
        std::lock_guard<std::mutex> lock(publisher.connectionsMutex);
        return publisher.agentConnections.at(endpoint).contextFactory(concurrency);
    }

    static const boost::uuids::uuid& connectionTaskGroup(const ServicePublisher& publisher) {
        return publisher.connectionTaskGroup;
    }

    static bool workThreadJoinable(const ServicePublisher& publisher) { return publisher.workThread.joinable(); }

    static bool bundleContextValid(const ServicePublisher& publisher) {
        return static_cast<bool>(publisher.bundleContext);
    }
};

}  // namespace agent::spf::legacyservicepublisher
