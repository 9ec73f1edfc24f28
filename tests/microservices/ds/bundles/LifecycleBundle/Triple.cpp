// An immediate component with three mandatory static references, provided
// as two interfaces. Records its construction (with the ids of the injected
// services), activation and deactivation in the probe.

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

    class Triple
        : public test::IfaceA
        , public test::IfaceB
    {
      public:
        Triple(std::shared_ptr<test::RefA> const& a, std::shared_ptr<test::RefB> const& b, std::shared_ptr<test::RefC> const& c)
            : instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            auto idOf = [](auto const& service) { return service ? std::to_string(service->Id()) : std::string("null"); };
            dstest::LifecycleProbe::Get().Record("Triple",
                                                 "construct",
                                                 instance,
                                                 idOf(a) + "," + idOf(b) + "," + idOf(c));
        }

        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            auto const properties = context->GetProperties();
            auto const flavour = properties.find("flavour");
            dstest::LifecycleProbe::Get().Record(
                "Triple",
                "activate",
                instance,
                flavour == properties.end() ? std::string() : flavour->second.ToStringNoExcept());
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Triple", "deactivate", instance);
        }

        int
        Instance() const override
        {
            return instance;
        }

        std::string
        Flavour() const override
        {
            return "triple";
        }

      private:
        int const instance;
    };
} // namespace ds_test

using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Triple()
{
    return new (std::nothrow)
        ComponentInstanceImpl<ds_test::Triple, std::tuple<test::IfaceA, test::IfaceB>, std::shared_ptr<test::RefA>,
                              std::shared_ptr<test::RefB>, std::shared_ptr<test::RefC>>(
            { "refA", "refB", "refC" });
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Triple(ComponentInstance* instance)
{
    delete instance;
}
