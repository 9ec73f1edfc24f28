// The connections the work thread keeps: literal endpoints, the agents behind the discovery
// keywords (a real agent registry in a temporary folder) and the bridge to the service host's
// exchange, against real exchanges.

#include "ServicePublisherFixture.h"

#include "support/WaitFor.h"

#include "agent/control/AgentInfo.h"
#include "agent/control/AgentRegistration.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"
#include "agent/spf/externalprocessdiscovery/UserStorageRootOverride.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"

#include "foundation/text/Utf.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

namespace publishertest {
namespace {

using Access = ServicePublisherTestAccess;
using agent::control::AgentInfo;
using agent::control::AgentMode;
using agent::control::AgentRegistration;
using agent::spf::externalprocessdiscovery::FixedUserStorageRootOverride;
using agent::spf::externalprocessdiscovery::UserStorageRootOverride;
using agent::spf::inprocessdiscovery::InProcessDiscovery;
using ::testing::Contains;
using ::testing::IsEmpty;

const std::string kPid = "qz.spf.legacyservicepublisher~demo";

class EndpointDiscoveryTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        static std::atomic<int> counter{0};
        url = "inproc://publisher-discovery-test-" + std::to_string(counter++);
        exchange = std::make_unique<agent::nanomsgtransport::Exchange>();
        exchange->listen(url);
        registryRoot = std::filesystem::temp_directory_path() /
                       ("publisher-discovery-" + boost::uuids::to_string(boost::uuids::random_generator()()));
        activate();
    }

    void TearDown() override {
        ServicePublisherFixture::TearDown();
        std::error_code ignored;
        std::filesystem::remove_all(registryRoot, ignored);
    }

    void configure(int modificationCount, const std::vector<std::string>& endpoints) {
        std::vector<Any> entries;
        for (const auto& endpoint : endpoints) {
            entries.emplace_back(endpoint);
        }
        publisher->Updated(kPid, configuration(modificationCount, std::move(entries), {}));
    }

    bool eventuallyConnectedTo(const std::set<std::string>& endpoints) {
        return testsupport::WaitFor([&] { return Access::connectedEndpoints(*publisher) == endpoints; });
    }

    // The registry of `mode` lives in registryRoot, through an override service of that mode.
    void overrideRegistryOf(const std::string& mode) {
        overrides.push_back(context.RegisterService<UserStorageRootOverride>(
            std::make_shared<FixedUserStorageRootOverride>(boost::none,
                                                          foundation::text::toUtf16(registryRoot.string())),
            {{"mode", Any(mode)}}));
    }

    std::unique_ptr<AgentRegistration> runAgent(AgentMode mode) {
        return std::make_unique<AgentRegistration>(registryRoot, AgentInfo("agent", url, ::getpid(), mode));
    }

    std::vector<cppmicroservices::ServiceReference<InProcessDiscovery>> bridges() const {
        return context.GetServiceReferences<InProcessDiscovery>("(spf::legacyservicepublisher::selfPublished=*)");
    }

    std::string url;
    std::unique_ptr<agent::nanomsgtransport::Exchange> exchange;
    std::filesystem::path registryRoot;
    std::vector<cppmicroservices::ServiceRegistration<UserStorageRootOverride>> overrides;
};

TEST_F(EndpointDiscoveryTest, ALiteralEndpointIsConnectedWhileAConfigurationAsksForIt) {
    configure(1, {url, url});
    ASSERT_TRUE(eventuallyConnectedTo({url}));
    EXPECT_EQ(1u, exchange->statistics().connectedContainers);
    EXPECT_EQ(1u, linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + url));

    publisher->Removed(kPid);
    EXPECT_TRUE(eventuallyConnectedTo({}));
    EXPECT_TRUE(testsupport::WaitFor([this] { return exchange->statistics().connectedContainers == 0; }));
}

TEST_F(EndpointDiscoveryTest, AnEndpointThatFailedForGoodIsLeftAloneUntilTheConfigurationChanges) {
    const std::string nobody = "inproc://publisher-discovery-test-nobody";
    configure(1, {nobody});
    ASSERT_TRUE(testsupport::WaitFor([&] { return Access::failedAgentConnections(*publisher).count(nobody) == 1; }));
    const auto passes = recorder->count();
    ASSERT_TRUE(recorder->waitForCount(passes + 2));
    EXPECT_EQ(3u, linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + nobody));

    configure(2, {nobody});
    EXPECT_TRUE(testsupport::WaitFor([&] {
        return linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + nobody) == 6;
    }));
}

TEST_F(EndpointDiscoveryTest, AnExchangeThatShutsDownIsTornDownAtOnceAndConnectedAgainOnceItIsBack) {
    configure(1, {url});
    ASSERT_TRUE(eventuallyConnectedTo({url}));

    exchange.reset();  // tells its subscribers that its directory stopped
    const auto forcing = [](const PassReport& pass) { return !pass.forcedEndpoints.empty(); };
    ASSERT_TRUE(recorder->waitFor([&forcing](const std::vector<PassReport>& passes) {
        return std::any_of(passes.begin(), passes.end(), forcing);
    }));
    const auto passes = recorder->passes();
    EXPECT_EQ((std::set<std::string>{url}), std::find_if(passes.begin(), passes.end(), forcing)->forcedEndpoints);
    EXPECT_EQ(1u, linesStartingWith("0x4 Forcing teardown of exchange endpoint: " + url));

    exchange = std::make_unique<agent::nanomsgtransport::Exchange>();
    exchange->listen(url);
    EXPECT_TRUE(testsupport::WaitFor([this] { return exchange->statistics().connectedContainers == 1; }));
    EXPECT_TRUE(eventuallyConnectedTo({url}));
}

TEST_F(EndpointDiscoveryTest, TheConnectorKeywordFollowsTheRunningAgentOfItsMode) {
    overrideRegistryOf("korvexdrive");
    configure(1, {"korvexConnectorDiscovery"});
    auto agent = runAgent(AgentMode::KorvexDrive);
    ASSERT_TRUE(eventuallyConnectedTo({url}));
    const auto passes = recorder->count();
    ASSERT_TRUE(recorder->waitForCount(passes + 2));
    EXPECT_EQ(1u, linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + url))
        << "the same agent keeps its connection";

    agent.reset();  // the agent has gone
    EXPECT_TRUE(eventuallyConnectedTo({}));
    EXPECT_TRUE(testsupport::WaitFor([this] { return exchange->statistics().connectedContainers == 0; }));
}

TEST_F(EndpointDiscoveryTest, TheServiceHostsExchangeIsOfferedToTheProcessButNotTakenByThePublisherItself) {
    overrideRegistryOf("desktopservices");
    configure(1, {"norbridgeServiceHostDiscovery"});
    auto agent = runAgent(AgentMode::DesktopServices);
    ASSERT_TRUE(eventuallyConnectedTo({url}));
    ASSERT_TRUE(testsupport::WaitFor([this] { return bridges().size() == 1; }));

    auto bridge = context.GetService(bridges().front());
    ASSERT_NE(nullptr, bridge);
    {
        const auto client = bridge->getFrameworkDiscoveryService(1);
        EXPECT_THAT(client->queryDirectoryForServiceUUIDs("directory"), ::testing::SizeIs(1))
            << "a client on the service host's exchange";
    }
    bridge.reset();
    EXPECT_FALSE(Access::hasInProcess(*publisher)) << "its own bridge is not the publisher's in-process exchange";

    agent.reset();
    EXPECT_TRUE(eventuallyConnectedTo({}));
    EXPECT_TRUE(testsupport::WaitFor([this] { return bridges().empty(); }));
}

}  // namespace
}  // namespace publishertest
