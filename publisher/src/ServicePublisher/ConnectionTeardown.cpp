// Tearing connections down, in order or by force.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/log/Severity.h"

#include <boost/tuple/tuple.hpp>

namespace agent::spf::legacyservicepublisher {

namespace severity = foundation::log::severity;

namespace {

bool isExchangeOf(const std::unique_ptr<agent::control::AgentInfo>& agent, const std::string& endpoint) {
    return agent && agent->getExchange() == endpoint;
}

}  // namespace

// Call with connectionsMutex held (or while deactivating, when nothing else runs).
void ServicePublisher::cleanUpAgentConnection(const std::string& endpoint, AgentConnection& connection,
                                              ForceCleanup force) {
    FOUNDATION_LOG(getLogger(), severity::info) << "Cleaning up Agent Connection for exchange endpoint: " << endpoint;

    // A dead exchange would make every orderly step below wait in vain: cut the transport
    // first. The exchange of a discovered agent is cut too while an agent of its kind runs.
    bool cutFirst = force == ForceCleanup::Yes;
    if (!cutFirst) {
        std::optional<AgentStatus> status;
        if (isExchangeOf(korvexConnectorAgent, endpoint)) {
            status = lookUpRunningAgents(korvexConnectorAgent.get(), ConnectorMode::KORVEXDrive);
        } else if (isExchangeOf(serviceHostAgent, endpoint)) {
            status = lookUpRunningAgents(serviceHostAgent.get(), ConnectorMode::DesktopServices);
        }
        cutFirst = status && status->code <= AgentStatus::KnownGone;
    }
    if (cutFirst && connection.cleanup) {
        connection.cleanup(ForceCleanup::Yes);
    }

    if (!connection.callbackRegistrationId.is_nil() && connection.directoryClient) {
        try {
            connection.directoryClient->deregisterFromCallbacks(connection.callbackRegistrationId);
        } catch (...) {
            FOUNDATION_LOG(getLogger(), severity::error) << "Deregistering from callbacks failed";
        }
        // No notification for this endpoint runs or will run after this.
        connection.directoryClient->getAssociatedContext().getThreadPool().wait();
        connection.directoryClient.reset();
    }

    {
        std::lock_guard<std::mutex> lock(notificationMutex);
        const auto published = invokableFactories.equal_range(boost::make_tuple(endpoint));
        invokableFactories.erase(published.first, published.second);
    }

    auto& running = serviceEntries.get<ByEndpoint>();
    const auto onEndpoint = running.equal_range(endpoint);
    running.erase(onEndpoint.first, onEndpoint.second);

    // Whatever came before: an orderly disconnect, and the container is let go.
    if (connection.cleanup) {
        connection.cleanup(ForceCleanup::No);
    }

    if (isExchangeOf(korvexConnectorAgent, endpoint)) {
        korvexConnectorAgent.reset();
    }
    if (isExchangeOf(serviceHostAgent, endpoint)) {
        serviceHostAgent.reset();
    }
}

// Call with connectionsMutex held (or while deactivating, when nothing else runs).
void ServicePublisher::cleanUpAgentConnection(const std::string& endpoint, ForceCleanup force) {
    const auto connection = agentConnections.find(endpoint);
    if (connection == agentConnections.end()) {
        return;
    }
    cleanUpAgentConnection(endpoint, connection->second, force);
    agentConnections.erase(connection);
}

// Call with connectionsMutex held (or while deactivating, when nothing else runs).
void ServicePublisher::cleanUpAllAgentConnections() {
    for (auto& [endpoint, connection] : agentConnections) {
        cleanUpAgentConnection(endpoint, connection, ForceCleanup::No);
    }
    agentConnections.clear();
}

}  // namespace agent::spf::legacyservicepublisher
