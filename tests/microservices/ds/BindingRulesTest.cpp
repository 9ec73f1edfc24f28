// How references bind, through a real framework: dynamic references rebind
// in place (new before old), static greedy ones recreate for a better
// service, reluctant ones ignore newcomers, and a component never binds its
// own service.

#include "DSFixture.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace dstest
{
    namespace
    {
        class BindingRulesTest : public DSFixture
        {
          protected:
            void
            SetUp() override
            {
                DSFixture::SetUp();
                StartBundle("DSTestBindingBundle");
            }

            cppmicroservices::ServiceRegistration<test::Feed>
            Feed(int id, std::string const& kind, int ranking = 0)
            {
                return Register<test::Feed>(id, { { "feed", kind }, { "service.ranking", ranking } });
            }
        };

        class Echo : public test::Echo
        {
          public:
            int
            Instance() const override
            {
                return 99;
            }
        };

        TEST_F(BindingRulesTest, DynamicGreedyReferenceBindsTheBetterServiceBeforeUnbindingTheOld)
        {
            EXPECT_THAT(Trace("Dynamic"), IsEmpty()) << "its mandatory reference is unbound";

            auto first = Feed(1, "dynamic");
            EXPECT_THAT(Trace("Dynamic"), ElementsAre("construct", "bind(1)", "activate"));

            auto better = Feed(2, "dynamic", 5);
            auto worse = Feed(3, "dynamic", -5);
            better.Unregister();
            first.Unregister();
            worse.Unregister();
            EXPECT_THAT(Trace("Dynamic"),
                        ElementsAre("construct",
                                    "bind(1)",
                                    "activate",
                                    "bind(2)",
                                    "unbind(1)",
                                    "bind(1)",
                                    "unbind(2)",
                                    "bind(3)",
                                    "unbind(1)",
                                    "deactivate",
                                    "unbind(3)"))
                << "one instance throughout; it goes only when the last service does";
        }

        TEST_F(BindingRulesTest, MultipleDynamicReferenceBindsEveryMatchInPlace)
        {
            EXPECT_THAT(Trace("Multi"), ElementsAre("construct", "activate")) << "0..n is satisfied with none";
            auto one = Feed(1, "multi");
            auto two = Feed(2, "multi");
            auto other = Feed(3, "dynamic");
            one.Unregister();
            EXPECT_THAT(Trace("Multi"), ElementsAre("construct", "activate", "bind(1)", "bind(2)", "unbind(1)"));
        }

        TEST_F(BindingRulesTest, GreedyStaticReferenceRecreatesTheInstanceForABetterServiceOnly)
        {
            auto first = Feed(1, "greedy");
            auto worse = Feed(2, "greedy");
            EXPECT_THAT(Trace("Greedy"), ElementsAre("construct", "activate(1)"))
                << "at equal ranking the older service is better";

            auto better = Feed(3, "greedy", 10);
            EXPECT_THAT(Trace("Greedy"),
                        ElementsAre("construct", "activate(1)", "deactivate", "construct", "activate(3)"));
        }

        TEST_F(BindingRulesTest, OptionalReluctantStaticReferenceIgnoresALateServiceAndRunsOnWithoutALostOne)
        {
            auto feed = Feed(1, "optional");
            EXPECT_THAT(Trace("Optional"), ElementsAre("construct", "activate(none)")) << "reluctant: the feed came late";

            runtime.Stop();
            runtime.Start();
            feed.Unregister();
            EXPECT_THAT(Trace("Optional"),
                        ElementsAre("construct",
                                    "activate(none)",
                                    "deactivate",
                                    "construct",
                                    "activate(1)",
                                    "deactivate",
                                    "construct",
                                    "activate(none)"));
        }

        TEST_F(BindingRulesTest, StaticMultipleReferenceInjectsEveryMatchBestFirstAndIsRecreatedWithoutALostOne)
        {
            runtime.Stop();
            auto one = Feed(1, "collect");
            auto two = Feed(2, "collect", 5);
            runtime.Start();
            auto late = Feed(3, "collect");
            two.Unregister();
            EXPECT_THAT(Trace("Collector"),
                        ElementsAre("construct",
                                    "activate",
                                    "deactivate",
                                    "construct(2,1)",
                                    "activate",
                                    "deactivate",
                                    "construct(1,3)",
                                    "activate"))
                << "reluctant: the late feed waits for the next instance";
        }

        TEST_F(BindingRulesTest, ComponentNeverBindsItsOwnService)
        {
            EXPECT_THAT(Trace("SelfRef"), ElementsAre("construct", "activate")) << "its own Echo is registered but not bound";
            ASSERT_TRUE(context.GetServiceReference<test::Echo>());

            auto echo = context.RegisterService<test::Echo>(std::make_shared<Echo>());
            EXPECT_THAT(Trace("SelfRef"), ElementsAre("construct", "activate", "bind(99)"));
        }

        TEST_F(BindingRulesTest, ComponentContextEnablesAndDisablesComponentsAsynchronously)
        {
            EXPECT_THAT(Trace("Dormant"), IsEmpty()) << "enabled: false";
            auto switcher = context.GetService(context.GetServiceReference<test::Switch>());
            ASSERT_TRUE(switcher);

            switcher->Enable("dormant");
            ASSERT_TRUE(WaitForCalls("Dormant", "activate", 1));
            switcher->Disable("dormant");
            ASSERT_TRUE(WaitForCalls("Dormant", "deactivate", 1));
            switcher->Enable("no such component");
            switcher->Enable("");
            ASSERT_TRUE(WaitForCalls("Dormant", "activate", 2)) << "an empty name enables every component";
            EXPECT_THAT(Trace("Dormant"), ElementsAre("construct", "activate", "deactivate", "construct", "activate"));
        }
    } // namespace
} // namespace dstest
