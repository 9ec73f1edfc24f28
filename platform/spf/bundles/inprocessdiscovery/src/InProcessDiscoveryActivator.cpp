// Runs an exchange inside the host while the bundle is active and offers it as the
// InProcessDiscovery service.

#include "agent/spf/bundles/SingleServiceActivator.h"
#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include <memory>

namespace {

using agent::spf::inprocessdiscovery::InProcessDiscovery;
using agent::spf::inprocessdiscovery::InProcessExchangeDiscovery;

// Stop only withdraws the service: users that hold it keep a working exchange (their
// services and contexts run on it) until they let it go; the last of them closes it.
class InProcessDiscoveryActivator : public agent::spf::bundles::SingleServiceActivator<InProcessDiscovery> {
protected:
    std::shared_ptr<InProcessDiscovery> makeService() override {
        return std::make_shared<InProcessExchangeDiscovery>();
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(InProcessDiscoveryActivator)
