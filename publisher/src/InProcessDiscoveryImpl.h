#pragma once

#include "agent/core/serviceutils/Context.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistrationBase.h>

#include <functional>
#include <memory>

namespace agent::spf::legacyservicepublisher {

// Offers the exchange of a connection (the service host's) to the rest of the process as its
// in-process exchange: each client it hands out sits on a fresh context of that connection.
// Thread-safe: the context factory is.
class InProcessDiscoveryImpl final : public agent::spf::inprocessdiscovery::InProcessDiscovery {
public:
    using ContextFactory = std::function<agent::core::serviceutils::Context(unsigned int)>;

    explicit InProcessDiscoveryImpl(ContextFactory contextFactory);

    // Throws std::invalid_argument when the connection is gone (its contexts are empty). A
    // client keeps the connection's container: once the connection is torn down its calls
    // fail with "Directory service request failed: <cause>".
    std::unique_ptr<agent::directory::DirectoryServiceClient> getFrameworkDiscoveryService(
        unsigned int concurrency) const override;

private:
    // Shared with the clients: the factory holds the container their contexts borrow from.
    const std::shared_ptr<const ContextFactory> contextFactory_;
};

// Registers a bridge for the connection's contexts with "spf::legacyservicepublisher::selfPublished"
// set, so that the publisher's own tracker leaves it alone. Throws what RegisterService throws.
cppmicroservices::ServiceRegistrationBase registerInProcessDiscoveryImpl(cppmicroservices::BundleContext context,
                                                                        InProcessDiscoveryImpl::ContextFactory contextFactory);

}  // namespace agent::spf::legacyservicepublisher
