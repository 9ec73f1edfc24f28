#include "component/ComponentPrototypeFactory.h"

#include "component/ComponentManager.h"

namespace cppmicroservices::ds
{
    ComponentPrototypeFactory::ComponentPrototypeFactory(std::weak_ptr<ComponentManager> manager,
                                                         std::shared_ptr<ComponentLife> life)
        : manager(std::move(manager))
        , life(std::move(life))
    {
    }

    InterfaceMapConstPtr
    ComponentPrototypeFactory::GetService(Bundle const& bundle, ServiceRegistrationBase const&)
    {
        auto owner = manager.lock();
        return owner ? owner->GetService(life, bundle) : nullptr;
    }

    void
    ComponentPrototypeFactory::UngetService(Bundle const&,
                                            ServiceRegistrationBase const&,
                                            InterfaceMapConstPtr const& service)
    {
        if (auto owner = manager.lock())
        {
            owner->UngetService(life, service);
        }
    }
} // namespace cppmicroservices::ds
