#include "component/ComponentServiceFactory.h"

#include "component/ComponentManager.h"

namespace cppmicroservices::ds
{
    ComponentServiceFactory::ComponentServiceFactory(std::weak_ptr<ComponentManager> manager,
                                                     std::shared_ptr<ComponentLife> life)
        : manager(std::move(manager))
        , life(std::move(life))
    {
    }

    InterfaceMapConstPtr
    ComponentServiceFactory::GetService(Bundle const& bundle, ServiceRegistrationBase const&)
    {
        auto owner = manager.lock();
        return owner ? owner->GetService(life, bundle) : nullptr;
    }

    void
    ComponentServiceFactory::UngetService(Bundle const&, ServiceRegistrationBase const&, InterfaceMapConstPtr const& service)
    {
        if (auto owner = manager.lock())
        {
            owner->UngetService(life, service);
        }
    }
} // namespace cppmicroservices::ds
