// A disabled component and a component whose service enables and disables
// components of this bundle through its ComponentContext.

#include "DSTestInterfaces.h"
#include "LifecycleProbe.h"

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp"

#include <memory>
#include <new>
#include <string>

namespace ds_test
{
    using cppmicroservices::service::component::ComponentContext;

    class Dormant
    {
      public:
        Dormant() : instance(dstest::LifecycleProbe::Get().NextInstance()) {}

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Dormant", "activate", instance);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Dormant", "deactivate", instance);
        }

      private:
        int const instance;
    };

    class Switcher : public test::Switch
    {
      public:
        void
        Activate(std::shared_ptr<ComponentContext> const& ctx)
        {
            context = ctx;
        }

        void
        Enable(std::string const& name) override
        {
            context->EnableComponent(name);
        }

        void
        Disable(std::string const& name) override
        {
            context->DisableComponent(name);
        }

      private:
        std::shared_ptr<ComponentContext> context;
    };
} // namespace ds_test

using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_dormant()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Dormant>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_dormant(ComponentInstance* instance)
{
    delete instance;
}

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Switcher()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Switcher, std::tuple<test::Switch>>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Switcher(ComponentInstance* instance)
{
    delete instance;
}
