// Which endpoints the configurations ask for, literally or by keyword, and the running agents
// behind the discovery keywords.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Opens and closes no connection yet.
void ServicePublisher::ensureAllConfiguredAgentConnectionsAreHonoured(const std::set<std::string>&) {}

// Discovers no agent yet.
std::pair<std::string, bool> ServicePublisher::checkStatusOfKORVEXConnector(std::unique_ptr<agent::control::AgentInfo>&,
                                                                           ConnectorMode, std::set<std::string>&,
                                                                           const std::set<std::string>&) {
    return {std::string(), false};
}

}  // namespace agent::spf::legacyservicepublisher
