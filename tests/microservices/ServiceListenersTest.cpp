// Service, bundle and framework listeners: which events arrive, in which
// order, on which thread, and what happens when a listener misbehaves.

#include "TestBundles.h"
#include "support/Thrown.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/ServiceEvent.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

using namespace cppmicroservices;

namespace listenertest
{
    struct Echo
    {
        virtual ~Echo() = default;
    };
    struct EchoImpl : Echo
    {
    };
} // namespace listenertest

namespace
{
    using listenertest::Echo;
    using listenertest::EchoImpl;
    using ServiceLog = testbundles::EventLog<ServiceEvent>;
    using FrameworkLog = testbundles::EventLog<FrameworkEvent>;

    class ServiceListenersTest : public testsupport::FrameworkFixture
    {
      protected:
        ServiceRegistration<Echo>
        RegisterEcho(ServiceProperties props = {})
        {
            return context.RegisterService<Echo>(std::make_shared<EchoImpl>(), props);
        }
    };

    TEST_F(ServiceListenersTest, EachListenerSeesTheEventsItsFilterSelectsInOrder)
    {
        using T = ServiceEvent;
        struct Row
        {
            char const* filter;
            std::vector<ServiceEvent::Type> types;
            std::shared_ptr<ServiceLog> log = std::make_shared<ServiceLog>();
        };
        std::vector<T::Type> const all = { T::SERVICE_REGISTERED, T::SERVICE_MODIFIED, T::SERVICE_MODIFIED,
                                           T::SERVICE_MODIFIED,   T::SERVICE_MODIFIED, T::SERVICE_UNREGISTERING };
        std::vector<Row> const rows = {
            { "", all },
            { "(state=on)", { T::SERVICE_MODIFIED, T::SERVICE_MODIFIED, T::SERVICE_MODIFIED_ENDMATCH } },
            { "(objectclass=listenertest::Echo)", all },
            { "(objectclass=some.other.Class)", {} },
        };
        std::vector<ListenerToken> tokens;
        for (auto const& row : rows)
        {
            auto log = row.log;
            tokens.push_back(context.AddServiceListener([log](ServiceEvent const& e) { (*log)(e); }, row.filter));
        }
        auto reg = RegisterEcho({ { "state", std::string("off") } });
        auto const ref = reg.GetReference<Echo>();
        reg.SetProperties({ { "state", std::string("on") } });
        reg.SetProperties({ { "state", std::string("on") }, { "extra", 1 } });
        reg.SetProperties({ { "state", std::string("off") } });
        reg.SetProperties({ { "state", std::string("still off") } });
        reg.Unregister();
        for (auto const& row : rows)
        {
            EXPECT_EQ(row.types, row.log->Types()) << row.filter;
            for (auto const& e : row.log->Events())
            {
                EXPECT_EQ(ref, e.GetServiceReference<Echo>()) << e;
            }
        }
    }

    TEST_F(ServiceListenersTest, AThrowingListenerBecomesAFrameworkErrorOthersStillRunOnTheCallingThreadUntilRemoved)
    {
        auto errors = std::make_shared<FrameworkLog>();
        auto t0 = context.AddFrameworkListener([errors](FrameworkEvent const& e) { (*errors)(e); });
        auto t1 = context.AddServiceListener([](ServiceEvent const&) { throw std::runtime_error("listener broke"); });
        int calls = 0;
        std::thread::id seen;
        auto t2 = context.AddServiceListener(
            [&](ServiceEvent const&)
            {
                seen = std::this_thread::get_id();
                ++calls;
            });

        std::thread worker([&] { RegisterEcho(); });
        auto const workerId = worker.get_id();
        worker.join();
        EXPECT_EQ(1u, context.GetServiceReferences<Echo>().size()) << "the registration went through";
        EXPECT_EQ(1, calls);
        EXPECT_EQ(workerId, seen) << "delivered on the registering thread";

        auto events = errors->Events();
        ASSERT_EQ(1u, events.size());
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_ERROR, events[0].GetType());
        EXPECT_EQ("Service listener in system_bundle threw an exception!", events[0].GetMessage());
        EXPECT_EQ(0, events[0].GetBundle().GetBundleId());
        EXPECT_EQ("listener broke",
                  testsupport::ThrownText<std::runtime_error>([&] { std::rethrow_exception(events[0].GetThrowable()); }));

        // Removed listeners hear nothing more; an invalid token is ignored.
        context.RemoveListener(std::move(t1));
        context.RemoveListener(std::move(t2));
        context.RemoveListener(ListenerToken());
        RegisterEcho();
        EXPECT_EQ(1, calls);
        EXPECT_EQ(1u, errors->Events().size());
    }

    TEST_F(ServiceListenersTest, ListenersMayRegisterAndRemoveListenersFromInsideACallback)
    {
        ListenerToken self;
        int calls = 0;
        self = context.AddServiceListener(
            [&](ServiceEvent const& e)
            {
                ++calls;
                if (e.GetType() == ServiceEvent::SERVICE_REGISTERED && calls == 1)
                {
                    // Re-entering the registry and the listener list must not deadlock.
                    auto nested = RegisterEcho({ { "nested", true } });
                    context.RemoveListener(std::move(self));
                }
            });
        RegisterEcho();
        EXPECT_EQ(2, calls) << "the nested registration was delivered before the removal";
        EXPECT_EQ(2u, context.GetServiceReferences<Echo>().size());
    }
} // namespace
