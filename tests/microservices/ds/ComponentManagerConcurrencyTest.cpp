// Reference services registered and unregistered, and delayed components
// used, from many threads at once: every instance that is activated is
// deactivated exactly once, lives never overlap, nothing deadlocks, and a
// delayed component is created once however many ask for it at once.

#include "DSFixture.h"
#include "support/Barrier.h"

#include <map>

namespace dstest
{
    namespace
    {
        class ComponentManagerConcurrencyTest : public DSFixture
        {
          protected:
            // Checks the probe's events of component: construct, activate
            // and deactivate once each per instance, in that order, with at
            // most one instance active at any moment and none at the end.
            static void
            ExpectSerialLivesAllEnded(std::string const& component = "Triple")
            {
                std::map<int, std::vector<std::string>> perInstance;
                int active = 0;
                int maxActive = 0;
                for (auto const& event : LifecycleProbe::Get().EventsOf(component))
                {
                    perInstance[event.instance].push_back(event.what);
                    if (event.what == "construct")
                    {
                        EXPECT_EQ(std::string::npos, event.detail.find("null")) << "a mandatory reference was null";
                    }
                    active += event.what == "activate" ? 1 : event.what == "deactivate" ? -1 : 0;
                    maxActive = std::max(maxActive, active);
                }
                EXPECT_EQ(0, active);
                EXPECT_LE(maxActive, 1) << "two lives of one component overlapped";
                for (auto const& [instance, calls] : perInstance)
                {
                    EXPECT_EQ((std::vector<std::string>{ "construct", "activate", "deactivate" }), calls)
                        << "instance " << instance;
                }
            }

            static constexpr int kThreads = 6;
            static constexpr int kRounds = 60;
        };

        // kThreads threads churn the references of the immediate Triple and of
        // the delayed OnDemand, as many more use OnDemand meanwhile.
        TEST_F(ComponentManagerConcurrencyTest, ReferenceChurnFromManyThreadsActivatesAndDeactivatesEachInstanceOnce)
        {
            StartBundle("DSTestLifecycleBundle");
            auto b = Register<test::RefB>(2);
            auto c = Register<test::RefC>(3);
            testsupport::RunConcurrently(2 * kThreads,
                                         [&](int t)
                                         {
                                             for (int round = 0; round < kRounds; ++round)
                                             {
                                                 int const id = 1000 * (t + 1) + round;
                                                 if (t >= kThreads)
                                                 {
                                                     // Null when the life ends between the lookup and the call,
                                                     // or while the instance is being made.
                                                     if (auto reference = context.GetServiceReference<test::OnDemand>())
                                                     {
                                                         context.GetService(reference);
                                                     }
                                                     continue;
                                                 }
                                                 // Some threads churn another reference too, so lives end for several reasons.
                                                 auto extraB = t % 3 == 2 ? Register<test::RefB>(id, { { "service.ranking", 1 } })
                                                                          : cppmicroservices::ServiceRegistration<test::RefB>();
                                                 auto a = Register<test::RefA>(id, { { "service.ranking", round % 4 } });
                                                 if (extraB)
                                                 {
                                                     extraB.Unregister();
                                                 }
                                                 a.Unregister();
                                             }
                                         });
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>()) << "no RefA is left: the component is unsatisfied";
            EXPECT_FALSE(context.GetServiceReference<test::OnDemand>());
            EXPECT_GT(LifecycleProbe::Get().Count("Triple", "activate"), 0u);
            ExpectSerialLivesAllEnded();
            ExpectSerialLivesAllEnded("OnDemand");

            // A last life, ended by the framework's stop.
            auto a = Register<test::RefA>(1);
            StopFramework();
            ExpectSerialLivesAllEnded();
        }

        TEST_F(ComponentManagerConcurrencyTest, StoppingTheBundleDuringReferenceChurnEndsEveryLife)
        {
            auto bundle = StartBundle("DSTestLifecycleBundle");
            auto b = Register<test::RefB>(2);
            auto c = Register<test::RefC>(3);
            testsupport::RunConcurrently(kThreads + 1,
                                         [&](int t)
                                         {
                                             for (int round = 0; round < kRounds && t < kThreads; ++round)
                                             {
                                                 Register<test::RefA>(1000 * (t + 1) + round).Unregister();
                                             }
                                             if (t == kThreads)
                                             {
                                                 bundle.Stop();
                                             }
                                         });
            ExpectSerialLivesAllEnded();
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>());
        }

        TEST_F(ComponentManagerConcurrencyTest, DelayedComponentIsCreatedOnceOnItsFirstConcurrentUse)
        {
            auto lifecycle = StartBundle("DSTestLifecycleBundle");
            auto reference = context.GetServiceReference<test::LazyService>();
            ASSERT_TRUE(reference) << "a delayed component registers its service at once";
            EXPECT_EQ("singleton", reference.GetProperty("service.scope").ToString());
            EXPECT_TRUE(Calls("Lazy").empty());

            // Users in three bundles: the framework makes one call per bundle, so the runtime sees three at once.
            std::vector<cppmicroservices::BundleContext> users{ context, runtime.GetBundleContext(),
                                                                      lifecycle.GetBundleContext() };
            std::vector<std::shared_ptr<test::LazyService>> got(kThreads);
            testsupport::RunConcurrently(kThreads, [&](int t) { got[t] = users[t % users.size()].GetService(reference); });
            for (auto const& service : got)
            {
                ASSERT_TRUE(service);
                EXPECT_EQ(got.front(), service);
            }
            EXPECT_EQ(1, got.front()->Instance());
            EXPECT_EQ((std::vector<std::string>{ "construct#1", "activate#1" }), Calls("Lazy"))
                << "Activate sees its own registration, and a singleton has no using bundle";
        }
    } // namespace
} // namespace dstest
