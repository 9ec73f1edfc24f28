#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceReference.h>

#include <stdexcept>
#include <utility>

namespace agent::spf::legacyservicepublisher {

using agent::core::service::ServiceBuilderBase;

std::shared_ptr<ServiceBuilderBase> MicroServicesServiceBuilder::make_shared(cppmicroservices::Bundle bundle) {
    return std::shared_ptr<MicroServicesServiceBuilder>(new MicroServicesServiceBuilder(std::move(bundle)));
}

MicroServicesServiceBuilder::MicroServicesServiceBuilder(cppmicroservices::Bundle bundle) : bundle(std::move(bundle)) {}

MicroServicesServiceBuilder::~MicroServicesServiceBuilder() = default;

std::shared_ptr<agent::core::service::ServiceBase> MicroServicesServiceBuilder::create() {
    ensureBundleStarted();
    // Set under mutex before any successful ensureBundleStarted returned, and never again, so
    // reading it here without the lock is safe; the bundle's builder runs without our lock.
    return builder->create();
}

void MicroServicesServiceBuilder::ensureBundleStarted() {
    // Held while the bundle starts: that start is the one-time work this lock serialises, and
    // concurrent first callers must wait for its outcome.
    std::lock_guard<std::mutex> lock(mutex);
    if (bundleStarted) {
        return;
    }
    bundle.Start();
    auto context = bundle.GetBundleContext();
    for (const auto& registered : bundle.GetRegisteredServices()) {
        const cppmicroservices::ServiceReference<ServiceBuilderBase> reference(registered);
        if (reference) {
            builder = context.GetService(reference);
            break;
        }
    }
    if (!builder) {
        throw std::runtime_error("Couldn't find service builder reference");
    }
    bundleStarted = true;
}

}  // namespace agent::spf::legacyservicepublisher
