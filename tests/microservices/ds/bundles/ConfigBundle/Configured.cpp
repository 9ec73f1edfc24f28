// Components configured through Configuration Admin: one requires its
// configuration and follows changes with Modified, one runs without and is
// re-created on every change.

#include "DSTestComponent.h"

#include "cppmicroservices/AnyMap.h"

#include <mutex>

namespace ds_test
{
    using cppmicroservices::AnyMap;

    std::string
    SettingOf(AnyMap const& properties)
    {
        auto const found = properties.find("setting");
        return found == properties.end() ? std::string("unset") : found->second.ToStringNoExcept();
    }

    class Configured : public ProbedService<test::Configured>
    {
      public:
        explicit Configured(std::shared_ptr<AnyMap> const& properties)
            : ProbedService("Configured", SettingOf(*properties))
            , setting(SettingOf(*properties))
        {
        }

        void
        Modified(std::shared_ptr<ComponentContext> const&, std::shared_ptr<AnyMap> const& properties)
        {
            auto const changed = SettingOf(*properties);
            {
                std::lock_guard<std::mutex> lock(settingMutex);
                setting = changed;
            }
            Record("modified", changed);
        }

        std::string
        Setting() const override
        {
            std::lock_guard<std::mutex> lock(settingMutex);
            return setting;
        }

      private:
        mutable std::mutex settingMutex; // guards setting
        std::string setting;
    };

    // Has no Modified, so a change of its configuration re-creates it. The
    // runtime must construct it with its properties, and its look-alikes of
    // Activate and Modified (other signatures) are no lifecycle methods.
    class Reconfigured : public Probed
    {
      public:
        Reconfigured() : Probed("Reconfigured", "without properties") {}

        explicit Reconfigured(std::shared_ptr<AnyMap> const& properties) : Probed("Reconfigured", SettingOf(*properties))
        {
        }

        void
        Activate()
        {
            Record("activate()");
        }

        void
        Modified(std::shared_ptr<ComponentContext> const&)
        {
            Record("modified(context)");
        }
    };
} // namespace ds_test

using namespace ds_test;

DS_TEST_COMPONENT(ds_test_Configured, ComponentInstanceImpl<Configured, std::tuple<test::Configured>>())
DS_TEST_COMPONENT(ds_test_Reconfigured, ComponentInstanceImpl<Reconfigured>())
