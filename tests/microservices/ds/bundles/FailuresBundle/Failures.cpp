// Components that fail in every way a component can, next to one that
// works: the runtime must log each failure and keep the others running.

#include "DSTestInterfaces.h"
#include "LifecycleProbe.h"

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp"

#include <memory>
#include <new>
#include <stdexcept>

namespace ds_test
{
    using cppmicroservices::service::component::ComponentContext;

    class Healthy
    {
      public:
        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Healthy", "activate", 0);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Healthy", "deactivate", 0);
        }
    };

    class ThrowingCtor
    {
      public:
        ThrowingCtor() { throw std::runtime_error("constructor refuses"); }

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("ThrowingCtor", "activate", 0);
        }
    };

    class ThrowingActivate : public test::IfaceA
    {
      public:
        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("ThrowingActivate", "activate", 0);
            throw std::runtime_error("activation refuses");
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("ThrowingActivate", "deactivate", 0);
        }

        int
        Instance() const override
        {
            return 0;
        }
    };

    class ThrowingDeactivate
    {
      public:
        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("ThrowingDeactivate", "activate", 0);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("ThrowingDeactivate", "deactivate", 0);
            throw std::runtime_error("deactivation refuses");
        }

        ~ThrowingDeactivate() { dstest::LifecycleProbe::Get().Record("ThrowingDeactivate", "destroy", 0); }
    };
} // namespace ds_test

using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;

#define DS_TEST_ENTRY_POINTS(Name, ...)                                                                            \
    extern "C" US_ABI_EXPORT ComponentInstance* NewInstance_ds_test_##Name()                                        \
    {                                                                                                              \
        return new (std::nothrow) ComponentInstanceImpl<ds_test::Name, ##__VA_ARGS__>();                          \
    }                                                                                                              \
    extern "C" US_ABI_EXPORT void DeleteInstance_ds_test_##Name(ComponentInstance* instance)                        \
    {                                                                                                              \
        delete instance;                                                                                           \
    }

DS_TEST_ENTRY_POINTS(Healthy)
DS_TEST_ENTRY_POINTS(ThrowingCtor)
DS_TEST_ENTRY_POINTS(ThrowingActivate, std::tuple<test::IfaceA>)
DS_TEST_ENTRY_POINTS(ThrowingDeactivate)
// ds_test::NoSymbol has no entry points on purpose.
