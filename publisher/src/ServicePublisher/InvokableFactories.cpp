// Invokable factories for every instance the connected directories list.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Queries no directory yet, so no query failed and no rerun is needed.
bool ServicePublisher::ensureAllKnownServicesHaveInvokables() {
    return false;
}

}  // namespace agent::spf::legacyservicepublisher
