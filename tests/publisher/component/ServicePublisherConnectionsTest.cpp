// Connections to exchange endpoints: made at once or as pool tasks with three attempts, and
// torn down in order or by force, against a real exchange and the real executor.

#include "ServicePublisherFixture.h"

#include "support/Barrier.h"
#include "support/WaitFor.h"

#include "agent/directory/DirectoryCore.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

#include "foundation/concurrent/threadpool/Executor.h"
#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <boost/uuid/random_generator.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using Access = ServicePublisherTestAccess;
using AgentConnection = ServicePublisher::AgentConnection;
using ForceCleanup = ServicePublisher::ForceCleanup;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string kNobodyListens = "inproc://publisher-connections-test-nobody";

class ConnectionsTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        static std::atomic<int> counter{0};
        url = exchange.listen("inproc://publisher-connections-test-" + std::to_string(counter++));
    }

    std::size_t containersOnTheExchange() const { return exchange.statistics().connectedContainers; }

    // Deactivate waits for the component's connection tasks; a publisher never activated
    // must be waited for here, before it goes.
    void waitForConnectionTasks(ServicePublisher& target,
                                agent::spf::threadpoolprovider::ThreadPoolProvider& provider) const {
        provider.getExecutor()->waitForTaskGroups({Access::connectionTaskGroup(target)});
    }

    bool eventuallyLogged(const std::string& prefix) const {
        return testsupport::WaitFor([&] { return linesStartingWith(prefix) > 0; });
    }

    // A connection record whose cleanup only says how it was called.
    static AgentConnection recordingConnection(std::shared_ptr<std::vector<ForceCleanup>> calls) {
        return AgentConnection([](unsigned int) { return agent::core::serviceutils::Context(); },
                               [calls](ForceCleanup force) { calls->push_back(force); }, nullptr, {});
    }

    agent::nanomsgtransport::Exchange exchange;
    std::string url;
};

TEST_F(ConnectionsTest, AConnectionMakesContextsWatchesItsDirectoryAndGoesInOrder) {
    auto connection = Access::createNewAgentConnection(*publisher, url);
    ASSERT_TRUE(connection);
    EXPECT_THAT(logLines(), ::testing::Contains("0x4 Creating new Agent Connection for exchange endpoint: " + url));
    EXPECT_FALSE(connection->callbackRegistrationId.is_nil());
    ASSERT_TRUE(connection->directoryClient);
    EXPECT_EQ(1u, containersOnTheExchange());
    {
        const auto first = connection->contextFactory(7);
        const auto second = connection->contextFactory(1);
        EXPECT_TRUE(first.isValid());
        EXPECT_NE(nullptr, first.getTransport());
        EXPECT_EQ(first.getNodeID(), second.getNodeID()) << "one container";
        EXPECT_NE(first.getServiceInstance(), second.getServiceInstance());
    }
    // The subscription reports what runs there, the directory first of all.
    EXPECT_TRUE(eventuallyLogged("0x4 Service started notification for directory on endpoint " + url));
    agent::directoryinterfaces::ServiceInstanceInfo info;
    info.name = "Newcomer";
    info.instance = boost::uuids::random_generator()();
    exchange.directory()->registerInstance(info);
    EXPECT_TRUE(eventuallyLogged("0x4 Service started notification for Newcomer on endpoint " + url));

    Access::cleanUpAgentConnection(*publisher, url, *connection, ForceCleanup::No);
    EXPECT_THAT(logLines(), ::testing::Contains("0x4 Cleaning up Agent Connection for exchange endpoint: " + url));
    EXPECT_FALSE(connection->directoryClient);
    EXPECT_FALSE(connection->contextFactory(1).isValid()) << "no contexts after cleanup";
    EXPECT_TRUE(testsupport::WaitFor([this] { return containersOnTheExchange() == 0; }));
    // The container is gone: further cleanups of either kind do nothing.
    connection->cleanup(ForceCleanup::Yes);
    connection->cleanup(ForceCleanup::No);
}

TEST_F(ConnectionsTest, AForcedTeardownCutsFirstAndStillEndsInOrderAnOrderlyOneOnlyEndsInOrder) {
    auto forcedCalls = std::make_shared<std::vector<ForceCleanup>>();
    auto orderlyCalls = std::make_shared<std::vector<ForceCleanup>>();
    Access::addConnection(*publisher, "tcp://forced:1", recordingConnection(forcedCalls));
    Access::addConnection(*publisher, "tcp://orderly:1", recordingConnection(orderlyCalls));

    Access::cleanUpAgentConnection(*publisher, "tcp://forced:1", ForceCleanup::Yes);
    Access::cleanUpAgentConnection(*publisher, "tcp://orderly:1", ForceCleanup::No);
    EXPECT_THAT(*forcedCalls, ElementsAre(ForceCleanup::Yes, ForceCleanup::No));
    EXPECT_THAT(*orderlyCalls, ElementsAre(ForceCleanup::No));
    EXPECT_THAT(Access::connectedEndpoints(*publisher), IsEmpty());

    // Unknown endpoints and an empty map: nothing happens, nothing is logged.
    capture->clear();
    Access::cleanUpAgentConnection(*publisher, "tcp://unknown:1", ForceCleanup::Yes);
    Access::cleanUpAllAgentConnections(*publisher);
    EXPECT_THAT(logLines(), IsEmpty());

    // All of them: in order of endpoint, each in order.
    auto b = std::make_shared<std::vector<ForceCleanup>>();
    auto a = std::make_shared<std::vector<ForceCleanup>>();
    Access::addConnection(*publisher, "tcp://b:1", recordingConnection(b));
    Access::addConnection(*publisher, "tcp://a:1", recordingConnection(a));
    Access::cleanUpAllAgentConnections(*publisher);
    EXPECT_THAT(*a, ElementsAre(ForceCleanup::No));
    EXPECT_THAT(*b, ElementsAre(ForceCleanup::No));
    EXPECT_THAT(logLines(), ElementsAre("0x4 Cleaning up Agent Connection for exchange endpoint: tcp://a:1",
                                        "0x4 Cleaning up Agent Connection for exchange endpoint: tcp://b:1"));
    EXPECT_THAT(Access::connectedEndpoints(*publisher), IsEmpty());
}

TEST_F(ConnectionsTest, AnEndpointThatNeverAcceptsIsTriedThreeTimesThenRecordedAsFailed) {
    Access::createNewAgentConnectionAsync(*publisher, kNobodyListens);
    waitForConnectionTasks(*publisher, *threadpoolProvider);
    EXPECT_EQ((std::set<std::string>{kNobodyListens}), Access::failedAgentConnections(*publisher));
    EXPECT_THAT(Access::pendingConnections(*publisher), IsEmpty());
    EXPECT_THAT(Access::connectedEndpoints(*publisher), IsEmpty());
    EXPECT_EQ(3u, linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + kNobodyListens));
    EXPECT_EQ(3u, linesStartingWith("0x100 Failed to create AgentConnection for exchange endpoint: " + kNobodyListens));
    EXPECT_EQ(3u, linesStartingWith("0x10 Exception caught: "));
}

TEST_F(ConnectionsTest, TwoCreationsForOneEndpointKeepTheFirstConnectionAndEndTheSecondInOrder) {
    Access::createNewAgentConnectionAsync(*publisher, url);
    Access::createNewAgentConnectionAsync(*publisher, url);
    waitForConnectionTasks(*publisher, *threadpoolProvider);
    EXPECT_THAT(Access::pendingConnections(*publisher), IsEmpty());
    EXPECT_EQ(1u, linesStartingWith("0x4 Cleaning up"));
    EXPECT_EQ((std::set<std::string>{url}), Access::connectedEndpoints(*publisher));
    EXPECT_EQ(2u, linesStartingWith("0x4 Creating new Agent Connection for exchange endpoint: " + url));
    EXPECT_TRUE(testsupport::WaitFor([this] { return containersOnTheExchange() == 1; }));
    EXPECT_THAT(Access::failedAgentConnections(*publisher), IsEmpty());
    Access::cleanUpAllAgentConnections(*publisher);
}

// A thread-pool provider with a single thread, so that a test decides when a task runs.
class OneThreadProvider final : public agent::spf::threadpoolprovider::ThreadPoolProvider {
public:
    std::shared_ptr<foundation::concurrent::threadpool::Executor> getExecutor() const override { return executor; }

    std::shared_ptr<foundation::concurrent::threadpool::Executor> executor =
        std::make_shared<foundation::concurrent::threadpool::Executor>(
            std::make_shared<foundation::concurrent::threadpool::ThreadPool>(1));
};

TEST_F(ConnectionsTest, AStopRequestedBeforeTheFirstAttemptEndsTheTaskWithNoAttemptAndNoFailure) {
    auto provider = std::make_shared<OneThreadProvider>();
    auto held = std::make_shared<ServicePublisher>(invokablePublisher, catalogue, provider);
    testsupport::Barrier gate(2);
    provider->executor->postWork(
        boost::uuids::random_generator()(), [&gate](foundation::concurrent::threadpool::stop_token) { gate.ArriveAndWait(); },
        false);

    Access::createNewAgentConnectionAsync(*held, kNobodyListens);
    Access::stopPendingConnection(*held, kNobodyListens);
    gate.ArriveAndWait();
    waitForConnectionTasks(*held, *provider);
    EXPECT_THAT(Access::pendingConnections(*held), IsEmpty());
    EXPECT_THAT(Access::failedAgentConnections(*held), IsEmpty());
    EXPECT_EQ(0u, linesStartingWith("0x4 Creating new Agent Connection"));
    provider->executor->shutDown();
}

}  // namespace
}  // namespace publishertest
