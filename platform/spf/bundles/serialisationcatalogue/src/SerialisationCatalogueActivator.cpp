// Offers the host's serialisation catalogue, with every Avro type the platform knows and the
// plain byte types registered, while the bundle is active. Other bundles add their own types to it.

#include "agent/spf/bundles/SingleServiceActivator.h"
#include "agent/spf/serialisation/RawBytes.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <memory>

namespace {

using agent::spf::serialisation::SerialisationCatalogue;

// Users that hold the catalogue after Stop keep it (and the serialisers in flight) working.
class SerialisationCatalogueActivator : public agent::spf::bundles::SingleServiceActivator<SerialisationCatalogue> {
protected:
    std::shared_ptr<SerialisationCatalogue> makeService() override {
        auto catalogue = std::make_shared<SerialisationCatalogue>();
        agent::spf::serialisation::registerAvroTypes(*catalogue);
        agent::spf::serialisation::registerRawTypes(*catalogue);
        return catalogue;
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(SerialisationCatalogueActivator)
