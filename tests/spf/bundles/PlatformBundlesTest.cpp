#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

#include "support/ContainerSupport.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/ServiceReference.h"

#include <gtest/gtest.h>

#include <shared_mutex>

namespace agent::spf {
namespace {

using PlatformBundlesTest = testsupport::FrameworkFixture;

// The four bundles run together end to end, where the publisher looks their services up by type.
// Here each offers its service under the name other bundles use while active; stopping releases
// the thread pool, though a user holds it, and keeps the in-process exchange working for a client
// handed out, whose user let the discovery service itself go before the bundle stopped.
TEST_F(PlatformBundlesTest, EachBundleOffersItsServiceWhileActiveAndTheExchangeOutlivesItsBundleForAClient) {
    const std::pair<const char*, std::string> rows[] = {
        {"spf_threadpoolprovider", "agent::spf::threadpoolprovider::ThreadPoolProvider"},
        {"spf_serialisationcatalogue", "agent::spf::serialisation::SerialisationCatalogue"},
        {"spf_invokablepublisher", "agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>"},
        {"spf_inprocessdiscovery", "agent::spf::inprocessdiscovery::InProcessDiscovery"},
    };
    std::vector<cppmicroservices::Bundle> bundles;
    for (const auto& [name, interfaceId] : rows) {
        bundles.push_back(Install(std::string(SPF_BUNDLE_DIR) + "/lib" + name + ".so"));
        bundles.back().Start();
        const auto references = context.GetServiceReferences(interfaceId);
        ASSERT_EQ(1u, references.size()) << name;
        EXPECT_EQ(bundles.back(), references.front().GetBundle()) << name;
    }
    auto executor = context.GetService(context.GetServiceReference<threadpoolprovider::ThreadPoolProvider>())->getExecutor();
    // The user holds only a client of the service.
    auto client = context.GetService(context.GetServiceReference<inprocessdiscovery::InProcessDiscovery>())
                      ->getFrameworkDiscoveryService(3);
    directoryinterfaces::ServiceInstanceInfo info;
    info.name = "Registered";
    info.instance = testsupport::randomId();
    client->registerServiceInstance(info);
    for (std::size_t i = 0; i < bundles.size(); ++i) {
        bundles[i].Stop();
        EXPECT_TRUE(context.GetServiceReferences(rows[i].second).empty()) << rows[i].first;
    }
    std::shared_lock<std::shared_mutex> lock(executor->shutdownMutex());
    EXPECT_TRUE(executor->isShutDown()) << "the pool shuts down with its bundle, though a user holds it";
    EXPECT_EQ(std::vector<boost::uuids::uuid>{info.instance}, client->queryDirectoryForServiceUUIDs("Registered"));
}

}  // namespace
}  // namespace agent::spf
