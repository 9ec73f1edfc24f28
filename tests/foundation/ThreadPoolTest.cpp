// The thread pool, and the facade that limits how many of its own items run on one.

#include "foundation/concurrent/threadpool/ConcurrencyLimitedExecutor.h"
#include "foundation/concurrent/threadpool/ThreadPool.h"

#include "ConcurrencyTestSupport.h"
#include "support/Barrier.h"
#include "support/Thrown.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <numeric>
#include <stdexcept>

using namespace foundation::concurrent::threadpool;
using namespace foundation::testing;
using testsupport::Barrier;
using testsupport::RunConcurrently;
using testsupport::WaitFor;

namespace {

// Work posted from four threads at once runs once each, never more at a time than its
// bound (the pool's maximum, or the facade's limit), and a limit of one keeps each poster's
// order; an unlimited facade on the same pool still runs its own items at once meanwhile.
TEST(ThreadPoolTest, WorkPostedFromManyThreadsRunsOnceEachWithinItsBound) {
    for (const int limit : {0, 1, 3}) {
        SCOPED_TRACE(limit == 0 ? "a pool of at most three threads" : "a facade limited to " + std::to_string(limit));
        ThreadPool pool(limit == 0 ? 3 : 0);
        ConcurrencyLimitedExecutor facade(pool, limit), wide(pool, 0);
        ConcurrencyMeter meter;
        std::mutex orderMutex;
        std::vector<std::vector<int>> order(4);
        Barrier wideRunning(4);
        std::atomic<int> widePassed{0};
        Counter done;
        RunConcurrently(4, [&](int p) {
            if (limit != 0) {
                wide.postWork([&] { widePassed += wideRunning.ArriveAndWait() ? 1 : 0; });
            }
            for (int i = 0; i < 250; ++i) {
                std::function<void()> item = [&, p, i] {
                    meter.enter();
                    std::lock_guard<std::mutex> lock(orderMutex);
                    order[p].push_back(i);
                    meter.leave();
                    done.increment();
                };
                limit == 0 ? pool.post(item) : facade.postWork(item);
            }
        });
        ASSERT_TRUE(done.waitFor(1000));
        wide.wait();
        EXPECT_EQ(widePassed.load(), limit == 0 ? 0 : 4);
        EXPECT_LE(meter.most.load(), limit == 0 ? 3 : limit);
        std::vector<int> each(250);
        std::iota(each.begin(), each.end(), 0);
        for (auto& ran : order) {
            limit == 1 ? void() : std::sort(ran.begin(), ran.end());
            EXPECT_EQ(ran, each);
        }
    }
}

// Six tasks that only finish once all of them run at the same time: an unlimited pool must grow.
TEST(ThreadPoolTest, IdleWorkersAreReusedAndAnUnlimitedPoolGrowsThenRetiresWorkersBeyondTheCore) {
    ThreadPool pool;
    pool.setIdleTimeout(std::chrono::milliseconds(20));
    Counter done;
    for (int i = 1; i <= 20; ++i) {  // the idle worker takes the next task; no thread is started for it
        ASSERT_TRUE(WaitFor([&] { return pool.idleThreadCount() == pool.threadCount(); }));
        pool.post([&] { done.increment(); });
        ASSERT_TRUE(done.waitFor(i));
    }
    EXPECT_EQ(pool.threadCount(), 1u);
    Barrier allRunning(6);
    for (int i = 0; i < 6; ++i) {
        pool.post([&] { allRunning.ArriveAndWait() ? done.increment() : void(); });
    }
    ASSERT_TRUE(done.waitFor(26));
    EXPECT_TRUE(WaitFor([&] { return pool.threadCount() == ThreadPool::kCoreThreads; })) << pool.threadCount();
}

TEST(ThreadPoolTest, ConcurrentShutDownsRunTheQueuedTasksRefuseNewOnesAndReturnAfterTheJoin) {
    ThreadPool pool(1);
    Gate gate;
    std::atomic<int> ran{0};
    pool.post([&] { ran += gate.wait() ? 1 : 0; });
    for (int i = 0; i < 5; ++i) {
        pool.post([&] { ++ran; });
    }
    RunConcurrently(5, [&](int caller) {
        if (caller > 0) {
            pool.shutDown();
            EXPECT_EQ(ran.load(), 6) << "returned before the workers were joined";
            return;
        }
        EXPECT_TRUE(WaitFor([&] { return pool.isShutDown(); }));
        EXPECT_EQ(testsupport::ThrownText<std::runtime_error>([&] { pool.post([] {}); }),
                  "Thread pool is shut down");
        gate.open();
    });
    EXPECT_EQ(pool.threadCount(), 0u);
    pool.shutDown();  // idempotent
}

// The last owner lets the pool go on one of its workers: the destructor lets that task finish.
// A shutDown from a worker is ExecutorTest's TaskMayWaitForAnotherGroupAndShutDownTheExecutor.
TEST(ThreadPoolTest, DestructionFromItsOwnWorkerLetsThatTaskFinish) {
    auto pool = std::make_shared<ThreadPool>(2);
    Gate posted;
    Counter done;
    pool->post([&, owned = pool]() mutable {
        posted.wait();
        owned.reset();  // the last owner: the destructor runs here
        done.increment();
    });
    pool.reset();
    posted.open();
    EXPECT_TRUE(done.wait());
}

// wait() and the destructor both wait for what runs and what is queued; destroyed from
// one of its own items, the facade does not wait for itself and the rest still run.
TEST(ConcurrencyLimitedExecutorTest, WaitAndDestructionCoverRunningAndQueuedItems) {
    for (const char* how : {"wait", "destroy", "destroy from its own item"}) {
        SCOPED_TRACE(how);
        Gate gate;
        Counter finished;
        ThreadPool pool;  // goes first: its workers may still run items of a facade that did not wait
        auto executor = std::make_unique<ConcurrencyLimitedExecutor>(pool, 1);
        const bool fromItem = std::string(how) == "destroy from its own item";
        executor->postWork([&] {
            gate.wait();
            fromItem ? executor.reset() : void();
            finished.increment();
        });
        for (int i = 0; i < 10; ++i) {
            executor->postWork([&] { finished.increment(); });
        }
        std::thread opener([&] {  // late, so that a call below that does not wait returns first
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            gate.open();
        });
        if (!fromItem) {
            std::string(how) == "wait" ? executor->wait() : executor.reset();
        }
        EXPECT_TRUE(finished.waitFor(11, fromItem ? deadline() : deadline(std::chrono::milliseconds(0))));
        opener.join();
    }
}

}  // namespace
