// The unmangled entry points through which Declarative Services makes and destroys the
// component's instance object. The bundle-context glue (_us_get/_us_set_bundle_context_instance_
// com_norbridge_agentspflegacyservicepublisher) is generated into the bundle by add_bundle().

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include <cppmicroservices/GlobalConfig.h>
#include <cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp>

#include <memory>
#include <new>
#include <tuple>

namespace {

using cppmicroservices::service::component::detail::ComponentInstance;

using ServicePublisherInstance = cppmicroservices::service::component::detail::ComponentInstanceImpl<
    agent::spf::legacyservicepublisher::ServicePublisher,
    std::tuple<agent::spf::servicepublisher::ServicePublisher, cppmicroservices::service::cm::ManagedServiceFactory>,
    std::shared_ptr<agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>>,
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue>,
    std::shared_ptr<agent::spf::threadpoolprovider::ThreadPoolProvider>>;

}  // namespace

// A new instance object, or null when memory runs out: nothing may be thrown across this C
// boundary.
extern "C" US_ABI_EXPORT ComponentInstance* NewInstance_agent_spf_legacyservicepublisher_ServicePublisher() {
    try {
        return new (std::nothrow)
            ServicePublisherInstance({"InvokablePublisher", "SerialisationCatalogue", "ThreadpoolProvider"});
    } catch (...) {
        return nullptr;
    }
}

extern "C" US_ABI_EXPORT void DeleteInstance_agent_spf_legacyservicepublisher_ServicePublisher(
    ComponentInstance* instance) {
    delete instance;
}
