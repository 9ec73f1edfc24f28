// Components whose references are dynamic: bound and unbound in place
// through Bind/Unbind methods, the instance staying active.

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

    // Records every call under its own component name.
    class Recorder
    {
      public:
        explicit Recorder(std::string name) : name(std::move(name)), instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record(this->name, "construct", instance);
        }

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record(name, "activate", instance);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record(name, "deactivate", instance);
        }

        void
        Bindfeed(std::shared_ptr<test::Feed> const& feed)
        {
            dstest::LifecycleProbe::Get().Record(name, "bind", instance, std::to_string(feed->Id()));
        }

        void
        Unbindfeed(std::shared_ptr<test::Feed> const& feed)
        {
            dstest::LifecycleProbe::Get().Record(name, "unbind", instance, std::to_string(feed->Id()));
        }

      private:
        std::string const name;
        int const instance;
    };

    // Dynamic, greedy, 1..1.
    class Dynamic : public Recorder
    {
      public:
        Dynamic() : Recorder("Dynamic") {}
    };

    // Dynamic, reluctant, 0..n.
    class Multi : public Recorder
    {
      public:
        Multi() : Recorder("Multi") {}
    };
} // namespace ds_test

using cppmicroservices::service::component::detail::Binder;
using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;
using cppmicroservices::service::component::detail::DynamicBinder;

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Dynamic()
{
    std::vector<std::shared_ptr<Binder<ds_test::Dynamic>>> binders;
    binders.push_back(std::make_shared<DynamicBinder<ds_test::Dynamic, test::Feed>>("feed",
                                                                                     &ds_test::Dynamic::Bindfeed,
                                                                                     &ds_test::Dynamic::Unbindfeed));
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Dynamic>({}, binders);
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Dynamic(ComponentInstance* instance)
{
    delete instance;
}

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Multi()
{
    std::vector<std::shared_ptr<Binder<ds_test::Multi>>> binders;
    binders.push_back(std::make_shared<DynamicBinder<ds_test::Multi, test::Feed>>("feed",
                                                                                   &ds_test::Multi::Bindfeed,
                                                                                   &ds_test::Multi::Unbindfeed));
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Multi>({}, binders);
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Multi(ComponentInstance* instance)
{
    delete instance;
}
