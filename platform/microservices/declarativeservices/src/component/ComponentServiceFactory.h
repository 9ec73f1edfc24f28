#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTSERVICEFACTORY_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTSERVICEFACTORY_H

#include "cppmicroservices/PrototypeServiceFactory.h"
#include "cppmicroservices/ServiceFactory.h"

#include <memory>

namespace cppmicroservices::ds
{
    class ComponentManager;
    struct ComponentLife;

    /// The factory registered for one life of a component. The framework asks
    /// it for the instance the first time a bundle gets the service (singleton
    /// and bundle scope, Base = ServiceFactory), or on every
    /// ServiceObjects::GetService (prototype scope, Base =
    /// PrototypeServiceFactory); that creates the instance of a delayed
    /// component. Once its life has ended it returns null. The framework tells
    /// the scope apart by the base class, so the two are distinct types.
    template <class Base>
    class BasicComponentFactory final : public Base
    {
      public:
        BasicComponentFactory(std::weak_ptr<ComponentManager> manager, std::weak_ptr<ComponentLife> life);

        /// Blocks while the instance is created (user code). Null if the
        /// instance cannot be created or the life has ended.
        InterfaceMapConstPtr GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) override;

        /// For bundle and prototype scope, has the instance made for that use
        /// deactivated (on the manager's draining thread, possibly this one).
        void UngetService(Bundle const& bundle,
                          ServiceRegistrationBase const& registration,
                          InterfaceMapConstPtr const& service) override;

      private:
        std::weak_ptr<ComponentManager> const manager;
        std::weak_ptr<ComponentLife> const life; // the life holds the registration that holds this factory
    };

    using ComponentServiceFactory = BasicComponentFactory<ServiceFactory>;
    using ComponentPrototypeFactory = BasicComponentFactory<PrototypeServiceFactory>;
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTSERVICEFACTORY_H
