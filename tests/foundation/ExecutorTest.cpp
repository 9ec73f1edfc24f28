#include "foundation/concurrent/threadpool/Executor.h"
#include "foundation/log/CaptureSink.h"

#include "ConcurrencyTestSupport.h"

#include <boost/uuid/random_generator.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tp = foundation::concurrent::threadpool;
using foundation::testing::Barrier;
using foundation::testing::Counter;
using foundation::testing::deadline;
using foundation::testing::Gate;

namespace {

boost::uuids::uuid newGroup() {
    static boost::uuids::random_generator generate;
    return generate();
}

// An executor on a one-thread pool whose thread is held by a gate until release(),
// so that work posted meanwhile is certain not to have started.
class BlockedExecutorTest : public ::testing::Test {
protected:
    void SetUp() override {
        pool_->post([this] {
            blockerRunning_.increment();
            gate_.wait();
        });
        ASSERT_TRUE(blockerRunning_.waitFor(1));
    }
    void release() { gate_.open(); }
    void TearDown() override { gate_.open(); }

    std::shared_ptr<tp::ThreadPool> pool_ = std::make_shared<tp::ThreadPool>(1);
    tp::Executor executor_{pool_};
    Gate gate_;
    Counter blockerRunning_;
};

TEST_F(BlockedExecutorTest, StopRequestedBeforeStartIsVisibleToTheTask) {
    std::atomic<int> sawStop{-1};
    auto handle = executor_.postWork(newGroup(), [&](tp::stop_token token) { sawStop = token.stop_requested(); },
                                     false);
    EXPECT_FALSE(handle->getStopToken().stop_requested());
    handle->requestStop();
    EXPECT_TRUE(handle->getStopToken().stop_requested());
    EXPECT_FALSE(handle->isFinished());
    release();
    handle->wait();
    EXPECT_TRUE(handle->isFinished());
    EXPECT_EQ(sawStop.load(), 1) << "the task still runs, and sees the request";
}

TEST_F(BlockedExecutorTest, HighPriorityWorkRunsAheadOfNormalWorkNotYetStarted) {
    std::mutex orderMutex;
    std::vector<std::string> order;
    auto record = [&](std::string name) {
        return [&, name](tp::stop_token) {
            std::lock_guard<std::mutex> lock(orderMutex);
            order.push_back(name);
        };
    };
    const auto group = newGroup();
    executor_.postWork(group, record("normal 1"), false);
    executor_.postWork(group, record("high 1"), true);
    executor_.postWork(group, record("normal 2"), false);
    executor_.postWork(group, record("high 2"), true);
    release();
    executor_.waitForTaskGroups({group});
    EXPECT_EQ(order, (std::vector<std::string>{"high 1", "high 2", "normal 1", "normal 2"}));
}

TEST_F(BlockedExecutorTest, ShutDownWithQueuedWorkRunsEachItemWithStopRequested) {
    constexpr int kItems = 5;
    std::atomic<int> ranStopped{0};
    std::vector<std::shared_ptr<tp::WorkHandle>> handles;
    for (int i = 0; i < kItems; ++i) {
        handles.push_back(executor_.postWork(
            newGroup(), [&](tp::stop_token token) { ranStopped += token.stop_requested() ? 1 : 0; }, false));
    }
    std::thread stopper([&] { executor_.shutDown(); });
    for (const auto& handle : handles) {  // shutDown requests the stops before it waits
        const auto token = handle->getStopToken();
        const auto until = deadline();
        while (!token.stop_requested() && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
        }
    }
    release();
    stopper.join();
    EXPECT_EQ(ranStopped.load(), kItems);
    for (const auto& handle : handles) {
        EXPECT_TRUE(handle->isFinished());
    }
    EXPECT_EQ(executor_.pendingCount(), 0u);
    EXPECT_FALSE(pool_->isShutDown()) << "a shared pool is left running";
}

TEST(ExecutorTest, GroupWaitWaitsOnlyForItsGroups) {
    tp::Executor executor;
    const auto slow = newGroup();
    const auto fast = newGroup();
    Gate gate;
    std::atomic<bool> slowFinished{false};
    executor.postWork(slow, [&](tp::stop_token) {
        gate.wait();
        slowFinished = true;
    }, false);
    std::atomic<int> fastRuns{0};
    for (int i = 0; i < 10; ++i) {
        executor.postWork(fast, [&](tp::stop_token) { ++fastRuns; }, false);
    }
    executor.waitForTaskGroups({fast});  // returns although `slow` is blocked
    EXPECT_EQ(fastRuns.load(), 10);
    EXPECT_FALSE(slowFinished.load());

    std::atomic<bool> returnedBeforeSlowFinished{false};
    std::thread waiter([&] {
        executor.waitForTaskGroups({slow, fast});
        returnedBeforeSlowFinished = !slowFinished.load();
    });
    gate.open();
    waiter.join();
    EXPECT_FALSE(returnedBeforeSlowFinished.load());
    executor.waitForTaskGroups({newGroup()});  // a group never used: nothing to wait for
}

TEST(ExecutorTest, ConcurrentPostsAndGroupWaitsAccountForEveryItem) {
    tp::Executor executor;
    constexpr int kThreads = 4;
    constexpr int kItems = 100;
    std::vector<boost::uuids::uuid> groups;
    for (int t = 0; t < kThreads; ++t) {
        groups.push_back(newGroup());
    }
    std::vector<std::atomic<int>> ran(kThreads);
    Barrier start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arriveAndWait();
            for (int i = 0; i < kItems; ++i) {
                executor.postWork(groups[t], [&, t](tp::stop_token) { ++ran[t]; }, i % 7 == 0);
            }
            executor.waitForTaskGroups({groups[t]});
            // Everything this thread posted has run once its own group wait returned.
            EXPECT_EQ(ran[t].load(), kItems);
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(executor.pendingCount(), 0u);
}

TEST(ExecutorTest, WaitingUnderTheSharedLockDoesNotDeadlockAgainstShutDown) {
    tp::Executor executor;
    const auto group = newGroup();
    Counter started;
    auto handle = executor.postWork(group, [&](tp::stop_token token) {
        started.increment();
        const auto until = deadline();
        while (!token.stop_requested() && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
        }
    }, false);
    ASSERT_TRUE(started.waitFor(1));

    Counter waiting;
    std::atomic<bool> sawShutDown{true};
    std::thread waiter([&] {
        std::shared_lock<std::shared_mutex> lock(executor.shutdownMutex());
        sawShutDown = executor.isShutDown();
        waiting.increment();
        if (!executor.isShutDown()) {
            executor.waitForTaskGroups({group});
        }
    });
    ASSERT_TRUE(waiting.waitFor(1));
    {
        // Readable while the task runs.
        std::shared_lock<std::shared_mutex> lock(executor.shutdownMutex());
        EXPECT_FALSE(executor.isShutDown());
    }
    executor.shutDown();  // stops the task, which frees the waiter, which frees the lock
    waiter.join();
    EXPECT_FALSE(sawShutDown.load());
    EXPECT_TRUE(handle->isFinished());
    EXPECT_TRUE(handle->getStopToken().stop_requested());
    std::shared_lock<std::shared_mutex> lock(executor.shutdownMutex());
    EXPECT_TRUE(executor.isShutDown());
}

TEST(ExecutorTest, PostAfterShutDownIsRefused) {
    tp::Executor executor;
    executor.shutDown();
    try {
        executor.postWork(newGroup(), [](tp::stop_token) {}, false);
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Executor is shut down");
    }
    executor.shutDown();  // idempotent
}

TEST(ExecutorTest, ThrowingWorkIsLoggedAndStillFinishesItsHandle) {
    auto capture = std::make_shared<foundation::log::capture_sink>("foundation::concurrent::threadpool");
    foundation::log::addSink(capture);
    tp::Executor executor;
    const auto group = newGroup();
    auto handle = executor.postWork(group, [](tp::stop_token) { throw std::logic_error("bad work"); }, false);
    executor.waitForTaskGroups({group});
    EXPECT_TRUE(handle->isFinished());
    EXPECT_TRUE(capture->waitFor([](const auto& r) { return r.text == "Exception caught: bad work"; }, deadline()));
    foundation::log::removeSink(capture);
}

TEST(ExecutorTest, WaitingForItsOwnGroupFromATaskIsRefused) {
    tp::Executor executor;
    const auto group = newGroup();
    std::string error;
    executor.postWork(group, [&](tp::stop_token) {
        try {
            executor.waitForTaskGroups({group});
        } catch (const std::logic_error& e) {
            error = e.what();
        }
    }, false)->wait();
    EXPECT_EQ(error, "Executor::waitForTaskGroups called from a task of a group it waits for");
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
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_EQ(otherRuns.load(), 1);
}

TEST(ExecutorTest, MoveOnlyWorkIsAccepted) {
    tp::Executor executor;
    auto value = std::make_unique<int>(7);
    std::atomic<int> seen{0};
    executor.postWork(newGroup(), [v = std::move(value), &seen](tp::stop_token) { seen = *v; }, false)->wait();
    EXPECT_EQ(seen.load(), 7);
}

TEST(StopTokenTest, TokensShareTheirSourceState) {
    tp::stop_token empty;
    EXPECT_FALSE(empty.stop_possible());
    EXPECT_FALSE(empty.stop_requested());

    tp::stop_source source;
    auto token = source.get_token();
    auto copy = token;
    EXPECT_TRUE(token.stop_possible());
    EXPECT_FALSE(copy.stop_requested());
    EXPECT_TRUE(source.request_stop());
    EXPECT_FALSE(source.request_stop()) << "only the first request counts";
    EXPECT_TRUE(token.stop_requested());
    EXPECT_TRUE(copy.stop_requested());
}

}  // namespace
