// Runs an exchange inside the host while the bundle is active and offers it as the
// InProcessDiscovery service. With the framework property "agent.spf.serviceHostExchange.listen"
// (a URL) the exchange also listens there and is entered in the agent registry of mode
// desktopservices while the bundle is active, so that other processes find the host's
// exchange; "agent.spf.serviceHostExchange.name" names the entry (default "spf-host") and
// "agent.spf.serviceHostExchange.registry" replaces the registry folder.

#include "agent/control/AgentRegistration.h"
#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/Severity.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <unistd.h>

#include <memory>
#include <string>

namespace {

using agent::spf::inprocessdiscovery::InProcessDiscovery;
using agent::spf::inprocessdiscovery::InProcessExchangeDiscovery;

std::string stringProperty(const cppmicroservices::BundleContext& context, const std::string& key,
                           const std::string& fallback = {}) {
    const auto value = context.GetProperty(key);
    return value.Type() == typeid(std::string) ? cppmicroservices::any_cast<std::string>(value) : fallback;
}

const foundation::log::diagnostic_logger& logger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::spf::inprocessdiscovery");
    return *logger;
}

// Stop only withdraws the service and the registry entry: users that hold the service keep a
// working exchange (their services and contexts run on it) until they let it go; the last of
// them closes it.
class InProcessDiscoveryActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        auto discovery = std::make_shared<InProcessExchangeDiscovery>();
        const auto listen = stringProperty(context, "agent.spf.serviceHostExchange.listen");
        if (!listen.empty()) {
            const auto url = discovery->listen(listen);
            const auto registry = stringProperty(context, "agent.spf.serviceHostExchange.registry");
            const korvexconnector::serviceprocess::FolderLocations folders(
                boost::none, registry.empty() ? boost::none : boost::optional<std::filesystem::path>(registry),
                korvexconnector::serviceprocess::DesktopServicesRealm::instance().name());
            const auto name = stringProperty(context, "agent.spf.serviceHostExchange.name", "spf-host");
            registration_ = std::make_unique<agent::control::AgentRegistration>(
                folders.lockRoot(),
                agent::control::AgentInfo(name, url, ::getpid(), agent::control::AgentMode::DesktopServices));
            FOUNDATION_LOG(logger(), foundation::log::severity::info)
                << "Service host exchange " << name << " listening on " << url;
        }
        service_ = context.RegisterService<InProcessDiscovery>(discovery);
    }

    void Stop(cppmicroservices::BundleContext) override {
        try {
            service_.Unregister();
        } catch (const std::exception&) {
            // Already withdrawn: nothing is left to undo there.
        }
        service_ = nullptr;
        registration_.reset();
    }

private:
    cppmicroservices::ServiceRegistration<InProcessDiscovery> service_;
    std::unique_ptr<agent::control::AgentRegistration> registration_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(InProcessDiscoveryActivator)
