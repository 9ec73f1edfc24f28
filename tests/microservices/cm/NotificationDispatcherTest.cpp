// Delivery of configuration changes to listeners, managed services and
// managed service factories: thread, order, de-duplication, futures and
// misbehaving services.

#include "CmTestSupport.h"

#include "cppmicroservices/cm/ConfigurationException.hpp"

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>

using namespace cmtest;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::ServiceRegistration;
using cppmicroservices::service::cm::ConfigurationEvent;
using cppmicroservices::service::cm::ConfigurationEventType;
using cppmicroservices::service::cm::ConfigurationException;
using cppmicroservices::service::cm::ConfigurationListener;
using cppmicroservices::service::cm::ManagedService;
using cppmicroservices::service::cm::ManagedServiceFactory;

namespace
{
    class NotificationDispatcherTest : public ConfigurationAdminFixture
    {
      protected:
        // Blocks the delivery thread in a Gate until the returned gate opens.
        std::shared_ptr<Gate>
        BlockDelivery(std::string const& pid = "gate")
        {
            auto gate = std::make_shared<Gate>();
            gateRegistration = Register<ManagedService>(gate, pid);
            admin->GetConfiguration(pid)->Update(AnyMap{ { "n", 1 } });
            EXPECT_TRUE(gate->WaitForCount(1));
            return gate;
        }

        ServiceRegistration<ManagedService> gateRegistration;
    };

    // Records each event in recorder, as a call for "event <pid> (factory <factory pid>)".
    class RecordingListener : public ConfigurationListener
    {
      public:
        explicit RecordingListener(std::shared_ptr<Recorder> recorder) : recorder(std::move(recorder)) {}

        void
        configurationEvent(ConfigurationEvent const& event) override
        {
            references.push_back(event.getReference());
            recorder->Record(event.getType() == ConfigurationEventType::CM_UPDATED ? Call::Updated : Call::Removed,
                             "event " + event.getPid() + " (factory " + event.getFactoryPid() + ")", AnyMap());
        }

        std::vector<cppmicroservices::ServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>> references;

      private:
        std::shared_ptr<Recorder> const recorder;
    };
} // namespace

// A factory sees the configurations from before and after it registered,
// listeners hear each change before managed services do, and all of it comes
// on one delivery thread.
TEST_F(NotificationDispatcherTest, ListenersThenFactoriesHearEachChangeInOrderOnOneDeliveryThread)
{
    // The listener records into the factory's log: one list shows the order.
    auto factory = std::make_shared<RecordingFactory>();
    auto listener = std::make_shared<RecordingListener>(factory);
    auto listenerRegistration = context.RegisterService<ConfigurationListener>(listener);
    admin->GetFactoryConfiguration("fp", "before")->Update(AnyMap{ { "n", 1 } });
    admin->GetFactoryConfiguration("fp", "never.updated");
    admin->GetFactoryConfiguration("other", "x")->Update(AnyMap{ { "n", 9 } });
    ASSERT_TRUE(factory->WaitForCount(2));

    ServiceRegistration<ManagedServiceFactory> registration;
    std::thread::id registeringThread;
    std::thread(
        [&]
        {
            registeringThread = std::this_thread::get_id();
            registration = Register<ManagedServiceFactory>(factory, std::string("fp"));
        })
        .join();

    // Creating, or removing a configuration never updated, notifies nobody.
    admin->CreateFactoryConfiguration("fp");
    admin->GetFactoryConfiguration("fp", "unused")->Remove();
    auto configuration = admin->GetFactoryConfiguration("fp", "a");
    configuration->Update(AnyMap{ { "n", 2 } });
    admin->GetConfiguration("plain")->Update(AnyMap{ { "n", 3 } });
    ASSERT_TRUE(Ready(configuration->Remove()));

    auto const calls = factory->Calls();
    EXPECT_EQ((std::vector<std::string>{ "updated event fp~before (factory fp)", "updated event other~x (factory other)",
                                         "updated fp~before 1", "updated event fp~a (factory fp)", "updated fp~a 2",
                                         "updated event plain (factory )", "removed event fp~a (factory fp)", "removed fp~a" }),
              Texts(calls));
    for (auto const& call : calls)
    {
        EXPECT_EQ(calls[0].thread, call.thread) << "all calls on one thread";
        EXPECT_NE(std::this_thread::get_id(), call.thread) << "not on the thread that updated";
        EXPECT_NE(registeringThread, call.thread) << "not on the thread of the framework's service events";
    }
    auto const adminReference = context.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>();
    for (auto const& reference : listener->references)
    {
        EXPECT_EQ(adminReference, reference);
    }
}

TEST_F(NotificationDispatcherTest, ManagedServiceIsMatchedByEachOfItsPidsToldOfRemovalWithAnEmptyMapAndFollowsAPidChange)
{
    admin->GetConfiguration("one")->Update(AnyMap{ { "n", 1 } });
    admin->GetConfiguration("moved")->Update(AnyMap{ { "n", 4 } });
    auto service = std::make_shared<RecordingService>();
    auto registration
        = Register<ManagedService>(service, std::vector<std::string>{ "one", "two", "absent" });
    ASSERT_TRUE(service->WaitForCount(1));

    auto two = admin->GetConfiguration("two");
    two->Update(AnyMap{ { "n", 2 } });
    admin->GetConfiguration("unrelated")->Update(AnyMap{ { "n", 3 } });
    ASSERT_TRUE(Ready(two->Remove()));
    EXPECT_TRUE(service->Calls().back().properties.empty());

    registration.SetProperties({ { "service.pid", std::string("moved") } });
    ASSERT_TRUE(service->WaitForCount(4));
    ASSERT_TRUE(Ready(admin->GetConfiguration("one")->Update(AnyMap{ { "n", 10 } })));
    registration.Unregister();
    ASSERT_TRUE(Ready(admin->GetConfiguration("moved")->Update(AnyMap{ { "n", 20 } })));
    EXPECT_EQ((std::vector<std::string>{ "updated 1", "updated 2", "removed", "updated 4" }), Texts(service->Calls()))
        << "neither the old pid nor, once unregistered, the new one reaches it";
}

TEST_F(NotificationDispatcherTest, ServiceWithoutPidIsIgnoredButComponentNameCounts)
{
    CmLogCapture capture;
    auto anonymous = std::make_shared<RecordingService>();
    auto anonymousRegistration = context.RegisterService<ManagedService>(anonymous);
    EXPECT_TRUE(capture.WaitForText("has neither a service.pid nor a component.name"));

    auto component = std::make_shared<RecordingService>();
    auto componentRegistration
        = context.RegisterService<ManagedService>(component, { { "component.name", std::string("comp") } });
    ASSERT_TRUE(Ready(admin->GetConfiguration("comp")->Update(AnyMap{ { "n", 4 } })));
    ASSERT_EQ(1u, component->Calls().size());
    EXPECT_EQ(4, N(component->Calls()[0].properties));
    EXPECT_TRUE(anonymous->Calls().empty());
}

// While the delivery thread is held, a factory registers between queued
// changes: once released it sees each state at most once, in order, and ends
// with the newest.
TEST_F(NotificationDispatcherTest, ChangesQueuedAroundARegistrationAreDeliveredOnceInOrderEndingWithTheNewest)
{
    struct Row
    {
        char const* what;
        std::function<std::shared_future<void>(std::string const& factoryPid, std::function<void()> const& registerFactory)> steps;
        std::size_t calls; ///< 0: any number
        int last;
    };
    std::vector<Row> const rows = {
        { "update queued before the registration",
          [&](std::string const& fp, std::function<void()> const& registerFactory)
          {
              auto queued = admin->GetFactoryConfiguration(fp, "a")->Update(AnyMap{ { "n", 1 } });
              registerFactory();
              return queued;
          },
          1, 1 },
        { "removed and recreated",
          [&](std::string const& fp, std::function<void()> const& registerFactory)
          {
              auto old = admin->GetFactoryConfiguration(fp, "a");
              old->Update(AnyMap{ { "n", 1 } });
              registerFactory();
              old->Remove();
              return admin->GetFactoryConfiguration(fp, "a")->Update(AnyMap{ { "n", 2 } });
          },
          0, 2 },
    };
    int index = 0;
    for (auto const& row : rows)
    {
        std::string const suffix = std::to_string(index++);
        auto gate = BlockDelivery("gate" + suffix);
        auto factory = std::make_shared<RecordingFactory>();
        ServiceRegistration<ManagedServiceFactory> registration;
        auto last = row.steps("fp" + suffix,
                              [&] { registration = Register<ManagedServiceFactory>(factory, "fp" + suffix); });
        gate->Open();
        ASSERT_TRUE(Ready(last)) << row.what;
        ASSERT_TRUE(Ready(admin->GetConfiguration("marker")->Update())) << row.what;

        auto const calls = factory->Calls();
        ASSERT_FALSE(calls.empty()) << row.what;
        if (row.calls != 0)
        {
            EXPECT_EQ(row.calls, calls.size()) << row.what << ": a state was delivered twice";
        }
        int previous = 0;
        for (auto const& call : calls)
        {
            if (call.kind == Call::Updated)
            {
                EXPECT_LT(previous, N(call.properties)) << row.what << ": out of order or delivered twice";
                previous = N(call.properties);
            }
        }
        EXPECT_EQ(Call::Updated, calls.back().kind) << row.what;
        EXPECT_EQ(row.last, N(calls.back().properties)) << row.what;
    }
}

TEST_F(NotificationDispatcherTest, ManyUpdatesReachEveryServiceInOrderAndThrowingServicesAreLogged)
{
    CmLogCapture capture;
    auto rejecting = std::make_shared<RecordingFactory>();
    rejecting->hook = [] { throw ConfigurationException("port out of range", "port"); };
    auto failing = std::make_shared<RecordingService>("fp~a");
    failing->hook = [] { throw std::runtime_error("boom"); };
    auto strange = std::make_shared<RecordingFactory>();
    strange->hook = [] { throw 42; };
    auto healthy = std::make_shared<RecordingFactory>();
    auto r1 = Register<ManagedServiceFactory>(rejecting, std::string("fp"));
    auto r2 = Register<ManagedService>(failing, std::string("fp~a"));
    auto r3 = Register<ManagedServiceFactory>(strange, std::string("fp"));
    auto r4 = Register<ManagedServiceFactory>(healthy, std::string("fp"));

    // Many updates: each reaches every service in order, and the future of
    // the last waits for all of them, the throwing ones included.
    auto configuration = admin->GetFactoryConfiguration("fp", "a");
    std::shared_future<void> last;
    for (int n = 1; n <= 300; ++n)
    {
        last = configuration->Update(AnyMap{ { "n", n } });
    }
    ASSERT_TRUE(Ready(last));
    std::vector<Recorder const*> const recorders = { rejecting.get(), failing.get(), strange.get(), healthy.get() };
    for (Recorder const* recorder : recorders)
    {
        auto const calls = recorder->Calls();
        ASSERT_EQ(300u, calls.size()) << "the future was ready before a service was called";
        for (int n = 1; n <= 300; ++n)
        {
            EXPECT_EQ(n, N(calls[n - 1].properties));
        }
    }
    EXPECT_TRUE(capture.WaitForText("rejected the update of configuration fp~a: port out of range (property port)"));
    EXPECT_TRUE(capture.WaitForText("threw during the update of configuration fp~a: boom"));
    EXPECT_TRUE(capture.WaitForText("threw an unknown exception during the update of configuration fp~a"));
}

TEST_F(NotificationDispatcherTest, ConcurrentUpdatesAndRegistrationsDeliverEachPidInOrderWithoutDuplicates)
{
    constexpr int kUpdaters = 8;
    constexpr int kRegistrars = 8;
    constexpr int kUpdates = 40;
    std::vector<std::shared_ptr<RecordingFactory>> factories(kRegistrars);
    std::vector<ServiceRegistration<ManagedServiceFactory>> registrations(kRegistrars);
    std::vector<std::shared_future<void>> lastUpdates(kUpdaters);
    for (auto& factory : factories)
    {
        factory = std::make_shared<RecordingFactory>();
    }
    testsupport::RunConcurrently(kUpdaters + kRegistrars,
                                 [&](int t)
                                 {
                                     if (t >= kUpdaters)
                                     {
                                         registrations[t - kUpdaters]
                                             = Register<ManagedServiceFactory>(factories[t - kUpdaters], std::string("fp"));
                                         return;
                                     }
                                     auto configuration = admin->GetFactoryConfiguration("fp", "c" + std::to_string(t));
                                     for (int n = 1; n <= kUpdates; ++n)
                                     {
                                         lastUpdates[t] = configuration->Update(AnyMap{ { "n", n } });
                                     }
                                 });
    for (auto const& last : lastUpdates)
    {
        ASSERT_TRUE(Ready(last));
    }
    // Registrations queued their initial delivery after the last updates maybe.
    ASSERT_TRUE(Ready(admin->GetConfiguration("marker")->Update()));

    for (auto const& factory : factories)
    {
        std::map<std::string, std::vector<int>> seen;
        for (auto const& call : factory->Calls())
        {
            ASSERT_EQ(Call::Updated, call.kind);
            seen[call.pid].push_back(N(call.properties));
        }
        ASSERT_EQ(static_cast<std::size_t>(kUpdaters), seen.size());
        for (auto const& [pid, values] : seen)
        {
            for (std::size_t i = 1; i < values.size(); ++i)
            {
                ASSERT_LT(values[i - 1], values[i]) << pid << ": out of order or delivered twice";
            }
            EXPECT_EQ(kUpdates, values.back()) << pid << ": the final state was not delivered";
        }
    }
}
