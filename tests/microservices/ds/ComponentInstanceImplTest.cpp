// The binders component bundles compile. Constructor injection and the
// lifecycle methods are used through the real runtime by the test bundles.

#include "cppmicroservices/servicecomponent/detail/Binders.hpp"

#include <gtest/gtest.h>

namespace
{
    using cppmicroservices::service::component::ComponentException;
    using cppmicroservices::service::component::detail::DynamicBinder;

    struct Dep
    {
        virtual ~Dep() = default;
    };

    struct Dynamic
    {
        void
        BindDep(std::shared_ptr<Dep> const&)
        {
            ++bound;
        }
        void
        UnbindDep(std::shared_ptr<Dep> const&)
        {
            --bound;
        }
        int bound = 0;
    };

    TEST(DynamicBinderTest, HandsServicesToItsMethodsAndRefusesANullOne)
    {
        DynamicBinder<Dynamic, Dep> binder("dep", &Dynamic::BindDep, &Dynamic::UnbindDep);
        EXPECT_EQ("dep", binder.GetReferenceName());
        EXPECT_EQ(us_service_interface_iid<Dep>(), binder.GetReferenceType());
        auto impl = std::make_shared<Dynamic>();
        binder.Bind(std::make_shared<Dep>(), impl);
        binder.Bind(std::make_shared<Dep>(), impl);
        binder.UnBind(std::make_shared<Dep>(), impl);
        EXPECT_EQ(1, impl->bound);
        EXPECT_THROW(binder.Bind(std::shared_ptr<void>(), impl), ComponentException);
        EXPECT_THROW(binder.UnBind(std::shared_ptr<void>(), impl), ComponentException);
        EXPECT_EQ(1, impl->bound);
    }
} // namespace
