// The bundle's lifecycle: the service comes and goes with the bundle, and
// stopping it while changes are in flight, or from inside a delivery,
// neither hangs nor crashes nor delivers anything afterwards.

#include "CmTestSupport.h"

#include <atomic>

using namespace cmtest;
using cppmicroservices::AnyMap;
using cppmicroservices::Bundle;
using cppmicroservices::ServiceRegistration;
using cppmicroservices::service::cm::ConfigurationAdmin;
using cppmicroservices::service::cm::ManagedService;
using cppmicroservices::service::cm::ManagedServiceFactory;

namespace
{
    using ConfigurationAdminActivatorTest = ConfigurationAdminFixture;
} // namespace

TEST_F(ConfigurationAdminActivatorTest, StopWhileUpdatesAreInFlightReturnsAndDeliversNothingAfterwards)
{
    constexpr int kUpdaters = 6;
    std::atomic<bool> stopReturned{ false };
    std::atomic<int> lateCalls{ 0 };
    auto factory = std::make_shared<RecordingFactory>();
    factory->hook = [&]
    {
        if (stopReturned)
        {
            ++lateCalls;
        }
    };
    auto registration = Register<ManagedServiceFactory>(factory, std::string("fp"));

    std::atomic<bool> done{ false };
    std::vector<std::vector<std::shared_future<void>>> futures(kUpdaters);
    testsupport::RunConcurrently(kUpdaters + 1,
                                 [&](int t)
                                 {
                                     if (t == kUpdaters)
                                     {
                                         EXPECT_TRUE(factory->WaitForCount(10));
                                         cmBundle.Stop();
                                         stopReturned = true;
                                         done = true;
                                         return;
                                     }
                                     auto configuration = admin->GetFactoryConfiguration("fp", "c" + std::to_string(t));
                                     for (int n = 1; (!done || n < 50) && n <= 5000; ++n)
                                     {
                                         futures[t].push_back(configuration->Update(AnyMap{ { "n", n } }));
                                     }
                                 });

    EXPECT_EQ(Bundle::STATE_RESOLVED, cmBundle.GetState());
    for (auto const& perThread : futures)
    {
        for (auto const& future : perThread)
        {
            ASSERT_TRUE(Ready(future)) << "a dropped delivery left its future waiting";
        }
    }
    // One more change through a configuration still held: nobody is told.
    auto const callsAtStop = factory->Calls().size();
    EXPECT_TRUE(Ready(admin->GetFactoryConfiguration("fp", "late")->Update(AnyMap{ { "n", 1 } })));
    EXPECT_EQ(callsAtStop, factory->Calls().size());
    EXPECT_EQ(0, lateCalls.load());
}

TEST_F(ConfigurationAdminActivatorTest, StoppingTheBundleFromInsideADeliveryDoesNotDeadlock)
{
    std::atomic<bool> stopped{ false };
    auto service = std::make_shared<RecordingService>("stopper");
    Bundle bundle = cmBundle;
    service->hook = [&]
    {
        bundle.Stop();
        stopped = true;
    };
    auto registration = Register<ManagedService>(service, std::string("stopper"));
    auto other = std::make_shared<RecordingService>("stopper");
    auto otherRegistration = Register<ManagedService>(other, std::string("stopper"));

    auto configuration = admin->GetConfiguration("stopper");
    auto first = configuration->Update(AnyMap{ { "n", 1 } });
    ASSERT_TRUE(Ready(first)) << "the delivery that stopped the bundle never finished";
    EXPECT_TRUE(stopped);
    EXPECT_EQ(Bundle::STATE_RESOLVED, cmBundle.GetState());
    EXPECT_FALSE(context.GetServiceReference<ConfigurationAdmin>()) << "withdrawn while the bundle is stopped";
    EXPECT_TRUE(Ready(configuration->Update(AnyMap{ { "n", 2 } })));
    EXPECT_EQ(1u, service->Calls().size());

    // The bundle starts again with a fresh, empty Configuration Admin.
    cmBundle.Start();
    auto const reference = context.GetServiceReference<ConfigurationAdmin>();
    EXPECT_EQ(cmBundle, reference.GetBundle());
    auto fresh = context.GetService(reference);
    ASSERT_TRUE(fresh);
    EXPECT_TRUE(fresh->ListConfigurations().empty());
}

TEST_F(ConfigurationAdminActivatorTest, FrameworkStopWithQueuedDeliveriesCompletes)
{
    auto gate = std::make_shared<Gate>();
    auto registration = Register<ManagedService>(gate, std::string("gate"));
    auto configuration = admin->GetConfiguration("gate");
    configuration->Update(AnyMap{ { "n", 1 } });
    ASSERT_TRUE(gate->WaitForCount(1));
    std::vector<std::shared_future<void>> queued;
    for (int n = 2; n < 100; ++n)
    {
        queued.push_back(configuration->Update(AnyMap{ { "n", n } }));
    }
    // Stopping waits for the delivery under way; open the gate from elsewhere.
    std::thread opener(
        [&]
        {
            std::this_thread::yield();
            gate->Open();
        });
    StopFramework();
    framework.reset();
    opener.join();
    for (auto const& future : queued)
    {
        EXPECT_TRUE(Ready(future));
    }
}
