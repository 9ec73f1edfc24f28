// Offers the host's invokable publisher, through which components publish invokable
// factories and clients find them, while the bundle is active.

#include "agent/spf/core/Invokable.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <exception>
#include <memory>

namespace {

using Publisher = agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>;

class InvokablePublisherActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        registration_ = context.RegisterService<Publisher>(std::make_shared<Publisher>());
    }

    // Only withdraws the service: publishers that hold it withdraw their own factories.
    void Stop(cppmicroservices::BundleContext) override {
        try {
            registration_.Unregister();
        } catch (const std::exception&) {
            // Already withdrawn: nothing is left to undo there.
        }
        registration_ = nullptr;
    }

private:
    cppmicroservices::ServiceRegistration<Publisher> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(InvokablePublisherActivator)
