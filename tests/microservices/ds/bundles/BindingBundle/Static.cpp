// Components whose references are static: a change of their bound services
// replaces the instance.

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

    // Looks its service up in Activate instead of taking it in the constructor.
    class FeedUser
    {
      public:
        explicit FeedUser(std::string name) : name(std::move(name)), instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record(this->name, "construct", instance);
        }

        void
        Activate(std::shared_ptr<ComponentContext> const& context)
        {
            auto const feed = context->LocateService<test::Feed>("feed");
            dstest::LifecycleProbe::Get().Record(name, "activate", instance, feed ? std::to_string(feed->Id()) : "none");
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record(name, "deactivate", instance);
        }

      private:
        std::string const name;
        int const instance;
    };

    // Static, greedy, 1..1.
    class Greedy : public FeedUser
    {
      public:
        Greedy() : FeedUser("Greedy") {}
    };

    // Static, reluctant, 0..1.
    class Optional : public FeedUser
    {
      public:
        Optional() : FeedUser("Optional") {}
    };

    // Provides test::Echo and binds every other test::Echo dynamically: never its own.
    class SelfRef : public test::Echo
    {
      public:
        SelfRef() : instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record("SelfRef", "construct", instance);
        }

        void
        Bindecho(std::shared_ptr<test::Echo> const& echo)
        {
            dstest::LifecycleProbe::Get().Record("SelfRef", "bind", instance, std::to_string(echo->Instance()));
        }

        void
        Unbindecho(std::shared_ptr<test::Echo> const& echo)
        {
            dstest::LifecycleProbe::Get().Record("SelfRef", "unbind", instance, std::to_string(echo->Instance()));
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

using cppmicroservices::service::component::detail::Binder;
using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;
using cppmicroservices::service::component::detail::DynamicBinder;

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Greedy()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Greedy>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Greedy(ComponentInstance* instance)
{
    delete instance;
}

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Optional()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Optional>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Optional(ComponentInstance* instance)
{
    delete instance;
}

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_SelfRef()
{
    std::vector<std::shared_ptr<Binder<ds_test::SelfRef>>> binders;
    binders.push_back(std::make_shared<DynamicBinder<ds_test::SelfRef, test::Echo>>("echo",
                                                                                    &ds_test::SelfRef::Bindecho,
                                                                                    &ds_test::SelfRef::Unbindecho));
    return new (std::nothrow) ComponentInstanceImpl<ds_test::SelfRef, std::tuple<test::Echo>>({}, binders);
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_SelfRef(ComponentInstance* instance)
{
    delete instance;
}
