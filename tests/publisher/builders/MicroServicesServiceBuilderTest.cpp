// The micro-services builder with bundles built for it, in a real framework.

#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include "agent/spf/legacyservicepublisher/DeclarativeServicesServiceBuilder.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

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

using agent::core::service::ServiceBuilderBase;
using testsupport::failureOf;

class MicroServicesServiceBuilderTest : public testsupport::FrameworkFixture {
protected:
    cppmicroservices::Bundle install(const std::string& target) {
        return Install(std::string(BUILDERS_TEST_LIBRARY_DIR) + "/lib" + target + ".so");
    }
};

TEST_F(MicroServicesServiceBuilderTest, RacingFirstCreatesStartTheBundleOnceAndUseItsFirstRegisteredBuilder) {
    auto bundle = install("PublisherTestBuilderBundle");
    std::atomic<int> starts{0};
    auto token = context.AddBundleListener([&](const cppmicroservices::BundleEvent& event) {
        starts += event.GetBundle() == bundle && event.GetType() == cppmicroservices::BundleEvent::BUNDLE_STARTING;
    });
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);
    EXPECT_NE(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE) << "made without starting the bundle";

    for (const auto& name : testsupport::namesOfConcurrentCreates(*builder, 8)) {
        EXPECT_EQ(name, "first") << "the first builder in registration order, not the higher ranked one";
    }
    const auto service = builder->create();
    EXPECT_NE(builder->create(), service) << "each create() makes a new service";
    EXPECT_EQ(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE);
    EXPECT_EQ(starts.load(), 1);
    context.RemoveListener(std::move(token));
}

TEST_F(MicroServicesServiceBuilderTest, ABundleWithoutABuilderFailsOnEveryCreateUntilItRegistersOne) {
    auto bundle = install("PublisherTestNoBuilderBundle");
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);
    EXPECT_EQ(failureOf(*builder), "Couldn't find service builder reference");
    EXPECT_EQ(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE) << "started before looking";
    EXPECT_EQ(failureOf(*builder), "Couldn't find service builder reference");
    // Registered through the bundle's own context, so it is one of the bundle's services.
    auto registration = bundle.GetBundleContext().RegisterService<ServiceBuilderBase>(
        DeclarativeServicesServiceBuilder::make_shared(core::ServiceInterface("registered by the test", core::APIVersion(1)),
                                                       std::make_shared<serialisation::SerialisationCatalogue>()));
    EXPECT_EQ(builder->create()->name(), "registered by the test");
}

}  // namespace
}  // namespace agent::spf::legacyservicepublisher
