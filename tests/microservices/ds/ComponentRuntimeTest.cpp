// Loading and unloading the components of bundles: every kind of failure is
// logged with the bundle and the component named, and neither stops the
// framework nor the other components of the bundle.

#include "DSFixture.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace dstest
{
    namespace
    {
        class ComponentRuntimeTest : public DSFixture
        {
        };

        TEST_F(ComponentRuntimeTest, FailingComponentsAreLoggedAndTheOthersOfTheBundleRun)
        {
            auto bundle = StartBundle("DSTestFailuresBundle");
            EXPECT_EQ(cppmicroservices::Bundle::STATE_ACTIVE, bundle.GetState());
            EXPECT_EQ(cppmicroservices::Bundle::STATE_ACTIVE, framework->GetState());

            EXPECT_THAT(Trace("Healthy"), ElementsAre("construct", "activate"));
            EXPECT_THAT(Trace("ThrowingDeactivate"), ElementsAre("construct", "activate"));

            EXPECT_TRUE(Logged({ "ds_test_failures", "ds_test::NoSymbol", "NewInstance_ds_test_NoSymbol" }));
            EXPECT_TRUE(Logged({ "ds_test_failures", "ds_test::ThrowingCtor", "constructor refuses" }));
            EXPECT_THAT(Trace("ThrowingCtor"), IsEmpty());
            EXPECT_TRUE(Logged({ "ds_test_failures",
                                 "Could not load the component with index: 4",
                                 "broken",
                                 "implementation-class must be a non-empty string" }));
            EXPECT_TRUE(Logged({ "ds_test_failures",
                                 "Could not load the component with index: 6",
                                 "ds_test::Factory",
                                 "factory components are not supported" }));

            EXPECT_TRUE(Logged({ "ds_test_failures", "ds_test::ThrowingActivate", "activation refuses" }));
            auto reference = context.GetServiceReference<test::IfaceA>();
            ASSERT_TRUE(reference) << "a component whose Activate threw stays registered";
            EXPECT_FALSE(context.GetService(reference)) << "but it has no instance to hand out";
            EXPECT_EQ(1u, LifecycleProbe::Get().Count("ThrowingActivate", "activate")) << "and is not retried";

            bundle.Stop();
            EXPECT_THAT(Trace("Healthy"), ElementsAre("construct", "activate", "deactivate"));
            EXPECT_THAT(Trace("ThrowingDeactivate"), ElementsAre("construct", "activate", "deactivate", "destroy"))
                << "a throwing Deactivate does not stop the instance's destruction";
            EXPECT_THAT(Trace("ThrowingActivate"), ElementsAre("construct", "activate")) << "never active, never deactivated";
            EXPECT_TRUE(Logged({ "ds_test_failures", "ds_test::ThrowingDeactivate", "deactivation refuses" }));
        }

        TEST_F(ComponentRuntimeTest, UnsupportedScrSectionIsLoggedWithTheBundleNamedAndLoadsNothing)
        {
            auto bundle = StartBundle("DSTestBadScrBundle");
            EXPECT_EQ(cppmicroservices::Bundle::STATE_ACTIVE, bundle.GetState());
            EXPECT_TRUE(Logged({ "ds_test_bad_scr", "Unsupported scr.version 2" }));
        }
    } // namespace
} // namespace dstest
