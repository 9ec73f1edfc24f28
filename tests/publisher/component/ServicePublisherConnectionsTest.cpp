// Connections to exchanges: their tasks on the shared pool, their teardown by the work thread and
// by Deactivate, and the bridge that offers the service host's exchange to the process, against
// real exchanges and the real executor.

#include "ServicePublisherFixture.h"

#include "agent/control/AgentRegistration.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"

#include "foundation/concurrent/threadpool/Executor.h"
#include "foundation/text/Utf.h"

#include <unistd.h>

#include <atomic>
#include <future>
#include <map>

namespace publishertest {
namespace {

class ConnectionsTest : public ServicePublisherFixture {
protected:
    inline static int tests = 0;
    agent::nanomsgtransport::Exchange exchange;
    const std::string url = exchange.listen("inproc://publisher-connections-test-" + std::to_string(tests++));
};

// The directory of another connection stops while Deactivate tears down an endpoint queued for
// forced teardown. The set of those endpoints used to be walked without the work lock while the
// stop inserted into it, which the thread sanitizer reports.
TEST_F(ConnectionsTest, DeactivateTearsDownForcedEndpointsFirstAndADirectoryThatStopsMeanwhileWithTheRest) {
    Access::connect(*publisher, url);
    std::map<std::string, std::vector<ForceCleanup>> calls;
    // Both sort before url, so that the walk goes on past the insertion.
    Access::addConnection(*publisher, "inproc://forced", fakeConnection([&](ForceCleanup force) {
        calls["forced"].push_back(force);
        if (force == ForceCleanup::Yes) {
            exchange.close();
            EXPECT_TRUE(eventuallyLogged("0x4 Service stopped notification for directory on endpoint " + url));
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
    EXPECT_EQ(1u, linesStartingWith("0x4 Cleaning up Agent Connection for exchange endpoint: " + url));
    EXPECT_THAT(Access::forcedTeardowns(*publisher), IsEmpty());
}

TEST_F(ConnectionsTest, TheThirdFailedDirectoryQueryInARowTearsItsConnectionDownAndASuccessfulOneStartsTheCountAgain) {
    const std::string broken = "inproc://publisher-connections-test-broken";  // its directory cannot be asked
    std::vector<ForceCleanup> cleanups;
    Access::connect(*publisher, url);
    Access::addConnection(*publisher, broken, fakeConnection([&cleanups](ForceCleanup f) { cleanups.push_back(f); }));
    Access::setQueryFailures(*publisher, url, 2);
    using Failures = std::map<std::string, unsigned int>;
    for (unsigned int pass = 1; pass <= 3; ++pass) {
        EXPECT_TRUE(Access::publishInvokables(*publisher)) << "a failed query asks for the next pass at once";
        // The working directory's count is gone at once; the broken one's goes with its connection.
        EXPECT_EQ((pass < 3 ? Failures{{broken, pass}} : Failures{}), Access::queryFailures(*publisher)) << pass;
        EXPECT_EQ(pass < 3 ? 0u : 2u, cleanups.size()) << pass;
    }
    EXPECT_EQ((std::vector<ForceCleanup>{ForceCleanup::Yes, ForceCleanup::No}), cleanups);
    EXPECT_FALSE(Access::publishInvokables(*publisher)) << "the broken connection has gone";
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
    publisher->Updated(kPid, configuration(1, {"norbridgeServiceHostDiscovery"}));
    ASSERT_TRUE(testsupport::WaitFor([&] { return bridges().size() == 1; }, kDeadline));
    // The user keeps a client, not the bridge.
    const auto held = context.GetService(bridges().front())->getFrameworkDiscoveryService(1);
    EXPECT_THAT(held->queryDirectoryForServiceUUIDs("directory"), ::testing::SizeIs(1))
        << "a client on the service host's exchange";
    EXPECT_FALSE(Access::hasInProcess(*publisher)) << "its own bridge is not the publisher's in-process exchange";

    // It used to stay behind, its contexts empty, and a new activation added a second one. The
    // client held on used to reach into the connection's freed container.
    deactivate();
    EXPECT_THAT(bridges(), IsEmpty());
    EXPECT_THAT([&] { held->queryDirectoryForServiceUUIDs("directory"); },
                ::testing::ThrowsMessage<std::runtime_error>(::testing::StartsWith("Directory service request failed: ")));
    activate();
    ASSERT_TRUE(testsupport::WaitFor([&] { return bridges().size() == 1; }, kDeadline));
    ASSERT_TRUE(waitForMorePasses(2));
    EXPECT_EQ(1u, bridges().size());

    agent.reset();  // the agent has gone
    EXPECT_TRUE(testsupport::WaitFor([&] { return bridges().empty(); }, kDeadline));
}

TEST_F(ConnectionsTest, AnEndpointGetsThreeTriesUntilItsConfigurationChangesAndAShutDownPoolsRefusalIsCaught) {
    const std::string nobody = "inproc://publisher-work-thread-test-nobody";
    const std::string creating = "0x4 Creating new Agent Connection for exchange endpoint: " + nobody;
    const std::string failed = "0x100 Failed to create AgentConnection for exchange endpoint: " + nobody;
    activate();
    publisher->Updated(kPid, configuration(1, {nobody}));
    ASSERT_TRUE(testsupport::WaitFor([&] { return !Access::failed(*publisher).empty(); }, kDeadline));
    ASSERT_TRUE(waitForMorePasses(2));
    EXPECT_EQ(3u, linesStartingWith(creating));
    EXPECT_EQ(3u, linesStartingWith(failed));

    // A changed configuration gives it a new chance; a pool that has been shut down refuses the
    // task, which used to end the process. The endpoint is neither pending nor failed for good then.
    threadpoolProvider->shutDown();
    capture->clear();
    publisher->Updated(kPid, configuration(2, {nobody}));
    ASSERT_TRUE(eventuallyLogged("0x10 Exception caught: Executor is shut down"));
    deactivate();  // its last pass is refused as well, and it does not wait on the pool
    EXPECT_EQ(0u, linesStartingWith(creating));
    EXPECT_FALSE(Access::pending(*publisher, nobody));
    EXPECT_THAT(Access::failed(*publisher), IsEmpty()) << "a live pool would try it again";
}

TEST_F(ConnectionsTest, DeactivateWaitsForTheComponentsConnectionTasksButNotForOtherTasksOfTheSharedPool) {
    Access::connect(*publisher, url);
    publisher->Updated(kPid, configuration(1, {url}));  // kept by every pass
    activate();
    // Another component's task that ends only after Deactivate has returned: waiting for it would
    // hang the test until its timeout.
    std::promise<void> releaseOther;
    auto other = threadpoolProvider->getExecutor()->postWork(
        boost::uuids::uuid{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}},
        [released = releaseOther.get_future().share()](auto) { released.wait(); }, false);
    // This component's task ends after the last pass, which Deactivate runs before its wait, and
    // looks a while for the teardown of the connection, which Deactivate leaves until after it.
    std::atomic<bool> tornDownFirst{true};
    threadpoolProvider->getExecutor()->postWork(Access::connectionTaskGroup(*publisher), [&](auto) {
        waitForPasses([](const Passes& passes) { return !passes.empty() && passes.back().stopSeen; });
        tornDownFirst = testsupport::WaitFor([&] { return linesStartingWith("0x4 Cleaning up Agent") > 0; },
                                             std::chrono::milliseconds(200));
    }, false);
    deactivate();
    EXPECT_FALSE(tornDownFirst);
    EXPECT_FALSE(other->isFinished());
    releaseOther.set_value();
    other->wait();
}

}  // namespace
}  // namespace publishertest
