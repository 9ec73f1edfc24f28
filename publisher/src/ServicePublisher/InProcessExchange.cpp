// The in-process exchange: tracking the in-process discovery service and connecting to it.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Tracks nothing yet: every in-process discovery service is left untracked.
std::shared_ptr<ServicePublisher::InProcessDiscovery> ServicePublisher::AddingService(
    const cppmicroservices::ServiceReference<InProcessDiscovery>&) {
    return nullptr;
}

void ServicePublisher::ModifiedService(const cppmicroservices::ServiceReference<InProcessDiscovery>&,
                                       const std::shared_ptr<InProcessDiscovery>&) {}

// Nothing is tracked yet, so nothing is removed.
void ServicePublisher::RemovedService(const cppmicroservices::ServiceReference<InProcessDiscovery>&,
                                      const std::shared_ptr<InProcessDiscovery>&) {}

// Nothing is tracked yet.
bool ServicePublisher::hasInProcess() const {
    return false;
}

// Nothing is tracked yet, so there is no client to make.
ServicePublisher::FrameworkDiscoveryResult ServicePublisher::getInProcessFrameworkDiscoveryService(unsigned int) const {
    return {};
}

// Adds no connection yet.
void ServicePublisher::addInProcessExchangeEndpoint() {}

}  // namespace agent::spf::legacyservicepublisher
