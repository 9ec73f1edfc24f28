#include "InProcessDiscoveryImpl.h"

#include "agent/directory/DirectoryServiceClient.h"

#include <cppmicroservices/ServiceProperties.h>

#include <chrono>

namespace agent::spf::legacyservicepublisher {

namespace {

constexpr std::chrono::milliseconds kDirectoryTimeout{5000};

}  // namespace

InProcessDiscoveryImpl::InProcessDiscoveryImpl(ContextFactory contextFactory)
    : contextFactory_(std::make_shared<const ContextFactory>(std::move(contextFactory))) {}

std::unique_ptr<agent::directory::DirectoryServiceClient> InProcessDiscoveryImpl::getFrameworkDiscoveryService(
    unsigned int concurrency) const {
    return std::make_unique<agent::directory::DirectoryServiceClient>((*contextFactory_)(concurrency), kDirectoryTimeout,
                                                                       contextFactory_);
}

cppmicroservices::ServiceRegistrationBase registerInProcessDiscoveryImpl(cppmicroservices::BundleContext context,
                                                                        InProcessDiscoveryImpl::ContextFactory contextFactory) {
    const cppmicroservices::ServiceProperties properties{
        {"spf::legacyservicepublisher::selfPublished", cppmicroservices::Any(true)}};
    return context.RegisterService<agent::spf::inprocessdiscovery::InProcessDiscovery>(
        std::make_shared<InProcessDiscoveryImpl>(std::move(contextFactory)), properties);
}

}  // namespace agent::spf::legacyservicepublisher
