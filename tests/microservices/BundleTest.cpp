// Bundle lifecycle with real bundle libraries: install, start, stop,
// uninstall, and the ways a start can fail.

#include "Greeter.h"
#include "TestBundles.h"
#include "support/Thrown.h"
#include "support/FrameworkFixture.h"

#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"

#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/SharedLibraryException.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <filesystem>

using namespace cppmicroservices;

namespace
{
    using BundleLog = testbundles::EventLog<BundleEvent>;

    bool
    IsLoaded(std::string const& path)
    {
        void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle != nullptr)
        {
            dlclose(handle);
        }
        return handle != nullptr;
    }

    class BundleTest : public testsupport::FrameworkFixture
    {
      protected:
        std::size_t
        ServiceListenerCount()
        {
            return detail::PrivateAccess::Core(*framework)->listeners.ServiceListenerCount();
        }
    };

    TEST_F(BundleTest, AGreeterBundleRegistersItsServiceWhileActiveAndStartsAgainWithAFreshContext)
    {
        auto log = std::make_shared<BundleLog>();
        auto token = context.AddBundleListener([log](BundleEvent const& e) { (*log)(e); });

        auto bundle = Install(testbundles::Path("TestGreeterBundle"));
        EXPECT_EQ(Bundle::STATE_INSTALLED, bundle.GetState());
        EXPECT_EQ("test_greeter", bundle.GetSymbolicName());
        EXPECT_EQ(BundleVersion(1, 2, 3, "beta"), bundle.GetVersion());
        EXPECT_FALSE(bundle.GetBundleContext());

        bundle.Start();
        EXPECT_EQ(Bundle::STATE_ACTIVE, bundle.GetState());
        auto const firstContext = bundle.GetBundleContext();
        EXPECT_TRUE(firstContext);
        auto ref = context.GetServiceReference<test::Greeter>();
        ASSERT_TRUE(ref);
        EXPECT_EQ(bundle, ref.GetBundle());
        EXPECT_EQ("en", any_cast<std::string>(ref.GetProperty("greeting.language")));
        EXPECT_EQ(7, any_cast<int>(ref.GetProperty(Constants::SERVICE_RANKING)));
        auto greeter = context.GetService(ref);
        EXPECT_EQ("Hello, Ada", greeter->Greet("Ada"));
        EXPECT_TRUE(greeter->SeesOwnContext()) << "the glue setter gave the library its context";
        EXPECT_EQ(1u, bundle.GetRegisteredServices().size());

        bundle.Stop();
        EXPECT_EQ(Bundle::STATE_RESOLVED, bundle.GetState());
        EXPECT_FALSE(ref);
        EXPECT_FALSE(context.GetServiceReference<test::Greeter>());
        EXPECT_FALSE(bundle.GetBundleContext());
        EXPECT_THROW(firstContext.GetBundles(), std::runtime_error);
        EXPECT_FALSE(greeter->SeesOwnContext()) << "the library was told its bundle stopped";

        EXPECT_EQ((std::vector<BundleEvent::Type>{ BundleEvent::BUNDLE_INSTALLED,
                                                   BundleEvent::BUNDLE_RESOLVED,
                                                   BundleEvent::BUNDLE_STARTING,
                                                   BundleEvent::BUNDLE_STARTED,
                                                   BundleEvent::BUNDLE_STOPPING,
                                                   BundleEvent::BUNDLE_STOPPED }),
                  log->Types());
        EXPECT_EQ(framework->GetBundleId(), log->Events().front().GetOrigin().GetBundleId())
            << "the installer is the origin of BUNDLE_INSTALLED";

        // Started again it has a fresh context; starting it once more does nothing.
        bundle.Start();
        bundle.Start();
        EXPECT_TRUE(bundle.GetBundleContext());
        EXPECT_FALSE(firstContext) << "an old context stays invalid";
        EXPECT_TRUE(context.GetService(context.GetServiceReference<test::Greeter>())->SeesOwnContext());
        EXPECT_EQ(1u, context.GetServiceReferences<test::Greeter>().size());
    }

    TEST_F(BundleTest, ABundleWithoutActivatorStartsWithoutLoadingItsLibrary)
    {
        // A private copy: other tests may have loaded the original.
        std::filesystem::create_directories(storage);
        auto const path = (storage / "libNoActivatorCopy.so").string();
        std::filesystem::copy_file(testbundles::Path("TestNoActivatorBundle"), path);
        auto bundle = Install(path);
        EXPECT_FALSE(IsLoaded(path)) << "installing reads the manifest from the file";
        bundle.Start();
        EXPECT_EQ(Bundle::STATE_ACTIVE, bundle.GetState());
        EXPECT_FALSE(IsLoaded(path));
        bundle.Stop();
    }

    TEST_F(BundleTest, AThrowingActivatorLeavesTheBundleResolvedAndTakesBackWhatItRegistered)
    {
        auto log = std::make_shared<BundleLog>();
        auto token = context.AddBundleListener([log](BundleEvent const& e) { (*log)(e); });
        auto bundle = Install(testbundles::Path("TestThrowingActivatorBundle"));
        auto const listenersBefore = ServiceListenerCount();

        EXPECT_EQ("Bundle test_throwing_activator (location=" + testbundles::Path("TestThrowingActivatorBundle")
                      + ") start failed: activator refused to start",
                  testsupport::ThrownText<std::runtime_error>([&] { bundle.Start(); }));
        EXPECT_EQ(Bundle::STATE_RESOLVED, bundle.GetState());
        EXPECT_TRUE(context.GetServiceReferences<test::Greeter>().empty());
        EXPECT_EQ(listenersBefore, ServiceListenerCount()) << "its listener was removed";
        EXPECT_EQ((std::vector<BundleEvent::Type>{ BundleEvent::BUNDLE_INSTALLED,
                                                   BundleEvent::BUNDLE_RESOLVED,
                                                   BundleEvent::BUNDLE_STARTING,
                                                   BundleEvent::BUNDLE_STOPPING,
                                                   BundleEvent::BUNDLE_STOPPED }),
                  log->Types());

        // The framework carries on.
        auto greeter = Install(testbundles::Path("TestGreeterBundle"));
        greeter.Start();
        EXPECT_EQ(Bundle::STATE_ACTIVE, greeter.GetState());
    }

    TEST_F(BundleTest, FailedStartsAndStopsNameTheCauseAndLeaveTheBundleResolved)
    {
        AnyMap manifest(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        manifest.emplace(Constants::BUNDLE_ACTIVATOR, Any(true));
        AnyMap manifests(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        manifests.emplace("test_ghost", Any(manifest));
        auto const ghostLocation = (storage / "no-such-library.so").string();
        auto ghosts = context.InstallBundles(ghostLocation, manifests);
        ASSERT_EQ(1u, ghosts.size());
        auto stopThrows = Install(testbundles::Path("TestStopThrowsBundle"));
        stopThrows.Start();

        struct Row
        {
            char const* what;
            Bundle bundle;
            bool stop;
            std::string text;
        };
        std::vector<Row> const rows = {
            { "missing activator symbols", Install(testbundles::Path("TestMissingActivatorBundle")), false,
              "start failed: the library has no _us_create_activator_test_missing_activator symbol" },
            { "missing library", ghosts[0], false, ghostLocation },
            { "throwing stop", stopThrows, true, "stop failed: activator refused to stop" },
        };
        for (auto row : rows)
        {
            try
            {
                row.stop ? row.bundle.Stop() : row.bundle.Start();
                ADD_FAILURE() << row.what << ": no exception";
            }
            catch (SharedLibraryException const& e)
            {
                EXPECT_EQ(row.bundle, e.GetBundle()) << row.what;
                EXPECT_NE(std::string::npos, std::string(e.what()).find(row.text)) << row.what << ": " << e.what();
            }
            catch (std::runtime_error const& e)
            {
                EXPECT_NE(std::string::npos, std::string(e.what()).find(row.text)) << row.what << ": " << e.what();
            }
            EXPECT_EQ(Bundle::STATE_RESOLVED, row.bundle.GetState()) << row.what;
            EXPECT_FALSE(row.bundle.GetBundleContext()) << row.what;
        }
        EXPECT_TRUE(context);
    }

    TEST_F(BundleTest, InstallingTwiceGivesTheSameBundleAndUninstallKeepsItsHeadersReadable)
    {
        auto log = std::make_shared<BundleLog>();
        auto token = context.AddBundleListener([log](BundleEvent const& e) { (*log)(e); });
        auto bundle = Install(testbundles::Path("TestGreeterBundle"));
        EXPECT_EQ(bundle, Install(testbundles::Path("TestGreeterBundle")));
        EXPECT_EQ(2u, context.GetBundles().size());
        bundle.Start();
        auto const id = bundle.GetBundleId();

        bundle.Uninstall();
        EXPECT_EQ(Bundle::STATE_UNINSTALLED, bundle.GetState());
        EXPECT_FALSE(context.GetBundle(id));
        EXPECT_EQ("test_greeter", any_cast<std::string>(bundle.GetHeaders().at("bundle.symbolic_name")));
        EXPECT_THROW(bundle.GetRegisteredServices(), std::logic_error);
        EXPECT_THROW(bundle.Start(), std::logic_error);
        EXPECT_THROW(bundle.Uninstall(), std::logic_error);
        EXPECT_EQ(BundleEvent::BUNDLE_UNINSTALLED, log->Types().back());
        EXPECT_THROW(framework->Uninstall(), std::logic_error);
    }

    TEST_F(BundleTest, ABundleCannotStartOrStopItselfFromInsideItsOwnTransition)
    {
        auto bundle = Install(testbundles::Path("TestNoActivatorBundle"));
        std::string error;
        auto token = context.AddBundleListener(
            [&](BundleEvent const& e)
            {
                if (e.GetType() == BundleEvent::BUNDLE_STARTING)
                {
                    error = testsupport::ThrownText<std::logic_error>([&] { e.GetBundle().Stop(); });
                }
            });
        bundle.Start();
        EXPECT_NE(std::string::npos, error.find("cannot be started or stopped from within its own start or stop"));
        EXPECT_EQ(Bundle::STATE_ACTIVE, bundle.GetState());
        context.RemoveListener(std::move(token)); // it captures locals of this test
    }
} // namespace
