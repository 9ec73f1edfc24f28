#ifndef CPPMICROSERVICES_DS_CONFIG_CONFIGURATIONBROKER_H
#define CPPMICROSERVICES_DS_CONFIG_CONFIGURATIONBROKER_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "cppmicroservices/ServiceTracker.h"
#include "cppmicroservices/cm/ConfigurationAdmin.hpp"
#include "cppmicroservices/cm/ConfigurationListener.hpp"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    class ComponentManager;

    /// Feeds configurations to the components whose configuration-policy is
    /// optional or require. Registers a ConfigurationListener service and,
    /// on each event for a pid some component uses, reads that pid's current
    /// properties from Configuration Admin and hands them over (on Configuration
    /// Admin's delivery thread, where the component's Modified or re-creation
    /// then runs). Existing configurations are read when a component is
    /// attached and when a ConfigurationAdmin service appears; a component
    /// keeps the configurations it has when Configuration Admin goes away.
    ///
    /// Every member may be called from any thread; none holds a lock while
    /// calling Configuration Admin or a component.
    class ConfigurationBroker final
        : public std::enable_shared_from_this<ConfigurationBroker>
        , private ServiceTrackerCustomizer<service::cm::ConfigurationAdmin>
    {
      public:
        /// context: the runtime bundle's context.
        explicit ConfigurationBroker(BundleContext context);
        ~ConfigurationBroker() override;

        /// Registers the listener and starts tracking ConfigurationAdmin.
        /// Blocks while existing configurations are read. Logs and carries on
        /// without configurations when the context refuses.
        void Start();
        /// Unregisters the listener and stops tracking. Idempotent.
        void Stop();

        /// Starts feeding manager (if its component has a configuration
        /// policy), with the configurations that exist now. Blocks on
        /// Configuration Admin; call before the manager is opened.
        void Attach(std::shared_ptr<ComponentManager> const& manager);
        void Detach(std::shared_ptr<ComponentManager> const& manager);

        /// From the listener: pid changed.
        void ConfigurationChanged(service::cm::ConfigurationEvent const& event);

      private:
        std::shared_ptr<service::cm::ConfigurationAdmin> AddingService(
            ServiceReference<service::cm::ConfigurationAdmin> const& reference) override;
        void ModifiedService(ServiceReference<service::cm::ConfigurationAdmin> const& reference,
                             std::shared_ptr<service::cm::ConfigurationAdmin> const& admin) override;
        void RemovedService(ServiceReference<service::cm::ConfigurationAdmin> const& reference,
                            std::shared_ptr<service::cm::ConfigurationAdmin> const& admin) override;

        // Reads the current properties of each of manager's pids (those that
        // exist) and gives them to it. Call with no lock held.
        void FeedExisting(service::cm::ConfigurationAdmin& admin, ComponentManager& manager) const;
        // The properties of pid, or nullopt when it has none (or no longer).
        static std::optional<AnyMap> Read(service::cm::ConfigurationAdmin& admin, std::string const& pid);
        std::vector<std::shared_ptr<ComponentManager>> Managers() const;

        BundleContext context;

        mutable std::mutex brokerMutex; // guards the members below
        bool started = false;
        std::vector<std::weak_ptr<ComponentManager>> managers;
        std::shared_ptr<service::cm::ConfigurationAdmin> admin;
        std::unique_ptr<ServiceTracker<service::cm::ConfigurationAdmin>> adminTracker;
        ServiceRegistration<service::cm::ConfigurationListener> listenerRegistration;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_CONFIG_CONFIGURATIONBROKER_H
