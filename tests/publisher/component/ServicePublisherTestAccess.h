#pragma once

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include <boost/uuid/uuid.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace agent::spf::legacyservicepublisher {

// Reads, seeds and calls into a publisher under the locks the publisher itself uses there.
class ServicePublisherTestAccess {
    using Lock = std::lock_guard<std::mutex>;
    using Publisher = ServicePublisher;

public:
    using AgentConnection = Publisher::AgentConnection;
    using ForceCleanup = Publisher::ForceCleanup;

    static std::string configurationKey(const std::string& pid) { return Publisher::configurationKey(pid); }
    static auto configurations(Publisher& p) { Lock lock(p.connectionsMutex); return p.publisherConfigurations; }
    static auto failedAgentConnections(Publisher& p) { Lock lock(p.connectionsMutex); return p.failedAgentConnections; }
    static void markFailed(Publisher& p, const std::string& endpoint) {
        Lock lock(p.connectionsMutex);
        p.failedAgentConnections.insert(endpoint);
    }
    static auto pendingConnections(Publisher& p) {
        Lock lock(p.connectionsMutex);
        return keysOf(p.pendingAgentConnections);
    }
    static auto connectedEndpoints(Publisher& p) { Lock lock(p.connectionsMutex); return keysOf(p.agentConnections); }
    static auto connectionTaskGroup(const Publisher& p) { return p.connectionTaskGroup; }
    static auto interfaceCount(Publisher& p) { Lock lock(p.connectionsMutex); return p.serviceInterfaces.size(); }
    // The builder of the interface published under id, which must exist.
    static auto builderOf(Publisher& p, const boost::uuids::uuid& id) {
        Lock lock(p.connectionsMutex);
        return p.serviceInterfaces.get<Publisher::ByUuid>().find(id)->serviceBuilder;
    }

    // Queues an endpoint for forced teardown, as a directory reporting its own stop does.
    static void queueForcedTeardown(Publisher& p, const std::string& endpoint) {
        Lock lock(p.workMutex);
        p.endpointsToForceTeardown.insert(endpoint);
    }
    static auto endpointsToForceTeardown(Publisher& p) { Lock lock(p.workMutex); return p.endpointsToForceTeardown; }

    // What a connection of the publisher does with its directory.
    static auto registerForCallbacks(Publisher& p, const std::string& endpoint,
                                     directory::DirectoryServiceClient& client) {
        return p.registerForCallbacks(endpoint, client);
    }
    static void serviceStopped(Publisher& p, const std::string& endpoint, const std::string& name) {
        p.serviceStoppedNotification(endpoint, {name, boost::uuids::uuid{{1}}});
    }
    static void removeExpiredDuplicates(Publisher& p, directory::DirectoryServiceClient& client,
                                        const std::string& name, const boost::property_tree::ptree& metadata,
                                        unsigned int majorVersion) {
        p.removeExpiredDuplicateServicesIfRequired(client, name, metadata, majorVersion);
    }

    // Connections, made and torn down as the work thread does, under the lock it holds then.
    static auto createNewAgentConnection(Publisher& p, const std::string& endpoint) {
        return p.createNewAgentConnection(endpoint);
    }
    static void createNewAgentConnectionAsync(Publisher& p, const std::string& endpoint) {
        Lock lock(p.connectionsMutex);
        p.createNewAgentConnectionAsync(endpoint);
    }
    static void addConnection(Publisher& p, const std::string& endpoint, AgentConnection connection) {
        Lock lock(p.connectionsMutex);
        p.agentConnections.emplace(endpoint, std::move(connection));
    }
    static void cleanUp(Publisher& p, const std::string& endpoint, AgentConnection& connection, ForceCleanup force) {
        Lock lock(p.connectionsMutex);
        p.cleanUpAgentConnection(endpoint, connection, force);
    }
    // The directory client of the connection to `endpoint`, which must exist; it lives as long as
    // the connection.
    static directory::DirectoryServiceClient& directoryClientOf(Publisher& p, const std::string& endpoint) {
        Lock lock(p.connectionsMutex);
        return *p.agentConnections.at(endpoint).directoryClient;
    }
    // A context from the connection to `endpoint` (which must exist), as a service gets one.
    static auto contextOn(Publisher& p, const std::string& endpoint) {
        Lock lock(p.connectionsMutex);
        return p.agentConnections.at(endpoint).contextFactory(1);
    }

    static bool hasInProcess(const Publisher& p) { return p.hasInProcess(); }

    // The invokable-factory step of a pass, and the directory query failures it counts.
    static bool publishInvokables(Publisher& p) {
        Lock lock(p.connectionsMutex);
        return p.ensureAllKnownServicesHaveInvokables();
    }
    static auto queryFailures(Publisher& p) { Lock lock(p.connectionsMutex); return p.directoryQueryFailures; }
    static void setQueryFailures(Publisher& p, const std::string& endpoint, unsigned int count) {
        Lock lock(p.connectionsMutex);
        p.directoryQueryFailures[endpoint] = count;
    }

private:
    template <class Map>
    static std::set<std::string> keysOf(const Map& map) {
        std::set<std::string> keys;
        for (const auto& entry : map) {
            keys.insert(entry.first);
        }
        return keys;
    }
};

}  // namespace agent::spf::legacyservicepublisher
