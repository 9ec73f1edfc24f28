// One running legacy service instance: started with the entry, stopped with it.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "agent/core/service/StartupConfiguration.h"

#include <stdexcept>

namespace agent::spf::legacyservicepublisher {

ServicePublisher::ServiceEntry::ServiceEntry(std::string exchangeEndpoint, std::string configurationKey,
                                             std::string uniqueID, boost::uuids::uuid interfaceId,
                                             agent::core::serviceutils::Context context,
                                             boost::property_tree::ptree requestedProperties,
                                             std::shared_ptr<agent::core::service::ServiceBase> service)
    : exchangeEndpoint(std::move(exchangeEndpoint)),
      configurationKey(std::move(configurationKey)),
      uniqueID(std::move(uniqueID)),
      interfaceId(interfaceId),
      context(std::move(context)),
      requestedProperties(std::move(requestedProperties)),
      service(std::move(service)) {
    if (!this->service) {
        throw std::runtime_error("Failed to create ServiceBase");
    }
    if (!this->context.isValid()) {
        throw std::runtime_error("Failed to create a valid Context");
    }
    if (!this->service->start(agent::core::service::StartupConfiguration{this->requestedProperties, this->context})) {
        throw std::runtime_error("Failed to start service " + this->service->name());
    }
}

// noexcept, as every destructor: a service that cannot be stopped ends the process.
ServicePublisher::ServiceEntry::~ServiceEntry() {
    service->stop();
}

}  // namespace agent::spf::legacyservicepublisher
