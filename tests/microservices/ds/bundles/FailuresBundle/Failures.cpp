// Components that fail in every way a component can, next to one that
// works: the runtime must log each failure and keep the others running.

#include "DSTestComponent.h"

#include <stdexcept>

namespace ds_test
{
    class Healthy : public Probed
    {
      public:
        Healthy() : Probed("Healthy") {}
    };

    class ThrowingCtor
    {
      public:
        ThrowingCtor() { throw std::runtime_error("constructor refuses"); }
    };

    class ThrowingActivate : public ProbedService<test::IfaceA>
    {
      public:
        ThrowingActivate() : ProbedService("ThrowingActivate") {}

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            Record("activate");
            throw std::runtime_error("activation refuses");
        }
    };

    class ThrowingDeactivate : public Probed
    {
      public:
        ThrowingDeactivate() : Probed("ThrowingDeactivate") {}

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            Record("deactivate");
            throw std::runtime_error("deactivation refuses");
        }

        ~ThrowingDeactivate() { Record("destroy"); }
    };
} // namespace ds_test

using namespace ds_test;

DS_TEST_COMPONENT(ds_test_Healthy, ComponentInstanceImpl<Healthy>())
DS_TEST_COMPONENT(ds_test_ThrowingCtor, ComponentInstanceImpl<ThrowingCtor>())
DS_TEST_COMPONENT(ds_test_ThrowingActivate, ComponentInstanceImpl<ThrowingActivate, std::tuple<test::IfaceA>>())
DS_TEST_COMPONENT(ds_test_ThrowingDeactivate, ComponentInstanceImpl<ThrowingDeactivate>())
// ds_test::NoSymbol has no entry points on purpose.
