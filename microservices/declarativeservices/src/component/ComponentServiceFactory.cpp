#include "component/ComponentServiceFactory.h"

#include "component/ComponentManager.h"

namespace cppmicroservices::ds
{
    ComponentServiceFactory::ComponentServiceFactory(std::weak_ptr<ComponentManager> manager,
                                                     std::weak_ptr<ComponentLife> life)
        : manager(std::move(manager))
        , life(std::move(life))
    {
    }

    InterfaceMapConstPtr
    ComponentServiceFactory::GetService(Bundle const& bundle, ServiceRegistrationBase const&)
    {
        auto owner = manager.lock();
        auto target = life.lock();
        return owner && target ? owner->GetService(target, bundle) : nullptr;
    }

    void
    ComponentServiceFactory::UngetService(Bundle const&, ServiceRegistrationBase const&, InterfaceMapConstPtr const& service)
    {
        auto owner = manager.lock();
        auto target = life.lock();
        if (owner && target)
        {
            owner->UngetService(target, service);
        }
    }
} // namespace cppmicroservices::ds
