// Hands the demo interfaces to the publisher once it is there.

#include "DemoInterfaces.h"

#include "agent/spf/bundles/ServiceInterfacePublishingActivator.h"

namespace {

class DemoActivator : public agent::spf::bundles::ServiceInterfacePublishingActivator {
    std::vector<agent::spf::core::ServiceInterface> makeInterfaces() override {
        return {spfdemo::calculator(), spfdemo::text()};
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(DemoActivator)
