#include "LegacyService.h"

#include "MethodRequestHandler.h"
#include "ServiceDefinition.h"

namespace agent::spf::legacyservicewrapper {

LegacyService::LegacyService(std::shared_ptr<const ServiceDefinition> definition)
    : NativeLegacyServiceBase(definition->name(), definition->version(), definition->metadata()) {
    for (const auto& method : definition->serviceInterface().methodNames()) {
        addMethod(method, MethodRequestHandler(definition, method));
    }
}

}  // namespace agent::spf::legacyservicewrapper
