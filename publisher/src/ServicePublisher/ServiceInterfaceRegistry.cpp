// Service interfaces that other bundles publish to the publisher.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include <stdexcept>

namespace agent::spf::legacyservicepublisher {

boost::uuids::uuid ServicePublisher::publishService(agent::spf::core::ServiceInterface serviceInterface) {
    std::unique_lock<std::mutex> lock(connectionsMutex);
    if (deactivating) {
        throw std::runtime_error("Unable to publish service");
    }
    // Deliberately hold publishers until there is a configuration whose services the new
    // interface could serve; teardown releases them with an error.
    while (publisherConfigurations.empty()) {
        stateChanged.wait(lock);
        if (deactivating) {
            throw std::runtime_error("Unable to publish service");
        }
    }
    const boost::uuids::uuid id = uuidGenerator();
    serviceInterfaces.emplace(id, std::move(serviceInterface), bundleContext, serialisationCatalogue);
    if (ensureAllPublisherConfigurationsAreHonoured(ChangeType::InterfaceAdded)) {
        return id;
    }
    serviceInterfaces.get<ByUuid>().erase(id);
    ensureAllPublisherConfigurationsAreHonoured(ChangeType::InterfaceWithdrawn);
    throw std::runtime_error("Unable to publish service");
}

bool ServicePublisher::unpublishService(const boost::uuids::uuid& id) noexcept {
    std::lock_guard<std::mutex> lock(connectionsMutex);
    auto& byUuid = serviceInterfaces.get<ByUuid>();
    const auto entry = byUuid.find(id);
    if (entry == byUuid.end()) {
        return false;
    }
    byUuid.erase(entry);
    // Instances built from the withdrawn interface are reconsidered.
    ensureAllPublisherConfigurationsAreHonoured(ChangeType::InterfaceWithdrawn);
    return true;
}

}  // namespace agent::spf::legacyservicepublisher
