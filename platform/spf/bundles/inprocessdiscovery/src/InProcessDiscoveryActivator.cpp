// Runs an exchange inside the host while the bundle is active and offers it as the
// InProcessDiscovery service.

#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <exception>
#include <memory>

namespace {

using agent::spf::inprocessdiscovery::InProcessDiscovery;
using agent::spf::inprocessdiscovery::InProcessExchangeDiscovery;

class InProcessDiscoveryActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        registration_ = context.RegisterService<InProcessDiscovery>(std::make_shared<InProcessExchangeDiscovery>());
    }

    // Only withdraws the service: users that hold it keep a working exchange (their
    // services and contexts run on it) until they let it go; the last of them closes it.
    void Stop(cppmicroservices::BundleContext) override {
        try {
            registration_.Unregister();
        } catch (const std::exception&) {
            // Already withdrawn: nothing is left to undo there.
        }
        registration_ = nullptr;
    }

private:
    cppmicroservices::ServiceRegistration<InProcessDiscovery> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(InProcessDiscoveryActivator)
