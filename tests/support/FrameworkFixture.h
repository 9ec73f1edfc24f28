#ifndef TESTS_SUPPORT_FRAMEWORKFIXTURE_H
#define TESTS_SUPPORT_FRAMEWORKFIXTURE_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <random>
#include <string>

namespace testsupport
{
    // Starts a real framework for each test (storage in a fresh temporary
    // folder) and stops it in TearDown. The test fails if the framework does
    // not stop within stopTimeout, if stopping reports an error, or if a
    // bundle is still active afterwards.
    class FrameworkFixture : public ::testing::Test
    {
      protected:
        // Framework properties; override to add some. Called from SetUp.
        virtual cppmicroservices::FrameworkConfiguration
        Configuration()
        {
            return { { cppmicroservices::Constants::FRAMEWORK_STORAGE, storage.string() } };
        }

        void
        SetUp() override
        {
            std::random_device random;
            storage = std::filesystem::temp_directory_path()
                      / ("fwfixture-" + std::to_string(random()) + "-" + std::to_string(random()));
            framework.emplace(cppmicroservices::FrameworkFactory().NewFramework(Configuration()));
            framework->Start();
            context = framework->GetBundleContext();
            ASSERT_TRUE(context) << "the framework has no valid context after Start";
        }

        void
        TearDown() override
        {
            if (framework)
            {
                StopFramework();
                framework.reset();
            }
            std::error_code ignored;
            std::filesystem::remove_all(storage, ignored);
        }

        // Stops the framework and checks that it stopped cleanly.
        void
        StopFramework()
        {
            auto bundles = context ? context.GetBundles() : std::vector<cppmicroservices::Bundle>();
            framework->Stop();
            auto const event = framework->WaitForStop(stopTimeout);
            EXPECT_EQ(cppmicroservices::FrameworkEvent::FRAMEWORK_STOPPED, event.GetType())
                << "the framework did not stop cleanly: " << event;
            EXPECT_FALSE(context) << "the system bundle context is still valid after the stop";
            for (auto const& bundle : bundles)
            {
                if (bundle.GetState() != cppmicroservices::Bundle::STATE_UNINSTALLED)
                {
                    EXPECT_NE(cppmicroservices::Bundle::STATE_ACTIVE, bundle.GetState())
                        << bundle.GetSymbolicName() << " is still active after the framework stopped";
                }
            }
            context = nullptr;
        }

        // Installs the bundle library at path and returns its bundle.
        cppmicroservices::Bundle
        Install(std::string const& path)
        {
            auto bundles = context.InstallBundles(path);
            EXPECT_EQ(1u, bundles.size()) << path;
            return bundles.empty() ? cppmicroservices::Bundle() : bundles.front();
        }

        std::chrono::milliseconds stopTimeout{ std::chrono::seconds(30) };
        std::filesystem::path storage;
        std::optional<cppmicroservices::Framework> framework;
        cppmicroservices::BundleContext context;
    };
} // namespace testsupport

#endif // TESTS_SUPPORT_FRAMEWORKFIXTURE_H
