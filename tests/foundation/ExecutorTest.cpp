// The executor's task groups and stop tokens; and what all three ways of running work do
// with work that throws and with misuse.

#include "foundation/concurrent/threadpool/ConcurrencyLimitedExecutor.h"
#include "foundation/concurrent/threadpool/Executor.h"
#include "foundation/log/CaptureSink.h"

#include "ConcurrencyTestSupport.h"
#include "support/Barrier.h"
#include "support/Thrown.h"
#include "support/WaitFor.h"

#include <boost/uuid/random_generator.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <string>

namespace tp = foundation::concurrent::threadpool;
using namespace foundation::testing;
using testsupport::RunConcurrently;
using testsupport::WaitFor;
using testsupport::ThrownText;
using Work = std::function<void()>;

namespace {

boost::uuids::uuid newGroup() {
    static boost::uuids::random_generator generate;
    return generate();
}

// Work posted while the one-thread pool is held cannot have started: high-priority items
// go first, and shutDown requests a stop on every queued item, which still runs.
TEST(ExecutorTest, ShutDownWithQueuedWorkRunsEachItemHighPriorityFirstWithStopRequested) {
    auto pool = std::make_shared<tp::ThreadPool>(1);
    tp::Executor executor(pool);
    Gate gate, held;
    pool->post([&] {
        held.open();
        gate.wait();
    });
    ASSERT_TRUE(held.wait());
    std::mutex orderMutex;
    std::vector<std::string> order;
    std::vector<std::shared_ptr<tp::WorkHandle>> handles;
    for (const char* name : {"normal 1", "high 1", "normal 2", "high 2"}) {
        handles.push_back(executor.postWork(newGroup(), [&, name](tp::stop_token token) {
            std::lock_guard<std::mutex> lock(orderMutex);
            order.push_back(name + std::string(token.stop_requested() ? " stopped" : ""));
        }, name[0] == 'h'));
    }
    std::thread stopper([&] { executor.shutDown(); });
    for (const auto& handle : handles) {  // shutDown requests the stops before it waits
        EXPECT_TRUE(WaitFor([token = handle->getStopToken()] { return token.stop_requested(); }));
        EXPECT_FALSE(handle->isFinished());
    }
    gate.open();
    stopper.join();
    EXPECT_EQ(order, (std::vector<std::string>{"high 1 stopped", "high 2 stopped", "normal 1 stopped",
                                               "normal 2 stopped"}));
    EXPECT_TRUE(std::all_of(handles.begin(), handles.end(), [](const auto& h) { return h->isFinished(); }));
    EXPECT_EQ(executor.pendingCount(), 0u);
    EXPECT_FALSE(pool->isShutDown()) << "a shared pool is left running";
}

// Each thread's group wait returns once its own items ran, while another group is held.
TEST(ExecutorTest, ConcurrentGroupWaitsWaitOnlyForTheirOwnGroups) {
    tp::Executor executor;
    const auto slow = newGroup();
    Gate gate;
    std::atomic<bool> slowFinished{false};
    executor.postWork(slow, [&](tp::stop_token) { slowFinished = gate.wait(); }, false);
    std::vector<std::atomic<int>> ran(4);
    RunConcurrently(4, [&](int t) {
        const auto group = newGroup();
        for (int i = 0; i < 100; ++i) {
            executor.postWork(group, [&, t](tp::stop_token) { ++ran[t]; }, i % 7 == 0);
        }
        executor.waitForTaskGroups({group, newGroup()});
        EXPECT_EQ(ran[t].load(), 100);
    });
    EXPECT_FALSE(slowFinished.load());
    std::thread opener([&] { gate.open(); });
    executor.waitForTaskGroups({slow});
    EXPECT_TRUE(slowFinished.load());
    opener.join();
    EXPECT_EQ(executor.pendingCount(), 0u);
}

TEST(ExecutorTest, WaitingUnderTheSharedLockDoesNotDeadlockAgainstShutDown) {
    tp::Executor executor;
    const auto group = newGroup();
    Counter started, waiting;
    auto handle = executor.postWork(group, [&](tp::stop_token token) {
        started.open();
        WaitFor([&] { return token.stop_requested(); });
    }, false);
    ASSERT_TRUE(started.wait());
    std::thread waiter([&] {
        std::shared_lock<std::shared_mutex> lock(executor.shutdownMutex());
        waiting.open();
        if (!executor.isShutDown()) {
            executor.waitForTaskGroups({group});
        }
    });
    ASSERT_TRUE(waiting.wait());
    executor.shutDown();  // stops the task, which frees the waiter, which frees the lock
    waiter.join();
    EXPECT_TRUE(handle->isFinished());
}

TEST(ExecutorTest, TaskMayWaitForAnotherGroupAndShutDownTheExecutor) {
    auto executor = std::make_shared<tp::Executor>();
    const auto other = newGroup();
    std::atomic<int> otherRuns{0};
    Counter done;
    executor->postWork(newGroup(), [&, executor](tp::stop_token) {
        executor->postWork(other, [&](tp::stop_token) { ++otherRuns; }, true);
        executor->waitForTaskGroups({other});
        executor->shutDown();  // waits for everything but this task
        done.increment();
    }, false);
    ASSERT_TRUE(done.wait());
    EXPECT_EQ(otherRuns.load(), 1);
}

// Each row posts two items that throw, then one that must still run; the drain returns
// only once the throwing items are accounted for (for the executor: their handles finished).
TEST(WorkFailureTest, ThrowingWorkIsLoggedAndTheWorkAfterItRuns) {
    tp::ThreadPool pool(1), shared(1);
    tp::Executor executor;
    tp::ConcurrencyLimitedExecutor facade(shared, 1);
    const auto group = newGroup();
    struct Row { const char* name; std::function<void(Work)> post; Work drain; };
    const Row rows[] = {
        {"thread pool", [&](Work w) { pool.post(w); }, [] {}},
        {"executor", [&](Work w) { executor.postWork(group, [w](tp::stop_token) { w(); }, false); },
         [&] { executor.waitForTaskGroups({group}); }},
        {"facade", [&](Work w) { facade.postWork(w); }, [&] { facade.wait(); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto capture = std::make_shared<foundation::log::capture_sink>("foundation::concurrent::threadpool");
        foundation::log::addSink(capture);
        Counter after;
        row.post([&] { throw std::runtime_error(std::string("boom in ") + row.name); });
        row.post([] { throw 42; });
        row.post([&] { after.increment(); });
        row.drain();
        EXPECT_TRUE(after.wait());
        EXPECT_TRUE(capture->waitForCount(
            [](const auto& r) { return r.text == "A thread pool task threw an exception" && r.severity == 0x100; },
            2, deadline()));
        EXPECT_TRUE(capture->contains(std::string("Exception caught: boom in ") + row.name));
        EXPECT_TRUE(capture->contains("Exception caught: unknown exception"));
        foundation::log::removeSink(capture);
    }
}

// A wait that would wait for itself is refused on the worker, where the text is kept.
TEST(WorkFailureTest, MisuseIsRefusedWithItsReason) {
    tp::ThreadPool pool;
    tp::Executor executor;
    tp::ConcurrencyLimitedExecutor facade(pool, 2), other(pool, 1);
    const auto group = newGroup();
    std::string ownGroup, ownFacade;
    executor.postWork(group, [&](tp::stop_token) {
        ownGroup = ThrownText<std::logic_error>([&] { executor.waitForTaskGroups({group}); });
    }, false)->wait();
    EXPECT_EQ(ownGroup, "Executor::waitForTaskGroups called from a task of a group it waits for");
    facade.postWork([&] {
        other.wait();  // another facade's wait is fine
        ownFacade = ThrownText<std::logic_error>([&] { facade.wait(); });
    });
    facade.wait();
    EXPECT_EQ(ownFacade, "ConcurrencyLimitedExecutor::wait called from one of its own work items");
    pool.shutDown();
    EXPECT_EQ(ThrownText<std::runtime_error>([&] { facade.postWork([] {}); }), "Thread pool is shut down");
    EXPECT_EQ(facade.pendingCount(), 0u);
    facade.wait();  // nothing was left queued to wait for
}

}  // namespace
