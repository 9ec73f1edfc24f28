#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTPROTOTYPEFACTORY_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTPROTOTYPEFACTORY_H

#include "cppmicroservices/PrototypeServiceFactory.h"

#include <memory>

namespace cppmicroservices::ds
{
    class ComponentManager;
    struct ComponentLife;

    /// As ComponentServiceFactory, for components of prototype scope: every
    /// ServiceObjects::GetService makes a new instance, deactivated when its
    /// last shared_ptr goes.
    class ComponentPrototypeFactory final : public PrototypeServiceFactory
    {
      public:
        ComponentPrototypeFactory(std::weak_ptr<ComponentManager> manager, std::weak_ptr<ComponentLife> life);

        InterfaceMapConstPtr GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) override;
        void UngetService(Bundle const& bundle,
                          ServiceRegistrationBase const& registration,
                          InterfaceMapConstPtr const& service) override;

      private:
        std::weak_ptr<ComponentManager> const manager;
        std::weak_ptr<ComponentLife> const life; // the life holds the registration that holds this factory
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTPROTOTYPEFACTORY_H
