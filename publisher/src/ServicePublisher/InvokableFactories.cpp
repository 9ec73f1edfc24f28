// Invokable factories for every instance the connected directories list.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"

#include "agent/core/transport/Address.h"

#include "foundation/log/Severity.h"

#include <boost/tuple/tuple.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace agent::spf::legacyservicepublisher {

namespace {

constexpr unsigned int kQueryFailuresBeforeTeardown = 3;

}  // namespace

// Call with connectionsMutex held.
bool ServicePublisher::ensureAllKnownServicesHaveInvokables() {
    bool queryFailed = false;
    const auto directoryInstance = agent::core::transport::getWellKnowAddressFor(1).getUUID();
    for (auto connection = agentConnections.begin(); connection != agentConnections.end();) {
        const std::string endpoint = connection->first;
        auto& client = connection->second.directoryClient;
        std::vector<boost::uuids::uuid> instances;
        try {
            if (!client) {
                throw std::runtime_error("No directory client");
            }
            instances = client->queryDirectoryForServiceUUIDs("*");
        } catch (...) {
            queryFailed = true;
            const auto failures = ++directoryQueryFailures[endpoint];
            if (failures >= kQueryFailuresBeforeTeardown) {
                directoryQueryFailures.erase(endpoint);
                cleanUpAgentConnection(endpoint, connection->second, ForceCleanup::Yes);
                connection = agentConnections.erase(connection);
            } else {
                ++connection;
            }
            continue;
        }

        {
            std::lock_guard<std::mutex> lock(notificationMutex);
            for (const auto& instance : instances) {
                if (instance == directoryInstance ||
                    invokableFactories.count(boost::make_tuple(endpoint, instance)) != 0) {
                    continue;
                }
                try {
                    auto stub = client->lookupServiceInstance(instance, agent::core::serviceutils::APIVersion(0));
                    if (!stub.isFound()) {
                        continue;
                    }
                    if (stub.getVersion() == agent::core::serviceutils::APIVersion(0)) {
                        stub = client->lookupServiceInstance(instance, agent::core::serviceutils::APIVersion(1));
                        if (!stub.isFound()) {
                            continue;
                        }
                    }
                    invokableFactories.emplace(endpoint, std::move(stub), connection->second.contextFactory,
                                               serialisationCatalogue, *invokablePublisher);
                } catch (...) {
                    logCurrentException(foundation::log::severity::error,
                                        "Failed to create InvokableFactoryEntry for service: " +
                                            boost::uuids::to_string(instance));
                }
            }
        }
        directoryQueryFailures.erase(endpoint);
        ++connection;
    }
    return queryFailed;
}

}  // namespace agent::spf::legacyservicepublisher
