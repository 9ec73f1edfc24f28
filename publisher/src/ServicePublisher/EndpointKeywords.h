#pragma once

#include <string>

namespace agent::spf::legacyservicepublisher::keywords {

// The entries of a configuration's endpoints that name no endpoint but ask for one; any other
// entry is an exchange endpoint address. A live connection's own name wins over a keyword.
inline const std::string inProcess = "inprocess";
inline const std::string korvexConnectorDiscovery = "korvexConnectorDiscovery";
inline const std::string serviceHostDiscovery = "norbridgeServiceHostDiscovery";
inline const std::string allEndpoints = "connectToAllEndpoints";

}  // namespace agent::spf::legacyservicepublisher::keywords
