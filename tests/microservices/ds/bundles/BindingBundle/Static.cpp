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

    // Provides test::Echo and needs a test::Echo: never its own.
    class SelfRef : public test::Echo
    {
      public:
        explicit SelfRef(std::shared_ptr<test::Echo> const& other) : instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record("SelfRef", "construct", instance, std::to_string(other->Instance()));
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
    return new (std::nothrow) ComponentInstanceImpl<ds_test::SelfRef, std::tuple<test::Echo>, test::Echo>({ { "echo" } });
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_SelfRef(ComponentInstance* instance)
{
    delete instance;
}
