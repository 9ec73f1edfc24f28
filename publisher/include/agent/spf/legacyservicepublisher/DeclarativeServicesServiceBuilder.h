#pragma once

#include "agent/core/service/ServiceBuilderBase.h"
#include "agent/spf/core/ServiceInterface.h"

#include <memory>

namespace agent::spf::serialisation {
class SerialisationCatalogue;
}

namespace agent::spf::legacyservicepublisher {

// Builds the services of an SPF ServiceInterface that carries its own method
// implementations: the legacy service wrapper turns the interface object into a legacy
// service, and this builder forwards create() to the wrapper's builder.
class DeclarativeServicesServiceBuilder : public agent::core::service::ServiceBuilderBase {
public:
    // Makes the wrapper's builder at once. Blocks only to allocate; any thread. Throws
    // what the wrapper throws (std::invalid_argument for a null catalogue). The catalogue
    // is shared with every service created.
    static std::shared_ptr<agent::core::service::ServiceBuilderBase> make_shared(
        agent::spf::core::ServiceInterface serviceInterface,
        std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue);

    DeclarativeServicesServiceBuilder(const DeclarativeServicesServiceBuilder&) = delete;
    DeclarativeServicesServiceBuilder& operator=(const DeclarativeServicesServiceBuilder&) = delete;

    // A new, unstarted service from the wrapper's builder. Any thread, concurrently.
    std::shared_ptr<agent::core::service::ServiceBase> create() override;
    ~DeclarativeServicesServiceBuilder() override;

private:
    DeclarativeServicesServiceBuilder(agent::spf::core::ServiceInterface serviceInterface,
                                      std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue);

    // Set once in the constructor; never null.
    const std::shared_ptr<agent::core::service::ServiceBuilderBase> builder;
};

}  // namespace agent::spf::legacyservicepublisher
