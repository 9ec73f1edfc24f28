#pragma once

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <exception>
#include <memory>

namespace agent::spf::bundles {

// The activator of a bundle that offers one service as `Service` while it is active:
// Start registers what makeService() returns, Stop withdraws it. Stop does nothing more,
// so users that still hold the service keep it; a subclass that must also wind its service
// down does so in its own Stop, after this one.
template <class Service>
class SingleServiceActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        registration_ = context.RegisterService<Service>(makeService());
    }

    void Stop(cppmicroservices::BundleContext) override {
        try {
            registration_.Unregister();
        } catch (const std::exception&) {
            // Already withdrawn: nothing is left to undo there.
        }
        registration_ = nullptr;
    }

protected:
    // The service to register; called once per Start.
    virtual std::shared_ptr<Service> makeService() = 0;

private:
    cppmicroservices::ServiceRegistration<Service> registration_;
};

}  // namespace agent::spf::bundles
