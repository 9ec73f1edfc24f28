#include "agent/spf/legacyservicewrapper/LegacyServiceBuilder.h"

#include "LegacyService.h"
#include "ServiceDefinition.h"

namespace agent::spf::legacyservicewrapper {

std::shared_ptr<agent::core::service::ServiceBuilderBase> LegacyServiceBuilder::make_shared(
    core::ServiceInterface serviceInterface, std::shared_ptr<serialisation::SerialisationCatalogue> catalogue) {
    auto definition = std::make_shared<const ServiceDefinition>(std::move(serviceInterface), std::move(catalogue));
    return std::shared_ptr<LegacyServiceBuilder>(new LegacyServiceBuilder(std::move(definition)));
}

LegacyServiceBuilder::LegacyServiceBuilder(std::shared_ptr<const ServiceDefinition> definition)
    : definition_(std::move(definition)) {}

std::shared_ptr<agent::core::service::ServiceBase> LegacyServiceBuilder::create() {
    return std::make_shared<LegacyService>(definition_);
}

}  // namespace agent::spf::legacyservicewrapper
