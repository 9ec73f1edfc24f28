#include "Greeter.h"
#include "TestBundles.h"

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/ServiceException.h"
#include "cppmicroservices/ServiceTracker.h"
#include "support/FrameworkFixture.h"
#include "support/Barrier.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace cppmicroservices;

namespace trackertest
{
    struct Clock
    {
        virtual ~Clock() = default;
        virtual std::string zone() const = 0;
    };

    struct ZoneClock : Clock
    {
        explicit ZoneClock(std::string z) : z(std::move(z)) {}
        std::string zone() const override { return z; }
        std::string z;
    };
} // namespace trackertest

using trackertest::Clock;
using trackertest::ZoneClock;

namespace
{
    // Records what the tracker asked of it; declines services whose "decline" property is true.
    class RecordingCustomizer : public ServiceTrackerCustomizer<Clock>
    {
      public:
        explicit RecordingCustomizer(BundleContext context) : context(std::move(context)) {}

        std::shared_ptr<Clock>
        AddingService(ServiceReference<Clock> const& reference) override
        {
            ++adding;
            if (onAdding)
            {
                onAdding();
            }
            auto const decline = reference.GetProperty("decline");
            if (!decline.Empty() && any_cast<bool>(decline))
            {
                return nullptr;
            }
            // The service may be gone already when another thread unregisters it meanwhile.
            auto service = context.GetService(reference);
            if (service)
            {
                ++added;
            }
            return service;
        }

        void
        ModifiedService(ServiceReference<Clock> const&, std::shared_ptr<Clock> const&) override
        {
            ++modified;
        }

        void
        RemovedService(ServiceReference<Clock> const&, std::shared_ptr<Clock> const& service) override
        {
            EXPECT_TRUE(service);
            ++removed;
        }

        BundleContext context;
        std::function<void()> onAdding; // set before the tracker opens
        std::atomic<int> adding { 0 };
        std::atomic<int> added { 0 };
        std::atomic<int> modified { 0 };
        std::atomic<int> removed { 0 };
    };

    class ServiceTrackerTest : public testsupport::FrameworkFixture
    {
      protected:
        ServiceRegistration<Clock>
        registerClock(std::string const& zone, ServiceProperties properties = {})
        {
            properties["zone"] = zone;
            return context.RegisterService<Clock>(std::make_shared<ZoneClock>(zone), properties);
        }
    };

    TEST_F(ServiceTrackerTest, FilterSelectsServicesChangesAndUnregistrationAreSeenAndDeclinedServicesAreOfferedAgain)
    {
        RecordingCustomizer customizer(context);
        ServiceTracker<Clock> tracker(context, LDAPFilter("(&(objectclass=trackertest::Clock)(zone=UTC))"), &customizer);
        auto utcBefore = registerClock("UTC");
        auto cet = registerClock("CET");
        tracker.Open();
        EXPECT_EQ(1, tracker.Size());
        auto utcAfter = registerClock("UTC");
        EXPECT_EQ(2, tracker.Size());
        for (auto const& clock : tracker.GetServices())
        {
            EXPECT_EQ("UTC", clock->zone());
        }
        int const countAfterAdd = tracker.GetTrackingCount();
        utcAfter.SetProperties({ { "zone", std::string("UTC") }, { "extra", 1 } });
        EXPECT_EQ(1, customizer.modified);
        EXPECT_GT(tracker.GetTrackingCount(), countAfterAdd);

        utcBefore.Unregister();
        EXPECT_EQ(1, tracker.Size());
        EXPECT_EQ(1, customizer.removed);
        EXPECT_EQ(utcAfter.GetReference(), tracker.GetServiceReference());
        utcAfter.SetProperties({ { "zone", std::string("CET") } });
        EXPECT_EQ(2, customizer.removed) << "a property change can end the match";
        EXPECT_TRUE(tracker.IsEmpty());
        EXPECT_EQ(nullptr, tracker.GetService());

        auto last = registerClock("UTC");
        EXPECT_EQ(3, customizer.adding);
        // A declined service stays untracked and is offered again whenever it is modified.
        auto declined = registerClock("UTC", { { "decline", true } });
        declined.SetProperties({ { "zone", std::string("UTC") }, { "decline", true } });
        EXPECT_EQ(5, customizer.adding);
        EXPECT_EQ(1, tracker.Size());
        declined.SetProperties({ { "zone", std::string("UTC") }, { "decline", false } });
        EXPECT_EQ(6, customizer.adding);
        EXPECT_EQ(2, tracker.Size());
        tracker.Close();
        EXPECT_EQ(4, customizer.removed) << "every accepted service, and only those, is removed";
        EXPECT_EQ(4, customizer.added);
        EXPECT_EQ(-1, tracker.GetTrackingCount());
        EXPECT_TRUE(tracker.IsEmpty());
    }

    TEST_F(ServiceTrackerTest, BestServiceIsHighestRankingThenLowestIdAndTrackingByReferenceOrNameWorks)
    {
        ServiceTracker<Clock> tracker(context);
        tracker.Open();
        EXPECT_EQ("No service is being tracked",
                  testsupport::ThrownText<ServiceException>([&] { tracker.GetServiceReference(); }));

        auto first = registerClock("first");
        auto second = registerClock("second");
        EXPECT_EQ("first", tracker.GetService()->zone());
        auto ranked = registerClock("ranked", { { Constants::SERVICE_RANKING, 5 } });
        EXPECT_EQ("ranked", tracker.GetService()->zone());
        ranked.Unregister();
        EXPECT_EQ(first.GetReference(), tracker.GetServiceReference());

        ServiceTracker<Clock> byReference(context, second.GetReference());
        byReference.Open();
        ASSERT_EQ(1, byReference.Size());
        EXPECT_EQ("second", byReference.GetService()->zone());
        ServiceTracker<void> untyped(context, "::trackertest::Clock");
        untyped.Open();
        EXPECT_EQ(2, untyped.Size());
        ASSERT_TRUE(untyped.GetService());
        EXPECT_EQ(1u, untyped.GetService()->count("trackertest::Clock"));
    }

    TEST_F(ServiceTrackerTest, ServicesOfAnotherBundleComeAndGoWithItsStartAndStop)
    {
        auto greeter = Install(testbundles::Path("TestGreeterBundle"));
        ServiceTracker<test::Greeter> tracker(context, LDAPFilter("(&(objectclass=test::Greeter)(greeting.language=en))"));
        tracker.Open();
        greeter.Start();
        ASSERT_EQ(1, tracker.Size());
        EXPECT_EQ("Hello, Ann", tracker.GetService()->Greet("Ann"));
        greeter.Stop();
        EXPECT_TRUE(tracker.IsEmpty());
        greeter.Start();
        EXPECT_EQ(1, tracker.Size());
    }

    TEST_F(ServiceTrackerTest, WaitForServiceReturnsWhatAnotherThreadRegisters)
    {
        ServiceTracker<Clock> tracker(context);
        tracker.Open();
        EXPECT_EQ(nullptr, tracker.WaitForService(std::chrono::milliseconds(1)));
        EXPECT_THROW(tracker.WaitForService(std::chrono::milliseconds(-1)), std::invalid_argument);

        ServiceRegistration<Clock> registration;
        std::thread registrar([&] { registration = registerClock("late"); });
        auto const clock = tracker.WaitForService(std::chrono::seconds(30));
        registrar.join();
        ASSERT_TRUE(clock);
        EXPECT_EQ("late", clock->zone());
    }

    TEST_F(ServiceTrackerTest, CustomizerMayCloseItsOwnTracker)
    {
        RecordingCustomizer closer(context);
        ServiceTracker<Clock> tracker(context, &closer);
        closer.onAdding = [&] { tracker.Close(); };
        tracker.Open();
        registerClock("UTC", { { "decline", true } });
        EXPECT_EQ(-1, tracker.GetTrackingCount());
    }

    // Many threads register and unregister while trackers open and close: every service a
    // customizer accepted is removed exactly once, and nothing stays tracked.
    TEST_F(ServiceTrackerTest, ConcurrentRegistrationAndTrackingKeepAddsAndRemovesBalanced)
    {
        constexpr int threads = 8;
        constexpr int rounds = 100;
        RecordingCustomizer customizer(context);
        ServiceTracker<Clock> steady(context, &customizer);
        steady.Open();

        testsupport::RunConcurrently(threads,
                [&](int t)
                {
                    for (int i = 0; i < rounds; ++i)
                    {
                        if (t % 4 == 0)
                        {
                            RecordingCustomizer own(context);
                            ServiceTracker<Clock> churn(context, &own);
                            churn.Open();
                            churn.Close();
                            EXPECT_EQ(own.added.load(), own.removed.load());
                            continue;
                        }
                        auto registration = registerClock("zone" + std::to_string(t),
                                                          { { "decline", i % 3 == 0 } });
                        if (i % 2 == 0)
                        {
                            registration.SetProperties({ { "zone", std::string("moved") } });
                        }
                        registration.Unregister();
                    }
                });
        EXPECT_EQ(0, steady.Size());
        steady.Close();
        EXPECT_EQ(customizer.added.load(), customizer.removed.load());
        EXPECT_GT(customizer.added.load(), 0);
    }
} // namespace
