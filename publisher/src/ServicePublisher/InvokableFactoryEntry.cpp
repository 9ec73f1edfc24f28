// The invokable factory of one directory instance, and the invokables it hands out.

#include "agent/spf/legacyservicepublisher/InvokableImpl.h"
#include "agent/spf/legacyservicepublisher/Logger.h"
#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "foundation/log/Severity.h"

#include <cppmicroservices/Any.h>

#include <algorithm>
#include <stdexcept>

namespace agent::spf::legacyservicepublisher {

ServicePublisher::InvokableFactoryEntry::InvokableFactoryEntry(
    std::string exchangeEndpoint, agent::core::serviceutils::ServiceStub stub,
    std::function<agent::core::serviceutils::Context(unsigned int)> contextFactory,
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue, InvokablePublisherType& publisher)
    : exchangeEndpoint(std::move(exchangeEndpoint)),
      serviceUuid(stub.getServiceInstance()),
      serviceStub(std::move(stub)),
      contextFactory(std::move(contextFactory)),
      serialisationCatalogue(std::move(catalogue)),
      invokablePublisher(publisher) {
    const auto& legacyVersion = serviceStub.getVersion();
    const agent::spf::core::APIVersion version(legacyVersion.getMajor(), legacyVersion.getMinor(),
                                               legacyVersion.getPatch(), legacyVersion.getBuild());
    const cppmicroservices::AnyMap endpointProperties{{"endpointAddress", cppmicroservices::Any(this->exchangeEndpoint)}};
    cppmicroservices::AnyMap serviceProperties;
    for (const auto& property : serviceStub.getProperties()) {
        serviceProperties.emplace(property.first, cppmicroservices::Any(property.second));
    }
    registration = invokablePublisher.registerInvokableFactory(
        [this] { return getInvokable(); },
        [this](std::shared_ptr<agent::spf::core::Invokable> invokable) { ungetInvokable(std::move(invokable)); },
        serviceStub.getName(), serviceUuid, version, endpointProperties, serviceProperties);
}

ServicePublisher::InvokableFactoryEntry::~InvokableFactoryEntry() {
    // Withdrawn first, so that no get-callback adds to the set while it is cleaned up.
    invokablePublisher.withdrawInvokableFactory(registration);
    for (const auto& invokable : invokables) {
        invokable->forceCleanup();
    }
}

std::shared_ptr<agent::spf::core::Invokable> ServicePublisher::InvokableFactoryEntry::getInvokable() {
    std::lock_guard<std::mutex> lock(mutex);
    auto context = contextFactory(0);
    if (!context.isValid()) {
        FOUNDATION_LOG(getLogger(), foundation::log::severity::info)
            << "Obtaining a valid Context for the Invokable failed";
        throw std::runtime_error("Obtaining a valid Context for the Invokable failed");
    }
    auto invokable =
        std::make_shared<InvokableImpl>(serviceStub, std::move(context), serialisationCatalogue, statistics);
    invokables.insert(invokable);
    return invokable;
}

void ServicePublisher::InvokableFactoryEntry::ungetInvokable(std::shared_ptr<agent::spf::core::Invokable> invokable) {
    std::shared_ptr<InvokableImpl> given;
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto found = std::find_if(invokables.begin(), invokables.end(),
                                        [&invokable](const auto& held) { return held.get() == invokable.get(); });
        if (found == invokables.end()) {
            return;
        }
        given = *found;
        invokables.erase(found);
    }
    given->forceCleanup();
}

}  // namespace agent::spf::legacyservicepublisher
