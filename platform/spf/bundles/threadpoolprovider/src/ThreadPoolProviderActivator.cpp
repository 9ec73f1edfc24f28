// Registers the host's shared executor as a ThreadPoolProvider while the bundle is active.

#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <exception>
#include <memory>

namespace {

using agent::spf::threadpoolprovider::ExecutorThreadPoolProvider;
using agent::spf::threadpoolprovider::ThreadPoolProvider;

class ThreadPoolProviderActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        provider_ = std::make_shared<ExecutorThreadPoolProvider>();
        registration_ = context.RegisterService<ThreadPoolProvider>(provider_);
    }

    // Withdraws the service first, so no new user finds it, then shuts the pool down:
    // users that kept the executor see it refuse work, and their tasks get stop requests
    // and are waited for.
    void Stop(cppmicroservices::BundleContext) override {
        try {
            registration_.Unregister();
        } catch (const std::exception&) {
            // Already withdrawn: nothing is left to undo there.
        }
        registration_ = nullptr;
        if (provider_) {
            provider_->shutDown();
        }
        provider_.reset();
    }

private:
    std::shared_ptr<ExecutorThreadPoolProvider> provider_;
    cppmicroservices::ServiceRegistration<ThreadPoolProvider> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(ThreadPoolProviderActivator)
