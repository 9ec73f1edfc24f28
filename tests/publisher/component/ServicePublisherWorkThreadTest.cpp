// The work thread's pace and Deactivate, observed through the order and kind of its passes. Where
// a pace is compared, another publisher's fast passes serve as the clock.

#include "ServicePublisherFixture.h"

#include "foundation/concurrent/threadpool/Executor.h"

#include <atomic>
#include <future>
#include <limits>

namespace publishertest {
namespace {

using WorkThreadTest = ServicePublisherFixture;
using Match = std::function<bool(const PassReport&)>;

// The passes of `publisher`; with `slow`, only those that scheduled the long interval.
Match of(const std::shared_ptr<ServicePublisher>& publisher, bool slow = false) {
    return [p = publisher.get(), slow](const PassReport& pass) { return pass.publisher == p && !(slow && pass.fastPace); };
}

// The index of the first matching pass at or after `from`; passes.size() when there is none.
std::size_t find(const Passes& passes, const Match& matches, std::size_t from = 0) {
    from = std::min(from, passes.size());
    return static_cast<std::size_t>(std::find_if(passes.begin() + from, passes.end(), matches) - passes.begin());
}
std::size_t count(const Passes& passes, const Match& matches, std::size_t from = 0,
                  std::size_t to = std::numeric_limits<std::size_t>::max()) {
    const auto end = passes.begin() + std::min(to, passes.size());
    return static_cast<std::size_t>(std::count_if(passes.begin() + std::min(from, passes.size()), end, matches));
}

TEST_F(WorkThreadTest, QuietPassesComeAtTheShortIntervalThroughTheFastPhaseThenAtTheLongOneAndDeactivateWakesAtOnce) {
    const auto idle = another();
    const auto clock = another();
    // Each component waits only for its own connection tasks, so each draws its own task group.
    EXPECT_NE(Access::connectionTaskGroup(*idle), Access::connectionTaskGroup(*clock));
    activate();
    idle->Activate(componentContext);
    ASSERT_TRUE(waitForPasses(
        [&](const Passes& passes) {
            return find(passes, of(publisher, true)) < passes.size() && find(passes, of(idle, true)) < passes.size();
        },
        std::chrono::seconds(30)));
    clock->Activate(componentContext);
    // `idle` now waits out its long interval: unwoken, its last pass would follow some ten of the clock's.
    const auto beforeDeactivate = recorded().size();
    idle->Deactivate(componentContext);
    const auto switched = find(recorded(), of(publisher, true));
    ASSERT_TRUE(waitForPasses(
        [&](const Passes& passes) { return find(passes, of(publisher), switched + 1) < passes.size(); }));
    clock->Deactivate(componentContext);
    const auto passes = recorded();
    const auto next = find(passes, of(publisher), switched + 1);

    // Activation woke the thread once; every later pass came because its time had come.
    EXPECT_EQ(1u,
              count(passes, [&](const PassReport& pass) { return of(publisher)(pass) && pass.woken; }, 0, next + 1));
    // Five seconds at 500 ms: the first pass and nine quiet ones, fewer on a busy machine; a
    // short interval of a second would allow five.
    const auto fast = count(passes, [&](const PassReport& pass) { return of(publisher)(pass) && pass.fastPace; });
    EXPECT_GE(fast, 6u);
    EXPECT_LE(fast, 10u);
    // One long interval spans about ten of the clock's passes; at 500 ms it would span one.
    EXPECT_GE(count(passes, of(clock), switched, next), 6u);
    // Deactivate woke `idle` for exactly one more pass, which saw the stop.
    const auto last = find(passes, of(idle), beforeDeactivate);
    ASSERT_LT(last, passes.size());
    EXPECT_TRUE(passes[last].stopSeen);
    EXPECT_EQ(1u, count(passes, of(idle), beforeDeactivate));
    EXPECT_LE(count(passes, of(clock), beforeDeactivate, last), 2u);
}

TEST_F(WorkThreadTest, DeactivateWaitsForTheComponentsConnectionTasksButNotForOtherTasksOfTheSharedPool) {
    activate();
    auto executor = threadpoolProvider->getExecutor();
    // Another component's task that ends only after Deactivate has returned: waiting for it would
    // hang the test until its timeout.
    std::promise<void> releaseOther;
    auto otherReleased = releaseOther.get_future().share();
    const boost::uuids::uuid otherGroup{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
    auto other = executor->postWork(otherGroup, [otherReleased](auto) { otherReleased.wait(); }, false);
    // This component's task ends only after the last pass, which Deactivate runs before its wait.
    std::atomic<bool> ownFinished{false};
    auto own = executor->postWork(Access::connectionTaskGroup(*publisher), [this, &ownFinished](auto) {
        waitForPasses([](const Passes& passes) { return !passes.empty() && passes.back().stopSeen; });
        ownFinished = true;
    }, false);

    deactivate();
    EXPECT_TRUE(ownFinished);
    EXPECT_FALSE(other->isFinished());
    releaseOther.set_value();
    other->wait();
    own->wait();
}

// Before the refused post was caught, that pass ended the process.
TEST_F(WorkThreadTest, APassOnAPoolThatHasBeenShutDownLogsTheRefusedConnectionAndLeavesTheEndpointUnpending) {
    activate();
    threadpoolProvider->shutDown();
    const std::string refused = "0x100 Failed to create AgentConnection for exchange endpoint: inproc://nobody";
    publisher->Updated(kPid, configuration(1, {"inproc://nobody"}, {}));
    ASSERT_TRUE(eventuallyLogged(refused));
    deactivate();  // its last pass is refused as well, and it does not wait on the pool

    const auto lines = logLines();
    const auto first = std::find(lines.begin(), lines.end(), refused);
    ASSERT_LT(first + 1, lines.end());
    EXPECT_EQ("0x10 Exception caught: Executor is shut down", *(first + 1));
    EXPECT_TRUE(Access::pendingConnections(*publisher).empty());
    EXPECT_TRUE(Access::failedAgentConnections(*publisher).empty()) << "a live pool would try it again";
}

}  // namespace
}  // namespace publishertest
