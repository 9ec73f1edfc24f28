// A delayed component of prototype scope: every ServiceObjects::GetService
// makes a new instance, deactivated when its last user lets go.

#include "DSTestInterfaces.h"
#include "LifecycleProbe.h"

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp"

#include <memory>
#include <new>

namespace ds_test
{
    using cppmicroservices::service::component::ComponentContext;

    class Prototype : public test::Echo
    {
      public:
        Prototype() : instance(dstest::LifecycleProbe::Get().NextInstance()) {}

        // Records the bundle it was made for.
        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            auto const user = context->GetUsingBundle();
            dstest::LifecycleProbe::Get().Record("Prototype", "activate", instance, user ? user.GetSymbolicName() : "nobody");
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Prototype", "deactivate", instance);
        }

        int
        Instance() const override
        {
            return instance;
        }

      private:
        int const instance;
    };
} // namespace ds_test

using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Prototype()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Prototype, std::tuple<test::Echo>>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Prototype(ComponentInstance* instance)
{
    delete instance;
}
