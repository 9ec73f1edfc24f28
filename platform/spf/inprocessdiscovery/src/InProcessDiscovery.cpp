#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"

namespace agent::spf::inprocessdiscovery {

// Out of line so that the type's vtable and type info live in this library, which every
// user of the service links: the bundle that registered it may stop first.
InProcessDiscovery::~InProcessDiscovery() = default;

}  // namespace agent::spf::inprocessdiscovery
