// A delayed component: it provides a service and is created on first use.

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

    class Lazy : public test::LazyService
    {
      public:
        Lazy() : instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record("Lazy", "construct", instance);
        }

        // Records whether the context knows the component's own registration
        // and, wrongly for a singleton, a using bundle.
        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            std::string detail = context->GetServiceReference() ? "" : "unregistered";
            if (context->GetUsingBundle())
            {
                detail += "using " + context->GetUsingBundle().GetSymbolicName();
            }
            dstest::LifecycleProbe::Get().Record("Lazy", "activate", instance, detail);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Lazy", "deactivate", instance);
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
NewInstance_ds_test_Lazy()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Lazy, std::tuple<test::LazyService>>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Lazy(ComponentInstance* instance)
{
    delete instance;
}
