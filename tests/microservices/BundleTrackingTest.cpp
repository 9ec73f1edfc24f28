// One real bundle registers a greeter, another tracks greeters through a filtered ServiceTracker.

#include "Greeter.h"
#include "TestBundles.h"
#include "TrackerProbe.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "support/FrameworkFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

using namespace cppmicroservices;

namespace
{
    class LocalGreeter : public test::Greeter
    {
      public:
        std::string Greet(std::string const& name) const override { return "Hallo, " + name; }
        bool SeesOwnContext() const override { return false; }
    };

    class BundleTrackingTest : public testsupport::FrameworkFixture
    {
      protected:
        std::shared_ptr<test::TrackerProbe>
        Probe()
        {
            auto const reference = context.GetServiceReference<test::TrackerProbe>();
            return reference ? context.GetService(reference) : nullptr;
        }

        ServiceRegistration<test::Greeter>
        RegisterGreeter(std::string const& language, bool decline = false)
        {
            return context.RegisterService<test::Greeter>(
                std::make_shared<LocalGreeter>(),
                { { "greeting.language", language }, { "greeting.decline", decline } });
        }
    };

    TEST_F(BundleTrackingTest, TrackerBundleSeesGreeterBundleComeAndGo)
    {
        Bundle greeter = Install(testbundles::Path("TestGreeterBundle"));
        Bundle tracker = Install(testbundles::Path("TestTrackerBundle"));
        tracker.Start();
        auto probe = Probe();
        ASSERT_TRUE(probe);
        EXPECT_EQ(0, probe->Tracked());

        greeter.Start();
        EXPECT_EQ(1, probe->Tracked());
        EXPECT_EQ(std::vector<std::string>{ "Hello, Ann" }, probe->Greetings("Ann"));

        greeter.Stop();
        EXPECT_EQ(0, probe->Tracked());
        EXPECT_EQ(1, probe->Removed());

        greeter.Start();
        EXPECT_EQ(1, probe->Tracked());
        tracker.Stop();
        // The tracker closed with the bundle and gave back what it tracked.
        EXPECT_EQ(2, probe->Removed());
        EXPECT_FALSE(context.GetServiceReference<test::TrackerProbe>());
    }

    TEST_F(BundleTrackingTest, TrackerOpenedLaterFindsRunningGreeterAndFilterAndCustomizerSelect)
    {
        Bundle greeter = Install(testbundles::Path("TestGreeterBundle"));
        Bundle tracker = Install(testbundles::Path("TestTrackerBundle"));
        greeter.Start();
        tracker.Start();
        auto probe = Probe();
        ASSERT_TRUE(probe);
        EXPECT_EQ(1, probe->Tracked());
        int const offered = probe->Offered();

        auto german = RegisterGreeter("de");
        EXPECT_EQ(offered, probe->Offered()) << "a greeter outside the filter was offered";

        auto declined = RegisterGreeter("en", true);
        EXPECT_EQ(offered + 1, probe->Offered());
        EXPECT_EQ(1, probe->Tracked()) << "a greeter the customizer declined is tracked";

        auto accepted = RegisterGreeter("en");
        EXPECT_EQ(2, probe->Tracked());
        auto greetings = probe->Greetings("Bo");
        std::sort(greetings.begin(), greetings.end());
        EXPECT_EQ((std::vector<std::string>{ "Hallo, Bo", "Hello, Bo" }), greetings);

        accepted.Unregister();
        declined.Unregister();
        EXPECT_EQ(1, probe->Tracked());
        EXPECT_EQ(1, probe->Removed()) << "only the accepted greeter is removed";
    }
} // namespace
