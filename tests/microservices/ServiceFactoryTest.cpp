// Service factories and use counting: bundle scope, prototype scope,
// failures, and ungetting when pointers die, services go or bundles stop.

#include "support/Barrier.h"
#include "TestBundles.h"
#include "support/Thrown.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/PrototypeServiceFactory.h"
#include "cppmicroservices/ServiceException.h"
#include "cppmicroservices/ServiceFactory.h"
#include "cppmicroservices/ServiceObjects.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

using namespace cppmicroservices;

namespace factorytest
{
    struct Counter
    {
        virtual ~Counter() = default;
        virtual int Id() const = 0;
    };
    struct Other
    {
        virtual ~Other() = default;
    };
} // namespace factorytest

namespace
{
    using factorytest::Counter;

    struct CounterImpl : Counter
    {
        explicit CounterImpl(int id) : id(id) {}
        int
        Id() const override
        {
            return id;
        }
        int id;
    };

    // Counts calls; what GetService returns can be replaced per test.
    template <class Base>
    struct CountingFactory : Base
    {
        InterfaceMapConstPtr
        GetService(Bundle const& bundle, ServiceRegistrationBase const&) override
        {
            int const n = ++made;
            lastBundle = bundle.GetBundleId();
            if (make)
            {
                return make(n);
            }
            return MakeInterfaceMap<Counter>(std::make_shared<CounterImpl>(n));
        }

        void
        UngetService(Bundle const&, ServiceRegistrationBase const&, InterfaceMapConstPtr const& service) override
        {
            ++ungot;
            lastUngot = ExtractInterface<Counter>(service) ? ExtractInterface<Counter>(service)->Id() : -1;
        }

        std::atomic<int> made{ 0 };
        std::atomic<int> ungot{ 0 };
        std::atomic<long> lastBundle{ -1 };
        std::atomic<int> lastUngot{ 0 };
        std::function<InterfaceMapConstPtr(int)> make;
    };

    using BundleFactory = CountingFactory<ServiceFactory>;
    using PrototypeFactory = CountingFactory<PrototypeServiceFactory>;

    using ServiceFactoryTest = testsupport::FrameworkFixture;

    TEST_F(ServiceFactoryTest, ABundleScopeFactoryMakesOneObjectPerBundleUngetsItAfterTheLastPointerAndMayDeclareSingletonScope)
    {
        auto factory = std::make_shared<BundleFactory>();
        auto reg = context.RegisterService<Counter>(ToFactory(factory));
        auto ref = reg.GetReference();
        EXPECT_EQ(Constants::SCOPE_BUNDLE, any_cast<std::string>(ref.GetProperty(Constants::SERVICE_SCOPE)));

        auto first = context.GetService(ref);
        auto second = context.GetService(ref);
        ASSERT_TRUE(first);
        EXPECT_EQ(first.get(), second.get());
        EXPECT_EQ(1, factory->made.load());
        EXPECT_EQ(0L, factory->lastBundle.load());

        auto user = Install(testbundles::Path("TestNoActivatorBundle"));
        user.Start();
        auto other = user.GetBundleContext().GetService(ref);
        EXPECT_EQ(2, factory->made.load());
        EXPECT_NE(first.get(), other.get());

        first.reset();
        EXPECT_EQ(0, factory->ungot.load()) << "the second pointer still uses it";
        second.reset();
        EXPECT_EQ(1, factory->ungot.load());
        EXPECT_EQ(1, factory->lastUngot.load());

        auto again = context.GetService(ref);
        EXPECT_EQ(3, factory->made.load()) << "a fresh object after the last one was released";

        // A factory may declare singleton scope, kept across SetProperties, but not prototype.
        auto shared = context.RegisterService<Counter>(ToFactory(std::make_shared<BundleFactory>()),
                                                       { { "Service.Scope", std::string("singleton") } });
        shared.SetProperties({ { "extra", 1 } });
        EXPECT_EQ(Constants::SCOPE_SINGLETON,
                  any_cast<std::string>(shared.GetReference().GetProperty(Constants::SERVICE_SCOPE)));
        auto claimed = context.RegisterService<Counter>(ToFactory(std::make_shared<BundleFactory>()),
                                                        { { "service.scope", std::string("prototype") } });
        EXPECT_EQ(Constants::SCOPE_BUNDLE,
                  any_cast<std::string>(claimed.GetReference().GetProperty(Constants::SERVICE_SCOPE)))
            << "only a prototype factory makes prototypes";
    }

    TEST_F(ServiceFactoryTest, StoppingAUserOrUnregisteringUngetsHeldObjectsOnceAndLatePointerDeathDoesNothing)
    {
        auto factory = std::make_shared<BundleFactory>();
        auto reg = context.RegisterService<Counter>(ToFactory(factory));
        auto bundle = Install(testbundles::Path("TestNoActivatorBundle"));
        bundle.Start();
        auto theirs = bundle.GetBundleContext().GetService(reg.GetReference());
        auto mine = context.GetService(reg.GetReference());
        ASSERT_TRUE(mine && theirs);
        ASSERT_EQ(1u, bundle.GetServicesInUse().size());

        bundle.Stop();
        EXPECT_EQ(1, factory->ungot.load()) << "stopping a bundle releases the services it uses";
        EXPECT_EQ(1u, reg.GetReference().GetUsingBundles().size());
        reg.Unregister();
        EXPECT_EQ(2, factory->ungot.load());
        EXPECT_EQ(2, mine->Id()) << "the object itself lives as long as the pointer";
        mine.reset();
        theirs.reset();
        EXPECT_EQ(2, factory->ungot.load());
    }

    TEST_F(ServiceFactoryTest, PrototypeServiceObjectsMakeAnObjectPerCall)
    {
        auto factory = std::make_shared<PrototypeFactory>();
        auto reg = context.RegisterService<Counter>(ToFactory(factory));
        auto ref = reg.GetReference();
        EXPECT_EQ(Constants::SCOPE_PROTOTYPE, any_cast<std::string>(ref.GetProperty(Constants::SERVICE_SCOPE)));

        auto objects = context.GetServiceObjects(ref);
        auto a = objects.GetService();
        auto b = objects.GetService();
        ASSERT_TRUE(a && b);
        EXPECT_NE(a->Id(), b->Id());
        EXPECT_EQ(ref, objects.GetServiceReference());

        a.reset();
        EXPECT_EQ(1, factory->ungot.load());
        EXPECT_EQ(1, factory->lastUngot.load());

        // Through the context a prototype service behaves like bundle scope.
        auto c1 = context.GetService(ref);
        auto c2 = context.GetService(ref);
        EXPECT_EQ(c1.get(), c2.get());

        reg.Unregister();
        EXPECT_EQ(3, factory->ungot.load()) << "b and the bundle's object were released";
        EXPECT_EQ(nullptr, objects.GetService());

        auto impl = std::make_shared<CounterImpl>(5);
        auto plain = context.RegisterService<Counter>(impl);
        EXPECT_EQ(impl.get(), context.GetServiceObjects(plain.GetReference()).GetService().get())
            << "a plain service through ServiceObjects is the singleton";
    }

    TEST_F(ServiceFactoryTest, FactoryFailuresGiveNullAndAFrameworkError)
    {
        struct Case
        {
            std::string name;
            std::function<InterfaceMapConstPtr(int)> make;
            ServiceException::Type type;
            std::string message;
        };
        std::vector<Case> const cases = {
            { "throws",
              [](int) -> InterfaceMapConstPtr { throw std::runtime_error("no counters today"); },
              ServiceException::FACTORY_EXCEPTION,
              "threw an exception: no counters today" },
            { "returns null", [](int) { return InterfaceMapConstPtr(); }, ServiceException::FACTORY_ERROR,
              "returned no service object" },
            { "lacks the interface",
              [](int) -> InterfaceMapConstPtr
              { return MakeInterfaceMap<factorytest::Other>(std::make_shared<factorytest::Other>()); },
              ServiceException::FACTORY_ERROR,
              "returned an object that does not provide factorytest::Counter" },
        };
        for (auto const& c : cases)
        {
            auto errors = std::make_shared<testbundles::EventLog<FrameworkEvent>>();
            auto token = context.AddFrameworkListener([errors](FrameworkEvent const& e) { (*errors)(e); });
            auto factory = std::make_shared<BundleFactory>();
            factory->make = c.make;
            auto reg = context.RegisterService<Counter>(ToFactory(factory));

            EXPECT_EQ(nullptr, context.GetService(reg.GetReference())) << c.name;
            auto events = errors->Events();
            ASSERT_EQ(1u, events.size()) << c.name;
            EXPECT_EQ(FrameworkEvent::FRAMEWORK_ERROR, events[0].GetType());
            EXPECT_NE(std::string::npos, events[0].GetMessage().find(c.message)) << events[0].GetMessage();
            auto const thrown = testsupport::Thrown<ServiceException>([&] { std::rethrow_exception(events[0].GetThrowable()); });
            EXPECT_EQ(c.type, thrown.value().GetType()) << c.name;
            EXPECT_TRUE(reg.GetReference().GetUsingBundles().empty()) << c.name << ": a failed get is no use";
            context.RemoveListener(std::move(token));
            reg.Unregister();
        }
    }

    TEST_F(ServiceFactoryTest, AFactoryAskingForItsOwnServiceIsStoppedAsRecursion)
    {
        auto factory = std::make_shared<BundleFactory>();
        ServiceRegistration<Counter> reg;
        std::shared_ptr<Counter> inner = std::make_shared<CounterImpl>(-1);
        factory->make = [&](int n) -> InterfaceMapConstPtr
        {
            inner = context.GetService(reg.GetReference());
            return MakeInterfaceMap<Counter>(std::make_shared<CounterImpl>(n));
        };
        auto errors = std::make_shared<testbundles::EventLog<FrameworkEvent>>();
        auto token = context.AddFrameworkListener([errors](FrameworkEvent const& e) { (*errors)(e); });
        reg = context.RegisterService<Counter>(ToFactory(factory));

        auto outer = context.GetService(reg.GetReference());
        ASSERT_TRUE(outer);
        EXPECT_EQ(nullptr, inner);
        ASSERT_EQ(1u, errors->Events().size());
        auto const thrown = testsupport::Thrown<ServiceException>([&] { std::rethrow_exception(errors->Events()[0].GetThrowable()); });
        EXPECT_EQ(ServiceException::FACTORY_RECURSION, thrown.value().GetType());
    }

    TEST_F(ServiceFactoryTest, ConcurrentGetsOfABundleScopeServiceCreateItOnceAndUngetItOnce)
    {
        constexpr int threads = 8;
        auto factory = std::make_shared<BundleFactory>();
        factory->make = [](int n)
        {
            std::this_thread::yield(); // widen the window for a second creation
            return MakeInterfaceMap<Counter>(std::make_shared<CounterImpl>(n));
        };
        auto reg = context.RegisterService<Counter>(ToFactory(factory));
        auto ref = reg.GetReference();
        std::vector<std::shared_ptr<Counter>> got(threads);
        testsupport::RunConcurrently(threads, [&](int t) { got[t] = context.GetService(ref); });
        EXPECT_EQ(1, factory->made.load());
        for (auto const& g : got)
        {
            ASSERT_TRUE(g);
            EXPECT_EQ(got[0].get(), g.get());
        }
        // Released from many threads at once: exactly one unget.
        testsupport::RunConcurrently(threads, [&](int t) { got[t].reset(); });
        EXPECT_EQ(1, factory->ungot.load());
    }
} // namespace
