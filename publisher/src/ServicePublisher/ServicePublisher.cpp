// Construction and destruction of the component, and of its configuration records.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"

namespace agent::spf::legacyservicepublisher {

ServicePublisher::ServiceConfiguration::ServiceConfiguration(std::string name, agent::spf::core::APIVersion version,
                                                             boost::property_tree::ptree requestedProperties,
                                                             std::string uniqueID)
    : name(std::move(name)),
      version(version),
      requestedProperties(requestedProperties),
      uniqueID(std::move(uniqueID)) {}

ServicePublisher::PublisherConfiguration::PublisherConfiguration(
    std::set<std::string> endpoints, std::vector<ServiceConfiguration> serviceConfigurations,
    unsigned int modificationCount)
    : endpoints(std::move(endpoints)),
      serviceConfigurations(std::move(serviceConfigurations)),
      modificationCount(modificationCount) {}

ServicePublisher::ServicePublisher(
    const std::shared_ptr<InvokablePublisherType>& invokablePublisher,
    const std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue>& serialisationCatalogue,
    const std::shared_ptr<agent::spf::threadpoolprovider::ThreadPoolProvider>& threadpoolProvider)
    : invokablePublisher(invokablePublisher),
      serialisationCatalogue(serialisationCatalogue),
      threadpoolProvider(threadpoolProvider),
      fastPhaseEnd(std::chrono::steady_clock::now()),
      nextPassDue(fastPhaseEnd),
      connectionTaskGroup(uuidGenerator()) {
    // The realm only names registry folders for endpoint discovery; without it the publisher
    // still works with literal endpoints, so its failure must not stop the component.
    try {
        desktopRealmName = korvexconnector::serviceprocess::DesktopServicesRealm::instance().name();
    } catch (...) {
    }
}

ServicePublisher::~ServicePublisher() {
    // Deactivate withdraws it; a component destroyed without one must not leave it behind.
    withdrawInProcessBridge();
}

}  // namespace agent::spf::legacyservicepublisher
