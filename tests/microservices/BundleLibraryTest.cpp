// The on-demand loading of bundle libraries that component runtimes use for
// bundles without an activator.

#include "TestBundles.h"
#include "support/FrameworkFixture.h"

#include "bundle/BundleLibrary.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/SharedLibraryException.h"

#include <gtest/gtest.h>

using namespace cppmicroservices;

namespace
{
    class BundleLibraryTest : public testsupport::FrameworkFixture
    {
      protected:
        FrameworkConfiguration
        Configuration() override
        {
            auto config = FrameworkFixture::Configuration();
            std::function<bool(Bundle const&)> validate = [](Bundle const& b)
            { return b.GetSymbolicName() != "test_greeter"; };
            config.emplace(Constants::FRAMEWORK_BUNDLE_VALIDATION_FUNC, validate);
            return config;
        }
    };

    TEST_F(BundleLibraryTest, LoadsOnceHandsTheLibraryItsContextAndAsksTheValidationFunction)
    {
        auto bundle = Install(testbundles::Path("TestNoActivatorBundle"));
        bundle.Start();

        auto library = BundleLibrary::Load(bundle);
        ASSERT_TRUE(library);
        auto answer = library.getFunction<int()>("test_no_activator_answer");
        ASSERT_TRUE(answer);
        EXPECT_EQ(42, answer());
        auto ownId = library.getFunction<long()>("test_no_activator_own_bundle_id");
        EXPECT_EQ(bundle.GetBundleId(), ownId());

        auto again = BundleLibrary::Load(bundle);
        EXPECT_EQ(library.findSymbol("test_no_activator_answer"), again.findSymbol("test_no_activator_answer"));

        bundle.Stop();
        EXPECT_EQ(-1L, ownId()) << "a stopped bundle's library has no context";
        EXPECT_THROW(BundleLibrary::Load(bundle), std::logic_error);

        bundle.Start();
        BundleLibrary::Load(bundle);
        EXPECT_EQ(bundle.GetBundleId(), ownId()) << "the new activation's context was handed over";
        EXPECT_THROW(BundleLibrary::Load(Bundle()), std::logic_error);

        // The validation function refuses the greeter's library: its start fails.
        auto refused = Install(testbundles::Path("TestGreeterBundle"));
        EXPECT_THROW(refused.Start(), SharedLibraryException);
        EXPECT_EQ(Bundle::STATE_RESOLVED, refused.GetState());
    }
} // namespace
