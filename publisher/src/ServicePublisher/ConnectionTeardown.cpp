// Tearing connections down, in order or by force.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Leaves the connection as it is for now.
void ServicePublisher::cleanUpAgentConnection(const std::string&, AgentConnection&, ForceCleanup) {}

// Leaves agentConnections as it is for now.
void ServicePublisher::cleanUpAgentConnection(const std::string&, ForceCleanup) {}

// Leaves agentConnections as it is for now.
void ServicePublisher::cleanUpAllAgentConnections() {}

}  // namespace agent::spf::legacyservicepublisher
