// Registers the host's shared executor as a ThreadPoolProvider while the bundle is active.

#include "agent/spf/bundles/SingleServiceActivator.h"
#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include <memory>

namespace {

using agent::spf::threadpoolprovider::ExecutorThreadPoolProvider;
using agent::spf::threadpoolprovider::ThreadPoolProvider;

class ThreadPoolProviderActivator : public agent::spf::bundles::SingleServiceActivator<ThreadPoolProvider> {
public:
    // Withdraws the service first, so no new user finds it, then shuts the pool down:
    // users that kept the executor see it refuse work, and their tasks get stop requests
    // and are waited for.
    void Stop(cppmicroservices::BundleContext context) override {
        SingleServiceActivator::Stop(context);
        if (provider_) {
            provider_->shutDown();
        }
        provider_.reset();
    }

protected:
    std::shared_ptr<ThreadPoolProvider> makeService() override {
        provider_ = std::make_shared<ExecutorThreadPoolProvider>();
        return provider_;
    }

private:
    std::shared_ptr<ExecutorThreadPoolProvider> provider_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(ThreadPoolProviderActivator)
