#include "agent/spf/externalprocessdiscovery/UserStorageRootOverride.h"

namespace agent::spf::externalprocessdiscovery {

// Out of line so that the type's vtable and type info live in this library, which every
// user of the service links: the bundle that registered an override may stop first.
UserStorageRootOverride::~UserStorageRootOverride() = default;

std::string modeFilter(control::AgentMode mode) {
    return std::string("(") + kModeProperty + "=" + control::toString(mode) + ")";
}

}  // namespace agent::spf::externalprocessdiscovery
