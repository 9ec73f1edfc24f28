// The work thread's lifecycle and pacing, observed through the order and kind of its passes.

#include "ServicePublisherFixture.h"

#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/concurrent/threadpool/Executor.h"
#include "foundation/log/Severity.h"

#include <algorithm>
#include <atomic>
#include <future>

namespace publishertest {
namespace {

using WorkThreadTest = ServicePublisherFixture;

std::size_t countIf(const std::vector<PassReport>& passes, const std::function<bool(const PassReport&)>& matches) {
    return static_cast<std::size_t>(std::count_if(passes.begin(), passes.end(), matches));
}

TEST_F(WorkThreadTest, QuietPassesFollowAtTheShortIntervalUntilTheFastPhaseEndsThenAtTheLongOne) {
    activate();
    // The first pass after the fast phase is the first one to schedule the long interval.
    ASSERT_TRUE(recorder->waitFor(
        [](const std::vector<PassReport>& passes) { return !passes.empty() && !passes.back().fastPace; },
        std::chrono::seconds(30)));
    const auto passes = recorder->passes();

    // Activate asks for the first pass at once.
    EXPECT_TRUE(passes.front().woken);
    EXPECT_FALSE(passes.front().rerun);
    // Nothing woke the thread afterwards: every later pass came because its time had come, and
    // all but the last kept the short interval.
    for (std::size_t i = 1; i < passes.size(); ++i) {
        EXPECT_FALSE(passes[i].woken) << "pass " << i;
        EXPECT_FALSE(passes[i].stopSeen) << "pass " << i;
        EXPECT_EQ(i + 1 < passes.size(), passes[i].fastPace) << "pass " << i;
    }
    // 5 s of passes at least 500 ms apart: at most ten quiet passes before the switch, and at
    // least one (the first pass ran at activation, long before the phase ended).
    EXPECT_GE(passes.size(), 2u);
    EXPECT_LE(passes.size(), 12u);
}

TEST_F(WorkThreadTest, AWakeUpRunsAPassAtOnceAndAStaleUpdateDoesNotWakeTheThread) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));

    publisher->Updated("qz.spf.legacyservicepublisher~demo",
                       configuration(2, {Any(std::string("inprocess"))}, {Any(service("Greeter", "one"))}));
    ASSERT_TRUE(recorder->waitFor([](const std::vector<PassReport>& passes) {
        return countIf(passes, [](const PassReport& pass) { return pass.woken; }) == 2;
    }));

    // Same count: ignored, so the passes that follow are the quiet ones of the pace.
    const auto before = recorder->count();
    publisher->Updated("qz.spf.legacyservicepublisher~demo",
                       configuration(2, {Any(std::string("elsewhere"))}, {Any(service("Greeter", "one"))}));
    ASSERT_TRUE(recorder->waitForCount(before + 2));
    auto passes = recorder->passes();
    EXPECT_EQ(2u, countIf(passes, [](const PassReport& pass) { return pass.woken; }));

    // Removing the configuration wakes it again.
    publisher->Removed("qz.spf.legacyservicepublisher~demo");
    ASSERT_TRUE(recorder->waitFor([](const std::vector<PassReport>& passes) {
        return countIf(passes, [](const PassReport& pass) { return pass.woken; }) == 3;
    }));
    // Removing an unknown one does not.
    publisher->Removed("qz.spf.legacyservicepublisher~unknown");
    const auto afterRemoval = recorder->count();
    ASSERT_TRUE(recorder->waitForCount(afterRemoval + 2));
    passes = recorder->passes();
    EXPECT_EQ(3u, countIf(passes, [](const PassReport& pass) { return pass.woken; }));
}

TEST_F(WorkThreadTest, DeactivateWhileTheThreadWaitsRunsExactlyOneMoreFullPass) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    const auto before = recorder->count();

    deactivate();

    // Deactivate joined the thread: its last pass is recorded and nothing follows.
    const auto passes = recorder->passes();
    ASSERT_EQ(before + 1, passes.size());
    EXPECT_TRUE(passes.back().stopSeen);
    EXPECT_TRUE(passes.back().woken);
    EXPECT_EQ(1u, countIf(passes, [](const PassReport& pass) { return pass.stopSeen; }));
    EXPECT_FALSE(ServicePublisherTestAccess::workThreadJoinable(*publisher));
    EXPECT_FALSE(ServicePublisherTestAccess::bundleContextValid(*publisher));
}

TEST_F(WorkThreadTest, EndpointsQueuedForForcedTeardownAreTornDownOnceInAscendingOrderByTheNextPass) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    ServicePublisherTestAccess::queueForcedTeardown(*publisher, {"tcp://c:1", "inprocess", "tcp://a:1"});
    const auto forces = [](const PassReport& pass) { return !pass.forcedEndpoints.empty(); };
    ASSERT_TRUE(recorder->waitFor(
        [&forces](const std::vector<PassReport>& passes) { return countIf(passes, forces) == 1; }));
    auto passes = recorder->passes();
    const auto forcingPass =
        static_cast<std::size_t>(std::find_if(passes.begin(), passes.end(), forces) - passes.begin());
    ASSERT_TRUE(recorder->waitForCount(forcingPass + 2));

    passes = recorder->passes();
    EXPECT_EQ(1u, countIf(passes, forces));
    EXPECT_TRUE(passes[forcingPass].woken);
    EXPECT_EQ((std::set<std::string>{"inprocess", "tcp://a:1", "tcp://c:1"}), passes[forcingPass].forcedEndpoints);
    EXPECT_TRUE(passes[forcingPass + 1].forcedEndpoints.empty());
    EXPECT_EQ((std::vector<std::string>{"0x4 Forcing teardown of exchange endpoint: inprocess",
                                        "0x4 Forcing teardown of exchange endpoint: tcp://a:1",
                                        "0x4 Forcing teardown of exchange endpoint: tcp://c:1"}),
              logLines());
}

TEST_F(WorkThreadTest, TheWorkThreadKeepsAFunctionTraceOpenForItsWholeLife) {
    agent::spf::legacyservicepublisher::getLogger().setMask(foundation::log::defaultSeverityMask |
                                                             foundation::log::severity::trace);
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    deactivate();
    agent::spf::legacyservicepublisher::getLogger().setMask(foundation::log::defaultSeverityMask);

    std::vector<foundation::log::record> traces;
    for (const auto& record : capture->records()) {
        if (record.severity == foundation::log::severity::trace) {
            traces.push_back(record);
        }
    }
    ASSERT_EQ(2u, traces.size());  // enter and leave
    for (const auto& trace : traces) {
        EXPECT_EQ("void agent::spf::legacyservicepublisher::ServicePublisher::threadProc()", trace.function);
        EXPECT_EQ("src/ServicePublisher", trace.file);
        EXPECT_EQ(891, trace.line);
    }
}

TEST_F(WorkThreadTest, DeactivateWaitsForTheComponentsConnectionTasksButNotForOtherTasksOfTheSharedPool) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    auto executor = threadpoolProvider->getExecutor();

    // Another component's task that only ends after Deactivate has returned: waiting for it
    // would hang the test until its timeout.
    std::promise<void> releaseOther;
    auto otherReleased = releaseOther.get_future().share();
    const boost::uuids::uuid otherGroup{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
    auto other = executor->postWork(otherGroup, [otherReleased](foundation::concurrent::threadpool::stop_token) {
        otherReleased.wait();
    }, false);

    // This component's task ends only after the work thread has run its last pass, which
    // happens inside Deactivate before the wait for the task group.
    std::atomic<bool> ownFinished{false};
    auto recorderCopy = recorder;
    auto own = executor->postWork(
        ServicePublisherTestAccess::connectionTaskGroup(*publisher),
        [recorderCopy, &ownFinished](foundation::concurrent::threadpool::stop_token) {
            recorderCopy->waitFor([](const std::vector<PassReport>& passes) {
                return !passes.empty() && passes.back().stopSeen;
            });
            ownFinished = true;
        },
        false);

    deactivate();
    EXPECT_TRUE(ownFinished);
    EXPECT_FALSE(other->isFinished());
    releaseOther.set_value();
    other->wait();
    own->wait();
}

TEST_F(WorkThreadTest, DeactivateDoesNotWaitOnAPoolThatHasBeenShutDown) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    threadpoolProvider->shutDown();
    deactivate();
    EXPECT_FALSE(ServicePublisherTestAccess::workThreadJoinable(*publisher));
}

TEST_F(WorkThreadTest, AComponentNeverActivatedIsDestroyedWithoutBlockingAndReleasesItsReferences) {
    std::weak_ptr<ServicePublisher::InvokablePublisherType> weakPublisher = invokablePublisher;
    std::weak_ptr<agent::spf::serialisation::SerialisationCatalogue> weakCatalogue = catalogue;
    invokablePublisher.reset();
    catalogue.reset();
    publisher.reset();
    EXPECT_TRUE(weakPublisher.expired());
    EXPECT_TRUE(weakCatalogue.expired());
    EXPECT_TRUE(recorder->passes().empty());
}

TEST_F(WorkThreadTest, TwoComponentsTagTheirConnectionTasksWithDifferentGroups) {
    ServicePublisher second(invokablePublisher, catalogue, threadpoolProvider);
    EXPECT_NE(ServicePublisherTestAccess::connectionTaskGroup(*publisher),
              ServicePublisherTestAccess::connectionTaskGroup(second));
    EXPECT_EQ(boost::uuids::uuid::version_random_number_based,
              ServicePublisherTestAccess::connectionTaskGroup(second).version());
}

}  // namespace
}  // namespace publishertest
