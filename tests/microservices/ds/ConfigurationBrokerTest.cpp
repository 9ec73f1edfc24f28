// Components with a configuration policy, fed by the real Configuration
// Admin bundle: require gates satisfaction, an update reaches Modified or
// re-creates the component, a removal takes it back.

#include "DSFixture.h"

#include "cppmicroservices/cm/ConfigurationAdmin.hpp"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace dstest
{
    namespace
    {
        using cppmicroservices::AnyMap;
        using cppmicroservices::service::cm::ConfigurationAdmin;

        AnyMap
        Setting(std::string const& value)
        {
            return AnyMap{ { "setting", value } };
        }

        class ConfigurationBrokerTest : public DSFixture
        {
          protected:
            std::shared_ptr<ConfigurationAdmin>
            StartConfigurationAdmin()
            {
                StartBundle("ConfigurationAdmin");
                auto reference = context.GetServiceReference<ConfigurationAdmin>();
                return reference ? context.GetService(reference) : nullptr;
            }
        };

        TEST_F(ConfigurationBrokerTest, RequiredConfigurationGatesTheComponentAndUpdatesReachModified)
        {
            StartBundle("DSTestConfigBundle");
            auto admin = StartConfigurationAdmin();
            ASSERT_TRUE(admin);
            EXPECT_THAT(Trace("Configured"), IsEmpty()) << "configuration-policy require without a configuration";
            EXPECT_FALSE(context.GetServiceReference<test::Configured>());

            auto configuration = admin->GetConfiguration("ds.test.configured");
            configuration->Update(Setting("one")).get();
            ASSERT_TRUE(WaitForCalls("Configured", "activate", 1));
            auto reference = context.GetServiceReference<test::Configured>();
            ASSERT_TRUE(reference);
            EXPECT_EQ("one", reference.GetProperty("setting").ToString());
            auto service = context.GetService(reference);

            configuration->Update(Setting("two")).get();
            ASSERT_TRUE(WaitForCalls("Configured", "modified", 1));
            EXPECT_THAT(Trace("Configured"), ElementsAre("construct(one)", "activate", "modified(two)"))
                << "the instance stays; Modified gets the new properties";
            EXPECT_EQ("two", service->Setting());
            EXPECT_TRUE(testsupport::WaitFor([&] { return reference.GetProperty("setting").ToString() == "two"; }))
                << "the registration follows";

            configuration->Remove().get();
            ASSERT_TRUE(WaitForCalls("Configured", "deactivate", 1));
            EXPECT_FALSE(context.GetServiceReference<test::Configured>());
        }

        TEST_F(ConfigurationBrokerTest, OptionalConfigurationRecreatesAComponentWithoutModified)
        {
            auto admin = StartConfigurationAdmin();
            ASSERT_TRUE(admin);
            StartBundle("DSTestConfigBundle");
            EXPECT_THAT(Trace("Reconfigured"), ElementsAre("construct(default)")) << "optional: runs without";

            auto configuration = admin->GetConfiguration("ds_test::Reconfigured");
            configuration->Update(Setting("custom")).get();
            ASSERT_TRUE(WaitForCalls("Reconfigured", "construct", 2));
            configuration->Remove().get();
            ASSERT_TRUE(WaitForCalls("Reconfigured", "construct", 3));
            EXPECT_THAT(Trace("Reconfigured"),
                        ElementsAre("construct(default)",
                                    "deactivate",
                                    "construct(custom)",
                                    "deactivate",
                                    "construct(default)"))
                << "constructed with its properties; no look-alike of Activate or Modified is called";
        }

        TEST_F(ConfigurationBrokerTest, ConfigurationThatExistsBeforeTheBundleStartsIsAppliedAtOnce)
        {
            auto admin = StartConfigurationAdmin();
            ASSERT_TRUE(admin);
            admin->GetConfiguration("ds.test.configured")->Update(Setting("early")).get();

            StartBundle("DSTestConfigBundle");
            EXPECT_THAT(Trace("Configured"), ElementsAre("construct(early)", "activate"));
        }
    } // namespace
} // namespace dstest
