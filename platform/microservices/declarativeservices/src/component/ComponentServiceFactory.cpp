#include "component/ComponentServiceFactory.h"

#include "component/ComponentManager.h"

namespace cppmicroservices::ds
{
    template <class Base>
    BasicComponentFactory<Base>::BasicComponentFactory(std::weak_ptr<ComponentManager> manager,
                                                       std::weak_ptr<ComponentLife> life)
        : manager(std::move(manager))
        , life(std::move(life))
    {
    }

    template <class Base>
    InterfaceMapConstPtr
    BasicComponentFactory<Base>::GetService(Bundle const& bundle, ServiceRegistrationBase const&)
    {
        auto owner = manager.lock();
        auto target = life.lock();
        return owner && target ? owner->GetService(target, bundle) : nullptr;
    }

    template <class Base>
    void
    BasicComponentFactory<Base>::UngetService(Bundle const&,
                                              ServiceRegistrationBase const&,
                                              InterfaceMapConstPtr const& service)
    {
        auto owner = manager.lock();
        auto target = life.lock();
        if (owner && target)
        {
            owner->UngetService(target, service);
        }
    }

    template class BasicComponentFactory<ServiceFactory>;
    template class BasicComponentFactory<PrototypeServiceFactory>;
} // namespace cppmicroservices::ds
