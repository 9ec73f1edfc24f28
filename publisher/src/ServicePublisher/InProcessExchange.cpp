// The in-process exchange: tracking the in-process discovery service and connecting to it.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"
#include "ServicePublisher/EndpointKeywords.h"

#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/log/Severity.h"

namespace agent::spf::legacyservicepublisher {

namespace severity = foundation::log::severity;

namespace {

// The publisher marks the discovery services it offers itself, so that it never connects to
// its own output.
const std::string kSelfPublished = "spf::legacyservicepublisher::selfPublished";
constexpr unsigned int kDirectoryConcurrency = 3;

}  // namespace

std::shared_ptr<ServicePublisher::InProcessDiscovery> ServicePublisher::AddingService(
    const cppmicroservices::ServiceReference<InProcessDiscovery>& reference) {
    // Present at all, whatever its value.
    if (!reference.GetProperty(kSelfPublished).Empty()) {
        return nullptr;
    }
    auto service = bundleContext.GetService(reference);
    if (!service) {
        return nullptr;
    }
    {
        std::lock_guard<std::mutex> lock(inProcessMutex);
        if (inProcessDiscovery) {
            return service;  // tracked, but the first one stays in use
        }
        inProcessDiscovery = service;
    }
    wakeWorkThread();
    return service;
}

void ServicePublisher::ModifiedService(const cppmicroservices::ServiceReference<InProcessDiscovery>&,
                                       const std::shared_ptr<InProcessDiscovery>&) {}

void ServicePublisher::RemovedService(const cppmicroservices::ServiceReference<InProcessDiscovery>&,
                                      const std::shared_ptr<InProcessDiscovery>& service) {
    {
        std::lock_guard<std::mutex> lock(inProcessMutex);
        if (service != inProcessDiscovery) {
            return;
        }
        // The connection keeps its own reference until the work thread tears it down.
        inProcessDiscovery.reset();
    }
    wakeWorkThread();
}

bool ServicePublisher::hasInProcess() const {
    std::lock_guard<std::mutex> lock(inProcessMutex);
    return static_cast<bool>(inProcessDiscovery);
}

ServicePublisher::FrameworkDiscoveryResult ServicePublisher::getInProcessFrameworkDiscoveryService(
    unsigned int concurrency) const {
    std::shared_ptr<InProcessDiscovery> discovery;
    {
        std::lock_guard<std::mutex> lock(inProcessMutex);
        discovery = inProcessDiscovery;
    }
    if (!discovery) {
        return {};
    }
    try {
        auto client = discovery->getFrameworkDiscoveryService(concurrency);
        if (!client) {
            return {};
        }
        return {std::move(client), std::move(discovery)};
    } catch (...) {
        logCurrentException(severity::info, "Obtaining a FrameworkDiscoveryService threw an exception");
        return {};
    }
}

// Call with connectionsMutex held.
ServicePublisher::AgentConnections::iterator ServicePublisher::addInProcessExchangeEndpoint() {
    FOUNDATION_LOG(getLogger(), severity::info) << "Found inprocess discovery service";
    try {
        auto [client, discovery] = getInProcessFrameworkDiscoveryService(kDirectoryConcurrency);
        if (!client) {
            return agentConnections.end();
        }
        const auto subscription = registerForCallbacks(keywords::inProcess, *client);
        if (subscription.is_nil()) {
            return agentConnections.end();
        }
        // Every service gets the context of a fresh client of this connection's discovery
        // service (not of whichever is tracked by then); the factory keeps that service, and
        // so its exchange, as long as a copy of it lives.
        std::function<agent::core::serviceutils::Context(unsigned int)> contextFactory =
            [discovery = std::move(discovery)](unsigned int concurrency) {
                try {
                    const auto fresh = discovery->getFrameworkDiscoveryService(concurrency);
                    return fresh ? fresh->getAssociatedContext() : agent::core::serviceutils::Context();
                } catch (...) {
                    logCurrentException(severity::info, "Obtaining a FrameworkDiscoveryService threw an exception");
                    return agent::core::serviceutils::Context();
                }
            };
        // An existing connection stays; the new record goes again, its cleanup doing nothing.
        return agentConnections
            .emplace(keywords::inProcess,
                     AgentConnection(std::move(contextFactory), nullptr, std::move(client), subscription))
            .first;
    } catch (...) {
        logCurrentException(severity::error, "Failed to create AgentConnection for inprocess exchange");
        return agentConnections.end();
    }
}

}  // namespace agent::spf::legacyservicepublisher
