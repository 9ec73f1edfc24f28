// One published service interface and the builder chosen for it.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "agent/spf/legacyservicepublisher/DeclarativeServicesServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include "foundation/text/Utf.h"

#include <cppmicroservices/Bundle.h>

#include <stdexcept>

namespace agent::spf::legacyservicepublisher {

ServicePublisher::ServiceInterfaceEntry::ServiceInterfaceEntry(
    boost::uuids::uuid id, agent::spf::core::ServiceInterface serviceInterface,
    const cppmicroservices::BundleContext& context,
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue)
    : uuid(id),
      serviceInterface(std::move(serviceInterface)),
      interfaceName(this->serviceInterface.getInterfaceName()),
      version(this->serviceInterface.getVersion()),
      serviceProperties(this->serviceInterface.getMetadata()),
      serviceBuilder(getServiceBuilder(context, std::move(catalogue))) {}

std::shared_ptr<agent::core::service::ServiceBase> ServicePublisher::ServiceInterfaceEntry::create() const {
    return serviceBuilder->create();
}

std::shared_ptr<agent::core::service::ServiceBuilderBase> ServicePublisher::ServiceInterfaceEntry::getServiceBuilder(
    const cppmicroservices::BundleContext& context,
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue) {
    const auto& metadata = serviceInterface.getMetadata();
    const auto external = metadata.find("spf.legacy.servicebuilder");
    if (external != metadata.end() && external->second == "true") {
        // A bundle id wins over a library name when both are given.
        const auto bundleId = metadata.find("spf.legacy.bundleid");
        if (bundleId != metadata.end()) {
            auto bundle = context.GetBundle(std::stol(bundleId->second, nullptr, 10));
            if (!bundle) {
                throw std::runtime_error("Unable to obtain valid Bundle for legacy bundle based ServiceInterface");
            }
            return MicroServicesServiceBuilder::make_shared(std::move(bundle));
        }
        const auto library = metadata.find("spf.legacy.servicebuilderlibrary");
        if (library != metadata.end()) {
            return LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(library->second));
        }
        throw std::runtime_error("Unable to obtain library name for legacy library based ServiceInterface");
    }
    return DeclarativeServicesServiceBuilder::make_shared(serviceInterface.clone(), std::move(catalogue));
}

}  // namespace agent::spf::legacyservicepublisher
