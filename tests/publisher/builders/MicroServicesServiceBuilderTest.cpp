#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include "support/BuilderCalls.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

namespace agent::spf::legacyservicepublisher {
namespace {

using agent::core::service::ServiceBase;
using agent::core::service::ServiceBuilderBase;
using testsupport::failureOf;
using testsupport::namesOfConcurrentCreates;

std::string bundlePath(const std::string& target) { return std::string(BUILDERS_TEST_LIBRARY_DIR) + "/lib" + target + ".so"; }

class TestService : public ServiceBase {
public:
    bool start(const agent::core::service::StartupConfiguration&) override { return false; }
    void stop() override {}
    std::string name() const override { return "registered by the test"; }
};

class TestBuilder : public ServiceBuilderBase {
public:
    std::shared_ptr<ServiceBase> create() override { return std::make_shared<TestService>(); }
};

using MicroServicesServiceBuilderTest = testsupport::FrameworkFixture;

TEST_F(MicroServicesServiceBuilderTest, TheFirstCreateStartsTheBundleAndUsesItsFirstRegisteredBuilder) {
    auto bundle = Install(bundlePath("PublisherTestBuilderBundle"));
    ASSERT_TRUE(bundle);
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);
    EXPECT_NE(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE) << "made without starting the bundle";

    auto service = builder->create();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->name(), "first") << "the first builder in registration order, not the higher ranked one";
    EXPECT_EQ(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE);
    EXPECT_NE(builder->create(), service) << "each create() makes a new service";
}

TEST_F(MicroServicesServiceBuilderTest, ConcurrentFirstCreatesStartTheBundleOnce) {
    auto bundle = Install(bundlePath("PublisherTestBuilderBundle"));
    ASSERT_TRUE(bundle);
    std::atomic<int> starts{0};
    auto token = context.AddBundleListener([&](const cppmicroservices::BundleEvent& event) {
        if (event.GetBundle() == bundle && event.GetType() == cppmicroservices::BundleEvent::BUNDLE_STARTING) {
            ++starts;
        }
    });
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);

    for (const auto& name : namesOfConcurrentCreates(*builder, 8)) {
        EXPECT_EQ(name, "first");
    }
    EXPECT_EQ(builder->create()->name(), "first");
    EXPECT_EQ(starts.load(), 1);
    context.RemoveListener(std::move(token));
}

TEST_F(MicroServicesServiceBuilderTest, ABundleWithoutABuilderFailsOnEveryCreateUntilItRegistersOne) {
    auto bundle = Install(bundlePath("PublisherTestNoBuilderBundle"));
    ASSERT_TRUE(bundle);
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);

    EXPECT_EQ(failureOf(*builder), "Couldn't find service builder reference");
    EXPECT_EQ(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE) << "started before looking";
    EXPECT_EQ(failureOf(*builder), "Couldn't find service builder reference");

    // Registered through the bundle's own context, so it is one of the bundle's services.
    auto registration =
        bundle.GetBundleContext().RegisterService<ServiceBuilderBase>(std::make_shared<TestBuilder>());
    auto service = builder->create();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->name(), "registered by the test");
}

TEST_F(MicroServicesServiceBuilderTest, AFailureToStartTheBundlePassesThrough) {
    auto bundle = Install(bundlePath("PublisherTestBuilderBundle"));
    ASSERT_TRUE(bundle);
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);
    bundle.Uninstall();
    EXPECT_THROW(builder->create(), std::logic_error);
    EXPECT_THROW(builder->create(), std::logic_error) << "tried again, failed again";
}

}  // namespace
}  // namespace agent::spf::legacyservicepublisher
