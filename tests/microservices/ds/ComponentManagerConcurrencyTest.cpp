// Reference services registered and unregistered from many threads at once,
// released together through a barrier: every instance that is activated is
// deactivated exactly once, lives never overlap, nothing deadlocks.

#include "DSFixture.h"
#include "support/Barrier.h"

#include <map>
#include <thread>

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

        TEST_F(ComponentManagerConcurrencyTest, ReferenceChurnFromManyThreadsActivatesAndDeactivatesEachInstanceOnce)
        {
            StartBundle("DSTestLifecycleBundle");
            auto b = Register<test::RefB>(2);
            auto c = Register<test::RefC>(3);

            testsupport::Barrier start(kThreads);
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
            {
                threads.emplace_back(
                    [&, t]
                    {
                        start.ArriveAndWait();
                        for (int round = 0; round < kRounds; ++round)
                        {
                            int const id = 1000 * (t + 1) + round;
                            if (t % 3 == 2)
                            {
                                // Churn the other references too, so lives end for several reasons.
                                auto extraB = Register<test::RefB>(id, { { "service.ranking", 1 } });
                                auto a = Register<test::RefA>(id);
                                extraB.Unregister();
                                a.Unregister();
                            }
                            else
                            {
                                auto a = Register<test::RefA>(id, { { "service.ranking", round % 4 } });
                                a.Unregister();
                            }
                        }
                    });
            }
            for (auto& thread : threads)
            {
                thread.join();
            }
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>()) << "no RefA is left: the component is unsatisfied";
            EXPECT_GT(LifecycleProbe::Get().Count("Triple", "activate"), 0u);
            ExpectSerialLivesAllEnded();

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

            testsupport::Barrier start(kThreads + 1);
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
            {
                threads.emplace_back(
                    [&, t]
                    {
                        start.ArriveAndWait();
                        for (int round = 0; round < kRounds; ++round)
                        {
                            auto a = Register<test::RefA>(1000 * (t + 1) + round);
                            a.Unregister();
                        }
                    });
            }
            start.ArriveAndWait();
            bundle.Stop();
            for (auto& thread : threads)
            {
                thread.join();
            }
            ExpectSerialLivesAllEnded();
            EXPECT_FALSE(context.GetServiceReference<test::IfaceA>());
        }

        TEST_F(ComponentManagerConcurrencyTest, DelayedComponentUsedWhileItsReferenceChurnsHasSerialLives)
        {
            StartBundle("DSTestLifecycleBundle");
            testsupport::Barrier start(kThreads);
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
            {
                threads.emplace_back(
                    [&, t]
                    {
                        start.ArriveAndWait();
                        for (int round = 0; round < kRounds; ++round)
                        {
                            if (t % 2 == 0)
                            {
                                auto a = Register<test::RefA>(1000 * (t + 1) + round);
                                a.Unregister();
                            }
                            else if (auto reference = context.GetServiceReference<test::OnDemand>())
                            {
                                // Null when the life ends between the lookup and the call, or
                                // while the instance is being made.
                                context.GetService(reference);
                            }
                        }
                    });
            }
            for (auto& thread : threads)
            {
                thread.join();
            }
            EXPECT_FALSE(context.GetServiceReference<test::OnDemand>());
            ExpectSerialLivesAllEnded("OnDemand");
        }

        TEST_F(ComponentManagerConcurrencyTest, ConcurrentFirstUseCreatesTheDelayedComponentOnce)
        {
            StartBundle("DSTestLifecycleBundle");
            auto reference = context.GetServiceReference<test::LazyService>();
            ASSERT_TRUE(reference);

            testsupport::Barrier start(kThreads);
            std::vector<std::shared_ptr<test::LazyService>> got(kThreads);
            std::vector<std::thread> threads;
            for (int t = 0; t < kThreads; ++t)
            {
                threads.emplace_back(
                    [&, t]
                    {
                        start.ArriveAndWait();
                        got[t] = context.GetService(reference);
                    });
            }
            for (auto& thread : threads)
            {
                thread.join();
            }
            for (auto const& service : got)
            {
                ASSERT_TRUE(service);
                EXPECT_EQ(got.front(), service);
            }
            EXPECT_EQ(1u, LifecycleProbe::Get().Count("Lazy", "construct"));
            EXPECT_EQ(1u, LifecycleProbe::Get().Count("Lazy", "activate"));
        }
    } // namespace
} // namespace dstest
