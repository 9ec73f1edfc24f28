// Connections to exchange endpoints, made on the work thread or as pool tasks.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Connects nowhere yet.
std::optional<ServicePublisher::AgentConnection> ServicePublisher::createNewAgentConnection(const std::string&) {
    return std::nullopt;
}

// Posts no task yet.
void ServicePublisher::createNewAgentConnectionAsync(const std::string&) {}

}  // namespace agent::spf::legacyservicepublisher
