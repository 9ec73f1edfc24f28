// Making the running service instances match the publisher configurations.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"
#include "ServicePublisher/EndpointKeywords.h"

#include "agent/spf/servicepublisher/HighestVersionedInterfaceWithMatchingPropertiesFinder.h"

#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/Severity.h"

#include <boost/tuple/tuple.hpp>

#include <set>
#include <vector>

namespace agent::spf::legacyservicepublisher {

namespace severity = foundation::log::severity;

namespace {

// The finder's own logger logs what it does not find; the component keeps the text too.
const foundation::log::diagnostic_logger& finderLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::spf::servicepublisher");
    return *logger;
}

}  // namespace

// Call with connectionsMutex held.
std::vector<ServicePublisher::AgentConnections::iterator> ServicePublisher::connectionsSelectedBy(
    const std::string& endpoint) {
    // A live connection's name wins over a keyword of the same spelling.
    if (const auto named = agentConnections.find(endpoint); named != agentConnections.end()) {
        return {named};
    }
    const auto connectionOf = [this](const std::unique_ptr<agent::control::AgentInfo>& agent)
        -> std::vector<AgentConnections::iterator> {
        if (!agent) {
            return {};
        }
        const auto connection = agentConnections.find(agent->getExchange());
        if (connection == agentConnections.end()) {
            return {};
        }
        return {connection};
    };
    if (endpoint == keywords::inProcess) {
        if (!hasInProcess()) {
            return {};
        }
        const auto connection = addInProcessExchangeEndpoint();
        if (connection == agentConnections.end()) {
            return {};
        }
        return {connection};
    }
    if (endpoint == keywords::korvexConnectorDiscovery) {
        return connectionOf(korvexConnectorAgent);
    }
    if (endpoint == keywords::serviceHostDiscovery) {
        return connectionOf(serviceHostAgent);
    }
    if (endpoint == keywords::allEndpoints) {
        std::vector<AgentConnections::iterator> all;
        for (auto connection = agentConnections.begin(); connection != agentConnections.end(); ++connection) {
            all.push_back(connection);
        }
        return all;
    }
    return {};  // not connected (yet): a later pass may find it
}

// Call with connectionsMutex held.
bool ServicePublisher::ensureAllPublisherConfigurationsAreHonoured(ChangeType change) {
    bool allStarted = true;
    std::set<const ServiceEntry*> kept;
    auto& byIdentity = serviceEntries.get<ByIdentity>();
    const auto& byUuid = serviceInterfaces.get<ByUuid>();
    const auto& byNameAndVersion = serviceInterfaces.get<ByNameAndVersion>();

    for (const auto& [key, configuration] : publisherConfigurations) {
        for (const auto& configuredEndpoint : configuration.endpoints) {
            for (const auto connection : connectionsSelectedBy(configuredEndpoint)) {
                const std::string& endpoint = connection->first;
                for (const auto& requested : configuration.serviceConfigurations) {
                    const auto running = byIdentity.find(boost::make_tuple(endpoint, key, requested.uniqueID));
                    if (running != byIdentity.end()) {
                        // An instance whose interface went is left out: stopped now, made anew
                        // on a current interface by a later call.
                        if (byUuid.count(running->interfaceId) != 0) {
                            kept.insert(&*running);
                        }
                        continue;
                    }
                    if (change == ChangeType::InterfaceWithdrawn) {
                        continue;
                    }
                    // Only the major version counts. Why the finder found nothing is logged under its
                    // own logger's name when it is news (every pass would repeat it), and the status
                    // report keeps it.
                    std::string notFound;
                    const agent::spf::servicepublisher::HighestVersionedInterfaceWithMatchingPropertiesFinder finder(
                        requested.name, agent::spf::core::APIVersion(requested.version.major),
                        requested.requestedProperties, [&notFound](const std::string& text) { notFound = text; });
                    const auto found = finder(byNameAndVersion);
                    if (noteServiceProblem(key, requested.uniqueID, endpoint, notFound) && !notFound.empty()) {
                        FOUNDATION_LOG(finderLogger(), severity::warning) << notFound;
                    }
                    if (found == byNameAndVersion.end()) {
                        continue;
                    }
                    try {
                        if (connection->second.directoryClient) {
                            removeExpiredDuplicateServicesIfRequired(*connection->second.directoryClient,
                                                                     requested.name, requested.requestedProperties,
                                                                     requested.version.major);
                        }
                        auto context = connection->second.contextFactory(0);
                        auto service = found->create();
                        const auto started =
                            serviceEntries.emplace_back(endpoint, key, requested.uniqueID, found->uuid,
                                                        std::move(context), requested.requestedProperties,
                                                        std::move(service));
                        kept.insert(&*started.first);
                    } catch (...) {
                        noteServiceProblem(key, requested.uniqueID, endpoint,
                                           "the service did not start: " + currentExceptionMessage());
                        logCurrentException(severity::error, "Unable to create Service instance for PID: " + key +
                                                                 " with uniqueID: " + requested.uniqueID +
                                                                 " on exchange endpoint: " + endpoint);
                        allStarted = false;
                    }
                }
            }
        }
    }

    if (change != ChangeType::InterfaceAdded) {
        std::vector<const ServiceEntry*> unwanted;
        for (const auto& entry : serviceEntries.get<BySequence>()) {
            if (kept.count(&entry) == 0) {
                unwanted.push_back(&entry);
            }
        }
        // Each erasure stops its service.
        for (const auto* entry : unwanted) {
            serviceEntries.erase(serviceEntries.iterator_to(*entry));
        }
    }
    return allStarted;
}

}  // namespace agent::spf::legacyservicepublisher
