#pragma once

#include "agent/core/service/NativeLegacyServiceBase.h"

#include <memory>

namespace agent::spf::legacyservicewrapper {

class ServiceDefinition;

// One running instance of a legacy-wrapped SPF service: every method of the definition
// served by a MethodRequestHandler, and the definition's directory entry. start and stop
// are NativeLegacyServiceBase's (handlers and entry in start, both withdrawn in stop).
class LegacyService final : public agent::core::service::NativeLegacyServiceBase {
public:
    explicit LegacyService(std::shared_ptr<const ServiceDefinition> definition);
};

}  // namespace agent::spf::legacyservicewrapper
