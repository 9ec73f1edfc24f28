// Connections to exchanges (made at once or as pool tasks with three attempts, torn down in order
// or by force, the bridge offering the service host's exchange to the process) and the
// publisher's side of their directories, against real exchanges and the real executor.

#include "ServicePublisherFixture.h"

#include "support/ContainerSupport.h"

#include "agent/control/AgentRegistration.h"
#include "agent/directory/DirectoryCore.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"

#include "foundation/text/Utf.h"

#include <boost/property_tree/ptree.hpp>

#include <unistd.h>

#include <atomic>
#include <map>

namespace publishertest {
namespace {

using ForceCleanup = ServicePublisher::ForceCleanup;
using ::testing::UnorderedElementsAre;

const std::string kNobodyListens = "inproc://publisher-connections-test-nobody";
const std::map<std::string, std::string> kReplaceOld = {
    {"spf::legacyservicepublisher::replaceMatchingKey", "generation"},
    {"spf::legacyservicepublisher::replaceMatchingValue", "old"}};

class ConnectionsTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        static std::atomic<int> counter{0};
        url = exchange.listen("inproc://publisher-connections-test-" + std::to_string(counter++));
    }

    bool eventuallyConnectedTo(const std::set<std::string>& endpoints) {
        return testsupport::WaitFor([&] { return Access::connectedEndpoints(*publisher) == endpoints; });
    }
    std::size_t creations(const std::string& endpoint) const {
        return linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + endpoint);
    }
    // A connection record whose cleanup only calls `cleanup`.
    static Access::AgentConnection fakeConnection(std::function<void(ForceCleanup)> cleanup) {
        return {[](unsigned int) { return agent::core::serviceutils::Context(); }, std::move(cleanup), nullptr, {}};
    }

    // Enters an instance into the exchange's directory, as its service would.
    boost::uuids::uuid enter(const std::string& name, std::map<std::string, std::string> metadata = {}) {
        agent::directoryinterfaces::ServiceInstanceInfo info;
        info.name = name;
        info.instance = testsupport::randomId();
        info.metadata = std::move(metadata);
        exchange.directory()->registerInstance(info);
        return info.instance;
    }
    std::set<boost::uuids::uuid> listed(const std::string& name) const {
        const auto ids = exchange.directory()->queryByName(name);
        return std::set<boost::uuids::uuid>(ids.begin(), ids.end());
    }
    // Through the directory client of a connection to the exchange, which Deactivate ends.
    void removeDuplicates(const std::string& name, const std::map<std::string, std::string>& marks,
                          unsigned int major) {
        boost::property_tree::ptree metadata;
        for (const auto& [key, value] : marks) {
            metadata.put(key, value);  // the keys hold no '.', the path separator
        }
        Access::removeExpiredDuplicates(*publisher, directoryClient(), name, metadata, major);
    }
    agent::directory::DirectoryServiceClient& directoryClient() {
        if (Access::connectedEndpoints(*publisher).empty()) {
            Access::addConnection(*publisher, url, *Access::createNewAgentConnection(*publisher, url));
        }
        return Access::directoryClientOf(*publisher, url);
    }

    agent::nanomsgtransport::Exchange exchange;
    std::string url;
};

TEST_F(ConnectionsTest, AConnectionMakesContextsReportsWhatRunsOnItsExchangeAndGoesInOrder) {
    auto connection = Access::createNewAgentConnection(*publisher, url);
    ASSERT_TRUE(connection);
    EXPECT_EQ(1u, creations(url));
    EXPECT_EQ(1u, exchange.statistics().connectedContainers);
    {
        const auto first = connection->contextFactory(7);
        const auto second = connection->contextFactory(1);
        EXPECT_TRUE(first.isValid());
        EXPECT_NE(nullptr, first.getTransport());
        EXPECT_EQ(first.getNodeID(), second.getNodeID()) << "one container";
        EXPECT_NE(first.getServiceInstance(), second.getServiceInstance());
    }
    // What runs there is reported, the directory itself first, and comes and goes.
    EXPECT_TRUE(eventuallyLogged("0x4 Service started notification for directory on endpoint " + url));
    exchange.directory()->deregisterInstance(enter("Newcomer"));
    EXPECT_TRUE(eventuallyLogged("0x4 Service stopped notification for Newcomer on endpoint " + url));

    Access::cleanUp(*publisher, url, *connection, ForceCleanup::No);
    EXPECT_EQ(1u, linesStartingWith("0x4 Cleaning up Agent Connection for exchange endpoint: " + url));
    EXPECT_FALSE(connection->directoryClient);
    EXPECT_FALSE(connection->contextFactory(1).isValid()) << "no contexts after cleanup";
    EXPECT_TRUE(testsupport::WaitFor([this] { return exchange.statistics().connectedContainers == 0; }));
    connection->cleanup(ForceCleanup::Yes);  // the container is gone: neither kind does anything more
    connection->cleanup(ForceCleanup::No);
}

TEST_F(ConnectionsTest, AnEndpointThatFailedForGoodIsLeftAloneUntilTheConfigurationChanges) {
    activate();
    publisher->Updated(kPid, configuration(1, {kNobodyListens}, {}));
    ASSERT_TRUE(testsupport::WaitFor([&] { return Access::failedAgentConnections(*publisher).size() == 1; }));
    ASSERT_TRUE(waitForMorePasses(2));
    EXPECT_EQ(3u, creations(kNobodyListens));
    EXPECT_EQ(3u, linesStartingWith("0x100 Failed to create AgentConnection for exchange endpoint: " + kNobodyListens));
    EXPECT_THAT(Access::pendingConnections(*publisher), IsEmpty());
    publisher->Updated(kPid, configuration(2, {kNobodyListens}, {}));
    EXPECT_TRUE(testsupport::WaitFor([&] { return creations(kNobodyListens) == 6; }));
}

// The directory of another connection stops while Deactivate tears down an endpoint queued for
// forced teardown. The set of those endpoints used to be walked without the work lock while the
// stop inserted into it, which the thread sanitizer reports.
TEST_F(ConnectionsTest, DeactivateTearsDownForcedEndpointsFirstAndADirectoryThatStopsMeanwhileWithTheRest) {
    agent::nanomsgtransport::Exchange closing;
    const auto closingUrl = closing.listen(url + "-closing");
    auto subscribed = Access::createNewAgentConnection(*publisher, closingUrl);
    ASSERT_TRUE(subscribed);
    Access::addConnection(*publisher, closingUrl, std::move(*subscribed));
    std::map<std::string, std::vector<ForceCleanup>> calls;
    // Both sort before closingUrl, so that the walk goes on past the insertion.
    Access::addConnection(*publisher, "inproc://forced", fakeConnection([&](ForceCleanup force) {
        calls["forced"].push_back(force);
        if (force == ForceCleanup::Yes) {
            closing.close();
            EXPECT_TRUE(eventuallyLogged("0x4 Service stopped notification for directory on endpoint " + closingUrl));
        }
    }));
    Access::addConnection(*publisher, "inproc://orderly",
                          fakeConnection([&](ForceCleanup force) { calls["orderly"].push_back(force); }));
    // Never activated: no pass takes the queue over before Deactivate does.
    Access::queueForcedTeardown(*publisher, "inproc://forced");
    deactivate();

    // A forced teardown cuts first and still ends in order; an orderly one only ends in order.
    EXPECT_THAT(calls["forced"], ElementsAre(ForceCleanup::Yes, ForceCleanup::No));
    EXPECT_THAT(calls["orderly"], ElementsAre(ForceCleanup::No));
    EXPECT_EQ(1u, linesStartingWith("0x4 Cleaning up Agent Connection for exchange endpoint: " + closingUrl));
    EXPECT_THAT(Access::connectedEndpoints(*publisher), IsEmpty());
    EXPECT_THAT(Access::endpointsToForceTeardown(*publisher), IsEmpty());

    // Only the stop of the service named exactly "directory" queues a teardown, started or not.
    for (const std::string name : {"Directory", "directoryService", "directory"}) {
        Access::serviceStopped(*publisher, "tcp://" + name + ":1", name);
    }
    EXPECT_EQ((std::set<std::string>{"tcp://directory:1"}), Access::endpointsToForceTeardown(*publisher));
}

TEST_F(ConnectionsTest, TheServiceHostsExchangeIsOfferedToTheProcessOnceAndWithdrawnByDeactivate) {
    const auto registryRoot = storage / "agents";  // the framework's storage goes with the test
    context.RegisterService<agent::spf::externalprocessdiscovery::UserStorageRootOverride>(
        std::make_shared<agent::spf::externalprocessdiscovery::FixedUserStorageRootOverride>(
            boost::none, foundation::text::toUtf16(registryRoot.string())),
        {{"mode", Any(std::string("desktopservices"))}});
    auto agent = std::make_unique<agent::control::AgentRegistration>(
        registryRoot, agent::control::AgentInfo("agent", url, ::getpid(), agent::control::AgentMode::DesktopServices));
    const auto bridges = [this] {
        return context.GetServiceReferences<agent::spf::inprocessdiscovery::InProcessDiscovery>(
            "(spf::legacyservicepublisher::selfPublished=*)");
    };
    activate();
    publisher->Updated(kPid, configuration(1, {"norbridgeServiceHostDiscovery"}, {}));
    ASSERT_TRUE(eventuallyConnectedTo({url}));
    ASSERT_TRUE(testsupport::WaitFor([&] { return bridges().size() == 1; }));
    {
        const auto bridge = context.GetService(bridges().front());
        EXPECT_THAT(bridge->getFrameworkDiscoveryService(1)->queryDirectoryForServiceUUIDs("directory"),
                    ::testing::SizeIs(1))
            << "a client on the service host's exchange";
    }
    EXPECT_FALSE(Access::hasInProcess(*publisher)) << "its own bridge is not the publisher's in-process exchange";

    // It used to stay behind, its contexts empty, and a new activation added a second one.
    deactivate();
    EXPECT_THAT(bridges(), IsEmpty());
    activate();
    ASSERT_TRUE(testsupport::WaitFor([&] { return bridges().size() == 1; }));
    ASSERT_TRUE(waitForMorePasses(2));
    EXPECT_EQ(1u, bridges().size());

    agent.reset();  // the agent has gone
    EXPECT_TRUE(eventuallyConnectedTo({}));
    EXPECT_TRUE(testsupport::WaitFor([&] { return bridges().empty(); }));
}

// The connection's own notifications are logged too: only the errors count here.
TEST_F(ConnectionsTest, ExpiredDuplicatesCarryTheSameNameMarkAndMajorVersionAndNeedBothReplaceMarks) {
    enter("Store", {{"generation", "old"}, {"spf::servicemajor", "2"}, {"other", "x"}});
    enter("Store", {{"generation", "old"}, {"spf::servicemajor", "2"}});
    const auto otherMajor = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "1"}});
    const auto otherMark = enter("Store", {{"generation", "new"}, {"spf::servicemajor", "2"}});
    const auto unmarked = enter("Store", {{"spf::servicemajor", "2"}});
    const auto otherName = enter("Stores", {{"generation", "old"}, {"spf::servicemajor", "2"}});
    const auto zero = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "0"}});
    removeDuplicates("Store", kReplaceOld, 2);
    EXPECT_THAT(listed("Store"), UnorderedElementsAre(otherMajor, otherMark, unmarked, zero));
    EXPECT_THAT(listed("Stores"), ElementsAre(otherName));
    removeDuplicates("Store", kReplaceOld, 0);  // asked for as "0"
    EXPECT_THAT(listed("Store"), UnorderedElementsAre(otherMajor, otherMark, unmarked));

    removeDuplicates("Store", {{"spf::legacyservicepublisher::replaceMatchingValue", "old"}}, 1);
    removeDuplicates("Store", {}, 1);
    EXPECT_EQ(0u, linesStartingWith("0x100"));
    removeDuplicates("Store", {{"spf::legacyservicepublisher::replaceMatchingKey", "generation"}}, 1);
    EXPECT_EQ(1u, linesStartingWith("0x100"));
    EXPECT_EQ(1u, linesStartingWith("0x100 replaceMatchingKey specified but no value provided"));
    EXPECT_THAT(listed("Store"), UnorderedElementsAre(otherMajor, otherMark, unmarked));
}

TEST_F(ConnectionsTest, AnUnreachableDirectoryIsLoggedAndNothingEscapes) {
    auto& unreachable = directoryClient();
    ASSERT_TRUE(eventuallyLogged("0x4 Service started notification for directory on endpoint " + url));
    exchange.close();
    ASSERT_TRUE(eventuallyLogged("0x4 Service stopped notification for directory on endpoint " + url));
    ASSERT_TRUE(
        testsupport::WaitFor([this] { return !Access::contextOn(*publisher, url).getTransport()->isConnected(); }));
    capture->clear();
    removeDuplicates("Store", kReplaceOld, 1);
    EXPECT_TRUE(Access::registerForCallbacks(*publisher, "ipc:///nowhere/exchange", unreachable).is_nil());
    EXPECT_THAT(logLines(), ElementsAre("0x100 Failed to remove expired services",
                                        StartsWith("0x10 Exception caught: Directory service request failed: "),
                                        "0x100 Failed to register for directory notifications on endpoint "
                                        "ipc:///nowhere/exchange",
                                        StartsWith("0x10 Exception caught: ")));
}

TEST_F(ConnectionsTest, EveryListedInstanceGetsOneFactoryAndTheThirdFailedQueryInARowTearsItsConnectionDown) {
    // A connection whose directory cannot be asked, beside a working one whose count is at two.
    const std::string broken = "inproc://publisher-connections-test-broken";
    std::vector<ForceCleanup> cleanups;
    directoryClient();
    Access::addConnection(*publisher, broken, fakeConnection([&cleanups](ForceCleanup f) { cleanups.push_back(f); }));
    Access::setQueryFailures(*publisher, url, 2);
    agent::directoryinterfaces::ServiceInstanceInfo worker;
    worker.name = "Worker";
    worker.instance = testsupport::randomId();
    worker.version = agent::core::serviceutils::APIVersion(1, 2);
    exchange.directory()->registerInstance(worker);

    for (unsigned int pass = 1; pass <= 3; ++pass) {
        EXPECT_TRUE(Access::publishInvokables(*publisher)) << "pass " << pass;
        const auto failures = Access::queryFailures(*publisher);
        EXPECT_EQ(0u, failures.count(url)) << "a successful query starts the count again";
        EXPECT_EQ(pass < 3 ? std::optional<unsigned int>(pass) : std::nullopt,
                  failures.count(broken) ? std::optional<unsigned int>(failures.at(broken)) : std::nullopt);
        EXPECT_EQ(pass < 3 ? 0u : 2u, cleanups.size()) << "pass " << pass;
    }
    EXPECT_EQ((std::vector<ForceCleanup>{ForceCleanup::Yes, ForceCleanup::No}), cleanups);
    EXPECT_EQ((std::set<std::string>{url}), Access::connectedEndpoints(*publisher));
    EXPECT_FALSE(Access::publishInvokables(*publisher));

    // Listed on every pass, published once; the directory itself never.
    const auto factories = invokablePublisher->getInvokableFactories();
    ASSERT_EQ(1u, factories.size());
    EXPECT_EQ("Worker", factories[0].name);
    EXPECT_EQ(worker.instance, factories[0].uuid);
    EXPECT_EQ(agent::spf::core::APIVersion(1, 2), factories[0].version);
}

}  // namespace
}  // namespace publishertest
