#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTSERVICEFACTORY_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTSERVICEFACTORY_H

#include "cppmicroservices/ServiceFactory.h"

#include <memory>

namespace cppmicroservices::ds
{
    class ComponentManager;
    struct ComponentLife;

    /// The factory registered for one life of a component of singleton or
    /// bundle scope: the framework asks it for the instance the first time a
    /// bundle gets the service, which creates the instance of a delayed
    /// component. Once its life has ended it returns null.
    class ComponentServiceFactory final : public ServiceFactory
    {
      public:
        ComponentServiceFactory(std::weak_ptr<ComponentManager> manager, std::weak_ptr<ComponentLife> life);

        /// Blocks while the instance is created (user code). Null if the
        /// instance cannot be created or the life has ended.
        InterfaceMapConstPtr GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) override;

        /// For bundle scope, has the instance made for that bundle deactivated
        /// (on the manager's draining thread, possibly this one).
        void UngetService(Bundle const& bundle,
                          ServiceRegistrationBase const& registration,
                          InterfaceMapConstPtr const& service) override;

      private:
        std::weak_ptr<ComponentManager> const manager;
        std::weak_ptr<ComponentLife> const life; // the life holds the registration that holds this factory
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTSERVICEFACTORY_H
