// Offers the host's serialisation catalogue, with every Avro type the platform knows
// registered, while the bundle is active. Other bundles add their own types to it.

#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <exception>
#include <memory>

namespace {

using agent::spf::serialisation::SerialisationCatalogue;

class SerialisationCatalogueActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        auto catalogue = std::make_shared<SerialisationCatalogue>();
        agent::spf::serialisation::registerAvroTypes(*catalogue);
        registration_ = context.RegisterService<SerialisationCatalogue>(catalogue);
    }

    // Users that hold the catalogue keep it (and the serialisers in flight) working.
    void Stop(cppmicroservices::BundleContext) override {
        try {
            registration_.Unregister();
        } catch (const std::exception&) {
            // Already withdrawn: nothing is left to undo there.
        }
        registration_ = nullptr;
    }

private:
    cppmicroservices::ServiceRegistration<SerialisationCatalogue> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(SerialisationCatalogueActivator)
