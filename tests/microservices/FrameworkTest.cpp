// The framework's own life: init, start, asynchronous stop, restart, and the
// order in which it stops bundles.

#include "TestBundles.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkFactory.h"

#include <gtest/gtest.h>

#include <filesystem>


using namespace cppmicroservices;
using namespace std::chrono_literals;

namespace
{
    using BundleLog = testbundles::EventLog<BundleEvent>;

    TEST(FrameworkLifecycleTest, InitGivesAContextBeforeStartAndStartMakesItActive)
    {
        auto framework = FrameworkFactory().NewFramework();
        EXPECT_EQ(Bundle::STATE_INSTALLED, framework.GetState());
        EXPECT_FALSE(framework.GetBundleContext());
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_STOPPED, framework.WaitForStop(0ms).GetType()) << "it never ran";

        framework.Init();
        EXPECT_EQ(Bundle::STATE_STARTING, framework.GetState());
        auto context = framework.GetBundleContext();
        ASSERT_TRUE(context);
        auto events = std::make_shared<testbundles::EventLog<FrameworkEvent>>();
        auto token = context.AddFrameworkListener([events](FrameworkEvent const& e) { (*events)(e); });
        auto installed = context.InstallBundles(testbundles::Path("TestNoActivatorBundle"));
        EXPECT_EQ(1u, installed.size()) << "bundles can be installed before Start";
        EXPECT_THROW(Framework{ installed.at(0) }, std::logic_error) << "only the system bundle is a framework";
        EXPECT_EQ(framework, Framework(context.GetBundle(0)));

        framework.Start();
        EXPECT_EQ(Bundle::STATE_ACTIVE, framework.GetState());
        EXPECT_EQ(context, framework.GetBundleContext()) << "Start keeps the context Init made";
        ASSERT_FALSE(events->Types().empty());
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_STARTED, events->Types().front());

        framework.Stop();
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_STOPPED, framework.WaitForStop(0ms).GetType());
        EXPECT_EQ(Bundle::STATE_RESOLVED, framework.GetState());
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_STOPPED, events->Types().back()) << "framework listeners see the stop";
    }

    TEST(FrameworkLifecycleTest, AFailingBundleStopIsReportedByWaitForStop)
    {
        auto framework = FrameworkFactory().NewFramework();
        framework.Start();
        auto bundle = framework.GetBundleContext().InstallBundles(testbundles::Path("TestStopThrowsBundle")).at(0);
        bundle.Start();
        framework.Stop();
        auto const event = framework.WaitForStop(0ms);
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_ERROR, event.GetType()) << event;
        EXPECT_EQ(bundle, event.GetBundle());
        EXPECT_EQ(Bundle::STATE_RESOLVED, bundle.GetState());
        EXPECT_EQ(Bundle::STATE_RESOLVED, framework.GetState());
    }

    class FrameworkTest : public testsupport::FrameworkFixture
    {
      protected:
        FrameworkConfiguration
        Configuration() override
        {
            auto config = FrameworkFixture::Configuration();
            config.emplace("test.setting", std::string("on"));
            config.emplace(Constants::FRAMEWORK_THREADING_SUPPORT, std::string("single"));
            return config;
        }
    };

    TEST_F(FrameworkTest, StopsBundlesInReverseStartOrderAndRestartsWithThemInstalled)
    {
        auto greeter = Install(testbundles::Path("TestGreeterBundle"));
        auto plain = Install(testbundles::Path("TestNoActivatorBundle"));
        plain.Start();
        greeter.Start();

        auto log = std::make_shared<BundleLog>();
        auto token = context.AddBundleListener(
            [log](BundleEvent const& e)
            {
                if (e.GetType() == BundleEvent::BUNDLE_STOPPING)
                {
                    (*log)(e);
                }
            });
        StopFramework();
        auto events = log->Events();
        ASSERT_EQ(3u, events.size());
        EXPECT_EQ(0, events[0].GetBundle().GetBundleId()) << "the system bundle announces its stop first";
        EXPECT_EQ(greeter, events[1].GetBundle());
        EXPECT_EQ(plain, events[2].GetBundle());

        // It starts again with its bundles still installed, and resolved.
        framework->Start();
        context = framework->GetBundleContext();
        ASSERT_TRUE(context);
        EXPECT_EQ(Bundle::STATE_RESOLVED, greeter.GetState());
        EXPECT_EQ(3u, context.GetBundles().size());
        greeter.Start();
        EXPECT_TRUE(context.GetServiceReference("test::Greeter"));
    }

    TEST_F(FrameworkTest, AListenerCanStopTheFrameworkWithoutDeadlock)
    {
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT, framework->WaitForStop(10ms).GetType());
        auto bundle = Install(testbundles::Path("TestNoActivatorBundle"));
        Framework fw = *framework;
        auto token = context.AddBundleListener(
            [fw](BundleEvent const& e) mutable
            {
                if (e.GetType() == BundleEvent::BUNDLE_STARTED)
                {
                    fw.Stop(); // returns at once; the stop runs on another thread
                }
            });
        bundle.Start();
        EXPECT_EQ(FrameworkEvent::FRAMEWORK_STOPPED, framework->WaitForStop(0ms).GetType());
        EXPECT_EQ(Bundle::STATE_RESOLVED, bundle.GetState());
    }

    TEST_F(FrameworkTest, PropertiesHoldTheConfigurationAndTheFrameworksOwnFacts)
    {
        EXPECT_EQ("on", any_cast<std::string>(context.GetProperty("test.setting")));
        EXPECT_EQ(storage.string(), any_cast<std::string>(context.GetProperty(Constants::FRAMEWORK_STORAGE)));
        EXPECT_EQ(Constants::FRAMEWORK_THREADING_MULTI,
                  any_cast<std::string>(context.GetProperty(Constants::FRAMEWORK_THREADING_SUPPORT)))
            << "a read-only fact is not taken from the configuration";
        EXPECT_TRUE(context.GetProperty("no.such.property").Empty());
        EXPECT_EQ(1u, context.GetProperties().count("test.setting"));

        auto const path = std::filesystem::path(context.GetDataFile("state.json"));
        EXPECT_EQ(storage / "data" / "0" / "state.json", path) << "data files live in a folder per bundle";
        EXPECT_TRUE(std::filesystem::is_directory(path.parent_path()));
    }
} // namespace
