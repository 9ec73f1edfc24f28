// Components configured through Configuration Admin: one requires its
// configuration and follows changes with Modified, one runs without and is
// re-created on every change.

#include "DSTestInterfaces.h"
#include "LifecycleProbe.h"

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp"

#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace ds_test
{
    using cppmicroservices::AnyMap;
    using cppmicroservices::service::component::ComponentContext;

    std::string
    SettingOf(AnyMap const& properties)
    {
        auto const found = properties.find("setting");
        return found == properties.end() ? std::string("unset") : found->second.ToStringNoExcept();
    }

    class Configured : public test::Configured
    {
      public:
        explicit Configured(std::shared_ptr<AnyMap> const& properties)
            : instance(dstest::LifecycleProbe::Get().NextInstance())
            , setting(SettingOf(*properties))
        {
            dstest::LifecycleProbe::Get().Record("Configured", "construct", instance, setting);
        }

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Configured", "activate", instance);
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Configured", "deactivate", instance);
        }

        void
        Modified(std::shared_ptr<ComponentContext> const&, std::shared_ptr<AnyMap> const& properties)
        {
            auto const changed = SettingOf(*properties);
            {
                std::lock_guard<std::mutex> lock(settingMutex);
                setting = changed;
            }
            dstest::LifecycleProbe::Get().Record("Configured", "modified", instance, changed);
        }

        int
        Instance() const override
        {
            return instance;
        }

        std::string
        Setting() const override
        {
            std::lock_guard<std::mutex> lock(settingMutex);
            return setting;
        }

      private:
        int const instance;
        mutable std::mutex settingMutex; // guards setting
        std::string setting;
    };

    class Reconfigured
    {
      public:
        explicit Reconfigured(std::shared_ptr<AnyMap> const& properties)
            : instance(dstest::LifecycleProbe::Get().NextInstance())
        {
            dstest::LifecycleProbe::Get().Record("Reconfigured", "construct", instance, SettingOf(*properties));
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            dstest::LifecycleProbe::Get().Record("Reconfigured", "deactivate", instance);
        }

      private:
        int const instance;
    };
} // namespace ds_test

using cppmicroservices::service::component::detail::ComponentInstance;
using cppmicroservices::service::component::detail::ComponentInstanceImpl;

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Configured()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Configured, std::tuple<test::Configured>>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Configured(ComponentInstance* instance)
{
    delete instance;
}

extern "C" US_ABI_EXPORT ComponentInstance*
NewInstance_ds_test_Reconfigured()
{
    return new (std::nothrow) ComponentInstanceImpl<ds_test::Reconfigured>();
}

extern "C" US_ABI_EXPORT void
DeleteInstance_ds_test_Reconfigured(ComponentInstance* instance)
{
    delete instance;
}
