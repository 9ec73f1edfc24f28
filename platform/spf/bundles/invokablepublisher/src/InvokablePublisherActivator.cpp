// Offers the host's invokable publisher, through which components publish invokable
// factories and clients find them, while the bundle is active.

#include "agent/spf/bundles/SingleServiceActivator.h"
#include "agent/spf/core/Invokable.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"

#include <memory>

namespace {

using Publisher = agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>;

// Stop only withdraws the service: publishers that hold it withdraw their own factories.
class InvokablePublisherActivator : public agent::spf::bundles::SingleServiceActivator<Publisher> {
protected:
    std::shared_ptr<Publisher> makeService() override {
        return std::make_shared<Publisher>();
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(InvokablePublisherActivator)
