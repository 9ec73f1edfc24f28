// The life of components through a real framework: satisfaction by
// references, registration, prototype scope, replacement on a lost static
// reference, and deactivation on stop.

#include "DSFixture.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/servicecomponent/ComponentConstants.hpp"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace dstest
{
    namespace
    {
        class ComponentManagerTest : public DSFixture
        {
        };

        TEST_F(ComponentManagerTest, ImmediateComponentIsCreatedOnlyWhenTheLastMandatoryReferenceArrives)
        {
            StartBundle("DSTestLifecycleBundle");
            auto a = Register<test::RefA>(1);
            auto b = Register<test::RefB>(2);
            EXPECT_THAT(Calls("Triple"), IsEmpty());
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>());

            auto c = Register<test::RefC>(3);
            // Events are synchronous: the component is active when RegisterService returns.
            EXPECT_THAT(Calls("Triple"), ElementsAre("construct#1(1,2,3)", "activate#1(triple)"));

            auto referenceA = context.GetServiceReference<test::IfaceA>();
            auto referenceB = context.GetServiceReference<test::IfaceB>();
            ASSERT_TRUE(referenceA);
            ASSERT_TRUE(referenceB);
            EXPECT_EQ(referenceA.GetProperty(cppmicroservices::Constants::SERVICE_ID).ToString(),
                      referenceB.GetProperty(cppmicroservices::Constants::SERVICE_ID).ToString())
                << "both interfaces belong to one registration";
            using cppmicroservices::service::component::ComponentConstants::COMPONENT_NAME;
            EXPECT_EQ("ds_test::Triple", cppmicroservices::any_cast<std::string>(referenceA.GetProperty(COMPONENT_NAME)));
            EXPECT_EQ("triple", referenceA.GetProperty("flavour").ToString());
            EXPECT_EQ(3, cppmicroservices::any_cast<int>(referenceA.GetProperty("service.ranking")));
            EXPECT_EQ("ds_test_lifecycle", referenceA.GetBundle().GetSymbolicName());

            auto service = context.GetService(referenceA);
            ASSERT_TRUE(service);
            EXPECT_EQ(1, service->Instance()) << "the registered service is the activated instance";
            EXPECT_EQ("triple", context.GetService(referenceB)->Flavour());
        }

        TEST_F(ComponentManagerTest, LostStaticReferenceMovesToANewInstanceWithTheBestOtherMatchOrWhenOneReturns)
        {
            StartBundle("DSTestLifecycleBundle");
            auto preferred = Register<test::RefA>(1, { { "service.ranking", 5 } });
            auto spare = Register<test::RefA>(11);
            auto b = Register<test::RefB>(2);
            auto c = Register<test::RefC>(3);
            auto best = Register<test::RefA>(111, { { "service.ranking", 9 } });
            EXPECT_THAT(Calls("Triple"), ElementsAre("construct#1(1,2,3)", "activate#1(triple)"))
                << "a static reluctant reference ignores a better service";

            preferred.Unregister();
            b.Unregister();
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>()) << "an unsatisfied component is unregistered";
            auto b2 = Register<test::RefB>(22);
            EXPECT_THAT(Calls("Triple"),
                        ElementsAre("construct#1(1,2,3)",
                                    "activate#1(triple)",
                                    "deactivate#1",
                                    "construct#2(111,2,3)",
                                    "activate#2(triple)",
                                    "deactivate#2",
                                    "construct#3(111,22,3)",
                                    "activate#3(triple)"));
            auto reference = context.GetServiceReference<test::IfaceA>();
            ASSERT_TRUE(reference);
            EXPECT_EQ(3, context.GetService(reference)->Instance());
        }

        TEST_F(ComponentManagerTest, PrototypeScopeMakesAnInstancePerUseAndDeactivatesItWhenReleased)
        {
            StartBundle("DSTestLifecycleBundle");
            auto reference = context.GetServiceReference<test::Echo>();
            ASSERT_TRUE(reference);
            EXPECT_EQ("prototype", reference.GetProperty("service.scope").ToString());
            auto objects = context.GetServiceObjects(reference);
            auto first = objects.GetService();
            auto second = objects.GetService();
            ASSERT_TRUE(first);
            ASSERT_TRUE(second);
            EXPECT_NE(first->Instance(), second->Instance());
            first.reset();
            EXPECT_TRUE(WaitForCalls("Prototype", "deactivate", 1));
            EXPECT_THAT(Calls("Prototype"),
                        ElementsAre("construct#1",
                                    "activate#1(system_bundle)",
                                    "construct#2",
                                    "activate#2(system_bundle)",
                                    "deactivate#1"))
                << "each instance knows the bundle it was made for";
        }

        // The bundle, the runtime and at last the framework stop in turn: each
        // time every active component is deactivated once.
        TEST_F(ComponentManagerTest, StoppingTheBundleTheRuntimeOrTheFrameworkDeactivatesEveryActiveComponentOnce)
        {
            auto bundle = StartBundle("DSTestLifecycleBundle");
            auto a = Register<test::RefA>(1);
            auto b = Register<test::RefB>(2);
            auto c = Register<test::RefC>(3);
            context.GetService(context.GetServiceReference<test::LazyService>());

            bundle.Stop();
            EXPECT_THAT(Calls("Triple"), ElementsAre("construct#1(1,2,3)", "activate#1(triple)", "deactivate#1"));
            EXPECT_THAT(Calls("Lazy"), ElementsAre("construct#2", "activate#2", "deactivate#2"));
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>());
            EXPECT_FALSE(context.GetServiceReference<test::LazyService>());
            a.Unregister();
            EXPECT_EQ(1u, LifecycleProbe::Get().Count("Triple", "deactivate")) << "its services going later change nothing";

            auto a2 = Register<test::RefA>(11);
            bundle.Start();
            EXPECT_THAT(Calls("Triple"),
                        ElementsAre("construct#1(1,2,3)",
                                    "activate#1(triple)",
                                    "deactivate#1",
                                    "construct#3(11,2,3)",
                                    "activate#3(triple)"))
                << "a restarted bundle gets its components back";

            runtime.Stop();
            EXPECT_EQ(2u, LifecycleProbe::Get().Count("Triple", "deactivate"));
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>());
            runtime.Start();
            EXPECT_EQ(3u, LifecycleProbe::Get().Count("Triple", "activate"))
                << "components of bundles active before the runtime starts are loaded";

            context.GetService(context.GetServiceReference<test::LazyService>());
            StopFramework();
            EXPECT_EQ(3u, LifecycleProbe::Get().Count("Triple", "deactivate"));
            EXPECT_EQ(2u, LifecycleProbe::Get().Count("Lazy", "deactivate"));
        }
    } // namespace
} // namespace dstest
