#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

#include "spf/inprocessdiscovery/ExchangeTestSupport.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/ServiceReference.h"

#include <gtest/gtest.h>

#include <shared_mutex>

namespace agent::spf {
namespace {

using namespace agent::spf::testing;

class PlatformBundlesTest : public testsupport::FrameworkFixture {
protected:
    // Installs and starts lib<name>.so from the build's library folder.
    cppmicroservices::Bundle start(const std::string& name) {
        auto bundle = Install(std::string(SPF_BUNDLE_DIR) + "/lib" + name + ".so");
        EXPECT_EQ(bundle.GetSymbolicName(), name);
        bundle.Start();
        return bundle;
    }

    // The one service registered under `interfaceId`, which must come from `bundle`.
    cppmicroservices::ServiceReferenceU onlyService(const std::string& interfaceId,
                                                    const cppmicroservices::Bundle& bundle) {
        auto references = context.GetServiceReferences(interfaceId);
        EXPECT_EQ(references.size(), 1u) << interfaceId;
        if (references.empty()) {
            return {};
        }
        EXPECT_EQ(references.front().GetBundle(), bundle);
        return references.front();
    }
};

TEST_F(PlatformBundlesTest, ThreadPoolProviderIsOfferedWhileActiveAndItsPoolShutsDownWithTheBundle) {
    auto bundle = start("spf_threadpoolprovider");
    ASSERT_TRUE(onlyService("agent::spf::threadpoolprovider::ThreadPoolProvider", bundle));

    auto reference = context.GetServiceReference<threadpoolprovider::ThreadPoolProvider>();
    auto provider = context.GetService(reference);
    ASSERT_NE(provider, nullptr);
    auto executor = provider->getExecutor();
    std::promise<void> ran;
    executor->postWork(randomId(), [&ran](foundation::concurrent::threadpool::stop_token) { ran.set_value(); },
                       false);
    EXPECT_EQ(ran.get_future().wait_until(deadline()), std::future_status::ready);

    bundle.Stop();
    EXPECT_FALSE(context.GetServiceReference<threadpoolprovider::ThreadPoolProvider>());
    std::shared_lock<std::shared_mutex> lock(executor->shutdownMutex());
    EXPECT_TRUE(executor->isShutDown());
}

TEST_F(PlatformBundlesTest, InProcessDiscoveryIsOfferedAndItsExchangeOutlivesTheBundleForItsUsers) {
    auto bundle = start("spf_inprocessdiscovery");
    ASSERT_TRUE(onlyService("agent::spf::inprocessdiscovery::InProcessDiscovery", bundle));

    auto discovery = context.GetService(context.GetServiceReference<inprocessdiscovery::InProcessDiscovery>());
    ASSERT_NE(discovery, nullptr);

    auto client = discovery->getFrameworkDiscoveryService(3);
    directoryinterfaces::ServiceInstanceInfo info;
    info.name = "Registered";
    info.instance = randomId();
    client->registerServiceInstance(info);

    bundle.Stop();
    EXPECT_FALSE(context.GetServiceReference<inprocessdiscovery::InProcessDiscovery>());
    // A user that still holds the service keeps a working exchange.
    EXPECT_EQ(client->queryDirectoryForServiceUUIDs("Registered"), std::vector<boost::uuids::uuid>{info.instance});
    client.reset();
}

}  // namespace
}  // namespace agent::spf
