// Which endpoints the configurations ask for, literally or by keyword, and the running agents
// behind the discovery keywords.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"
#include "ServicePublisher/EndpointKeywords.h"
#include "InProcessDiscoveryImpl.h"

#include "agent/control/AgentRegistry.h"
#include "agent/spf/externalprocessdiscovery/UserStorageRootOverride.h"
#include "agent/spf/legacyservicepublisher/Logger.h"
#include "agent/utils/FolderLocations.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "foundation/log/Severity.h"
#include "foundation/text/Utf.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace agent::spf::legacyservicepublisher {

namespace severity = foundation::log::severity;
using agent::control::AgentInfo;

namespace {

// How often the registry is read again when an entry is caught half-written.
constexpr unsigned int kRegistryRetries = 3;

boost::optional<std::filesystem::path> asPath(const boost::optional<std::u16string>& text) {
    if (!text) {
        return boost::none;
    }
    return std::filesystem::path(foundation::text::toUtf8(*text));
}

bool sameAgent(const AgentInfo& a, const AgentInfo& b) {
    return a.getName() == b.getName() && a.getExchange() == b.getExchange() && a.getProcessID() == b.getProcessID();
}

}  // namespace

ServicePublisher::AgentStatus ServicePublisher::lookUpRunningAgents(const AgentInfo* known, ConnectorMode mode) const {
    try {
        const auto filter =
            std::string("(mode=") + (mode == ConnectorMode::KORVEXDrive ? "korvexdrive" : "desktopservices") + ")";
        boost::optional<std::u16string> storageRoot;
        boost::optional<std::u16string> lockRoot;
        using Override = agent::spf::externalprocessdiscovery::UserStorageRootOverride;
        // A copy of the handle: the context's service calls are not const.
        auto context = bundleContext;
        const auto references = context.GetServiceReferences<Override>(filter);
        if (!references.empty()) {
            if (const auto override = context.GetService(references.front())) {
                storageRoot = override->getUserStorageRootOverride();
                lockRoot = override->getLockRootOverride();
            }
        }
        // Without an override service the default locations hold.
        const std::filesystem::path root =
            mode == ConnectorMode::KORVEXDrive
                ? agent::utils::FolderLocations(storageRoot, asPath(lockRoot)).lockRoot()
                : korvexconnector::serviceprocess::FolderLocations(storageRoot, asPath(lockRoot), desktopRealmName)
                      .lockRoot();
        if (root.empty()) {
            return {AgentStatus::NoneRunning, std::nullopt};
        }
        auto running = agent::control::enumerateAllRunningAgents(root, kRegistryRetries);
        if (running.empty()) {
            return {AgentStatus::NoneRunning, std::nullopt};
        }
        if (!known) {
            return {AgentStatus::FirstFound, std::move(running.front())};
        }
        const auto same = std::find_if(running.begin(), running.end(),
                                       [known](const AgentInfo& agent) { return sameAgent(agent, *known); });
        if (same != running.end()) {
            return {AgentStatus::KnownRunning, std::move(*same)};
        }
        return {AgentStatus::KnownGone, std::move(running.front())};
    } catch (...) {
        FOUNDATION_LOG(getLogger(), severity::exception) << "Exception caught: " << currentExceptionMessage();
        return {AgentStatus::Failed, std::nullopt};
    }
}

// Call with connectionsMutex held.
std::pair<std::string, bool> ServicePublisher::checkStatusOfKORVEXConnector(std::unique_ptr<AgentInfo>& known,
                                                                           ConnectorMode mode,
                                                                           std::set<std::string>& keep,
                                                                           const std::set<std::string>& justShutDown) {
    auto status = lookUpRunningAgents(known.get(), mode);
    if (known && (status.code == AgentStatus::KnownGone || status.code == AgentStatus::NoneRunning)) {
        // The agent in use has gone: nothing orderly can be expected of its exchange. Tearing
        // its connection down forgets the agent too.
        const auto exchange = known->getExchange();
        cleanUpAgentConnection(exchange, ForceCleanup::Yes);
    }
    if (status.code == AgentStatus::FirstFound || status.code == AgentStatus::KnownGone) {
        const std::string exchange = status.agent->getExchange();
        if (justShutDown.count(exchange) != 0) {
            FOUNDATION_LOG(getLogger(), severity::info)
                << "AgentConnection to " << exchange << " vetoed once as it has just shutdown.";
            return {std::string(), false};
        }
        if (agentConnections.count(exchange) != 0) {
            FOUNDATION_LOG(getLogger(), severity::info)
                << "Skipping discovered exchange endpoint as we already have an AgentConnection for it: " << exchange;
            return {exchange, false};
        }
        auto connection = createNewAgentConnection(exchange);
        if (!connection) {
            FOUNDATION_LOG(getLogger(), severity::info) << "Unable to create AgentConnection to " << exchange;
            return {std::string(), false};
        }
        agentConnections.emplace(exchange, std::move(*connection));
        known = std::make_unique<AgentInfo>(std::move(*status.agent));
        keep.insert(exchange);
        return {exchange, true};
    }
    if ((status.code == AgentStatus::KnownRunning || status.code == AgentStatus::Failed) && known) {
        // A registry that cannot be read keeps the connection in use.
        keep.insert(known->getExchange());
        return {known->getExchange(), false};
    }
    return {std::string(), false};
}

// Call with connectionsMutex held.
void ServicePublisher::ensureAllConfiguredAgentConnectionsAreHonoured(const std::set<std::string>& justShutDown) {
    std::set<std::string> wanted;
    for (const auto& [key, configuration] : publisherConfigurations) {
        std::set_difference(configuration.endpoints.begin(), configuration.endpoints.end(),
                            failedAgentConnections.begin(), failedAgentConnections.end(),
                            std::inserter(wanted, wanted.end()));
    }
    for (const auto& endpoint : justShutDown) {
        wanted.erase(endpoint);
    }

    std::set<std::string> keep;
    for (const auto& endpoint : wanted) {
        if (endpoint == keywords::inProcess) {
            keep.insert(endpoint);
            const auto connection = agentConnections.find(keywords::inProcess);
            const bool available = hasInProcess();
            if (connection != agentConnections.end() && !available) {
                FOUNDATION_LOG(getLogger(), severity::info)
                    << "Had inprocess discovery, but it has gone away, cleaning up";
                cleanUpAgentConnection(keywords::inProcess, connection->second, ForceCleanup::No);
                agentConnections.erase(connection);
            } else if (connection == agentConnections.end() && available) {
                addInProcessExchangeEndpoint();
            }
        } else if (endpoint == keywords::korvexConnectorDiscovery) {
            checkStatusOfKORVEXConnector(korvexConnectorAgent, ConnectorMode::KORVEXDrive, keep, justShutDown);
        } else if (endpoint == keywords::serviceHostDiscovery) {
            const auto [exchange, connected] =
                checkStatusOfKORVEXConnector(serviceHostAgent, ConnectorMode::DesktopServices, keep, justShutDown);
            if (connected || exchange != serviceHostExchange) {
                withdrawInProcessBridge();
                serviceHostExchange = exchange;
            }
            if (!serviceHostExchange.empty() && !inProcessBridgeRegistration) {
                const auto host = agentConnections.find(serviceHostExchange);
                if (host != agentConnections.end()) {
                    inProcessBridgeRegistration =
                        registerInProcessDiscoveryImpl(bundleContext, host->second.contextFactory);
                }
            }
        } else if (endpoint == keywords::allEndpoints) {
            // Selects what is connected anyway; it has no connection of its own.
        } else {
            keep.insert(endpoint);
            if (agentConnections.count(endpoint) == 0 && pendingAgentConnections.count(endpoint) == 0) {
                createNewAgentConnectionAsync(endpoint);
            }
        }
    }

    for (auto connection = agentConnections.begin(); connection != agentConnections.end();) {
        if (keep.count(connection->first) != 0) {
            ++connection;
            continue;
        }
        cleanUpAgentConnection(connection->first, connection->second, ForceCleanup::No);
        connection = agentConnections.erase(connection);
    }
}

// Call with connectionsMutex held.
void ServicePublisher::withdrawInProcessBridge() noexcept {
    if (!inProcessBridgeRegistration) {
        return;
    }
    try {
        inProcessBridgeRegistration.Unregister();
    } catch (...) {
        // Already gone with the bundle context; nothing is left to withdraw.
    }
    inProcessBridgeRegistration = nullptr;
    serviceHostExchange.clear();
}

}  // namespace agent::spf::legacyservicepublisher
