// A delayed component with a mandatory static reference: created by the
// first GetService, replaced when its reference goes.

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

    class OnDemand : public test::OnDemand
    {
      public:
        explicit OnDemand(std::shared_ptr<test::RefA> const& a) : instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record("OnDemand", "construct", instance, a ? std::to_string(a->Id()) : "null");
        }

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("OnDemand", "activate", instance);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("OnDemand", "deactivate", instance);
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
NewInstance_ds_test_OnDemand()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::OnDemand, std::tuple<test::OnDemand>, std::shared_ptr<test::RefA>>({ "refA" });
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_OnDemand(ComponentInstance* instance)
{
    delete instance;
}
