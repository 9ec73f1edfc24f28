#include "agent/spf/legacyservicepublisher/DeclarativeServicesServiceBuilder.h"

#include "agent/spf/legacyservicewrapper/LegacyServiceBuilder.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <utility>

namespace agent::spf::legacyservicepublisher {

std::shared_ptr<agent::core::service::ServiceBuilderBase> DeclarativeServicesServiceBuilder::make_shared(
    agent::spf::core::ServiceInterface serviceInterface,
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue) {
    return std::shared_ptr<DeclarativeServicesServiceBuilder>(
        new DeclarativeServicesServiceBuilder(std::move(serviceInterface), std::move(catalogue)));
}

DeclarativeServicesServiceBuilder::DeclarativeServicesServiceBuilder(
    agent::spf::core::ServiceInterface serviceInterface,
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue)
    : builder(agent::spf::legacyservicewrapper::LegacyServiceBuilder::make_shared(std::move(serviceInterface),
                                                                                 std::move(catalogue))) {}

DeclarativeServicesServiceBuilder::~DeclarativeServicesServiceBuilder() = default;

std::shared_ptr<agent::core::service::ServiceBase> DeclarativeServicesServiceBuilder::create() {
    return builder->create();
}

}  // namespace agent::spf::legacyservicepublisher
