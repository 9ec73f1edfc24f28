#include "foundation/concurrent/threadpool/ThreadPool.h"
#include "foundation/log/CaptureSink.h"

#include "ConcurrencyTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

using foundation::concurrent::threadpool::ThreadPool;
using foundation::testing::Barrier;
using foundation::testing::Counter;
using foundation::testing::deadline;
using foundation::testing::Gate;

namespace {

// Bounded wait for a condition that only a background thread can make true.
template <class Condition>
bool eventually(Condition condition) {
    const auto until = deadline();
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST(ThreadPoolTest, TasksPostedFromManyThreadsEachRunExactlyOnce) {
    ThreadPool pool(4);
    constexpr int kPosters = 4;
    constexpr int kTasks = 500;
    std::vector<std::atomic<int>> runs(kPosters * kTasks);
    Counter done;
    Barrier start(kPosters);
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; ++p) {
        posters.emplace_back([&, p] {
            start.arriveAndWait();
            for (int i = 0; i < kTasks; ++i) {
                pool.post([&, index = p * kTasks + i] {
                    runs[index].fetch_add(1);
                    done.increment();
                });
            }
        });
    }
    for (auto& poster : posters) {
        poster.join();
    }
    ASSERT_TRUE(done.waitFor(runs.size()));
    for (const auto& count : runs) {
        EXPECT_EQ(count.load(), 1);
    }
    EXPECT_LE(pool.threadCount(), 4u);
}

TEST(ThreadPoolTest, UnlimitedPoolRunsEveryBlockedTaskAtOnce) {
    ThreadPool pool(1);
    pool.setNewMaximumPoolSize(0);
    constexpr int kTasks = 24;
    Barrier allRunning(kTasks);
    Counter passed;
    for (int i = 0; i < kTasks; ++i) {
        pool.post([&] {
            if (allRunning.arriveAndWait()) {
                passed.increment();
            }
        });
    }
    ASSERT_TRUE(passed.waitFor(kTasks)) << "only " << passed.value() << " tasks got past the barrier";
    EXPECT_GE(pool.threadCount(), static_cast<std::size_t>(kTasks));
}

TEST(ThreadPoolTest, RaisingTheMaximumStartsThreadsForQueuedTasks) {
    ThreadPool pool(1);
    Barrier bothRunning(2);
    Counter passed;
    for (int i = 0; i < 2; ++i) {
        pool.post([&] {
            if (bothRunning.arriveAndWait()) {
                passed.increment();
            }
        });
    }
    ASSERT_TRUE(bothRunning.waitForArrivals(1));
    pool.setNewMaximumPoolSize(2);
    EXPECT_TRUE(passed.waitFor(2));
}

TEST(ThreadPoolTest, MaximumBoundsHowManyTasksRunAtOnce) {
    ThreadPool pool(3);
    std::atomic<int> running{0};
    std::atomic<int> mostAtOnce{0};
    Counter done;
    constexpr int kTasks = 200;
    for (int i = 0; i < kTasks; ++i) {
        pool.post([&] {
            const int now = ++running;
            int seen = mostAtOnce.load();
            while (now > seen && !mostAtOnce.compare_exchange_weak(seen, now)) {
            }
            std::this_thread::yield();
            --running;
            done.increment();
        });
    }
    ASSERT_TRUE(done.waitFor(kTasks));
    EXPECT_LE(mostAtOnce.load(), 3);
    EXPECT_LE(pool.threadCount(), 3u);
}

TEST(ThreadPoolTest, PostToAnIdlePoolReusesTheIdleWorker) {
    ThreadPool pool;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(eventually([&] { return pool.idleThreadCount() == pool.threadCount(); }));
        Counter done;
        pool.post([&] { done.increment(); });
        ASSERT_TRUE(done.waitFor(1));
    }
    EXPECT_EQ(pool.threadCount(), 1u);
}

TEST(ThreadPoolTest, ThrowingTaskIsLoggedAndItsWorkerGoesOn) {
    auto capture = std::make_shared<foundation::log::capture_sink>("foundation::concurrent::threadpool");
    foundation::log::addSink(capture);
    ThreadPool pool(1);
    Counter done;
    pool.post([] { throw std::runtime_error("boom"); });
    pool.post([] { throw 42; });
    pool.post([&] { done.increment(); });
    EXPECT_TRUE(done.waitFor(1));
    EXPECT_EQ(pool.threadCount(), 1u);
    EXPECT_TRUE(capture->waitForCount(
        [](const auto& r) { return r.text == "A thread pool task threw an exception" && r.severity == 0x100; }, 2,
        deadline()));
    EXPECT_TRUE(capture->contains("Exception caught: boom"));
    EXPECT_TRUE(capture->contains("Exception caught: unknown exception"));
    foundation::log::removeSink(capture);
}

TEST(ThreadPoolTest, ShutDownRunsQueuedTasksThenRefusesNewOnes) {
    ThreadPool pool(1);
    Gate gate;
    std::atomic<int> ran{0};
    pool.post([&] {
        gate.wait();
        ++ran;
    });
    for (int i = 0; i < 5; ++i) {
        pool.post([&] { ++ran; });
    }
    std::thread stopper([&] { pool.shutDown(); });
    ASSERT_TRUE(eventually([&] { return pool.isShutDown(); }));
    try {
        pool.post([] {});
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Thread pool is shut down");
    }
    gate.open();
    stopper.join();
    EXPECT_EQ(ran.load(), 6);
    EXPECT_EQ(pool.threadCount(), 0u);
    pool.shutDown();  // idempotent
}

TEST(ThreadPoolTest, ConcurrentShutDownCallsAllReturnAfterTheWorkersAreJoined) {
    ThreadPool pool(2);
    Gate gate;
    std::atomic<bool> taskFinished{false};
    pool.post([&] {
        gate.wait();
        taskFinished = true;
    });
    constexpr int kCallers = 4;
    Barrier start(kCallers);
    std::atomic<int> returnedEarly{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < kCallers; ++i) {
        callers.emplace_back([&] {
            start.arriveAndWait();
            pool.shutDown();
            if (!taskFinished) {
                ++returnedEarly;
            }
        });
    }
    ASSERT_TRUE(eventually([&] { return pool.isShutDown(); }));
    gate.open();
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(returnedEarly.load(), 0);
}

TEST(ThreadPoolTest, ShutDownFromOwnWorkerDoesNotDeadlock) {
    ThreadPool pool(2);
    Counter done;
    pool.post([&] {
        pool.shutDown();
        done.increment();
    });
    ASSERT_TRUE(done.waitFor(1));
    EXPECT_TRUE(pool.isShutDown());
    EXPECT_THROW(pool.post([] {}), std::runtime_error);
}

TEST(ThreadPoolTest, PoolDestroyedByItsOwnTaskLetsThatTaskFinish) {
    auto pool = std::make_unique<ThreadPool>();
    Gate destroyed;
    Counter done;
    ThreadPool* raw = pool.get();
    raw->post([&, owned = std::shared_ptr<ThreadPool>(pool.release())]() mutable {
        destroyed.wait();
        owned.reset();  // the last owner: the destructor runs on this worker
        done.increment();
    });
    destroyed.open();
    EXPECT_TRUE(done.waitFor(1));
}

TEST(ThreadPoolTest, WorkersBeyondTheCoreRetireAfterTheIdleTimeout) {
    ThreadPool pool;
    pool.setIdleTimeout(std::chrono::milliseconds(20));
    constexpr int kTasks = 6;
    Barrier allRunning(kTasks);
    Counter done;
    for (int i = 0; i < kTasks; ++i) {
        pool.post([&] {
            allRunning.arriveAndWait();
            done.increment();
        });
    }
    ASSERT_TRUE(done.waitFor(kTasks));
    EXPECT_GE(pool.threadCount(), static_cast<std::size_t>(kTasks));
    EXPECT_TRUE(eventually([&] { return pool.threadCount() <= ThreadPool::kCoreThreads; }))
        << pool.threadCount() << " threads left";

    Counter after;  // the pool still works and grows again
    pool.post([&] { after.increment(); });
    EXPECT_TRUE(after.waitFor(1));
}

TEST(ThreadPoolTest, LoweringTheMaximumRetiresIdleSurplusWorkersAndBoundsConcurrency) {
    ThreadPool pool(4);
    Barrier allRunning(4);
    Counter done;
    for (int i = 0; i < 4; ++i) {
        pool.post([&] {
            allRunning.arriveAndWait();
            done.increment();
        });
    }
    ASSERT_TRUE(done.waitFor(4));
    ASSERT_TRUE(eventually([&] { return pool.idleThreadCount() == 4; }));

    pool.setNewMaximumPoolSize(1);
    std::atomic<int> running{0};
    std::atomic<int> mostAtOnce{0};
    for (int i = 0; i < 50; ++i) {
        pool.post([&] {
            const int now = ++running;
            int seen = mostAtOnce.load();
            while (now > seen && !mostAtOnce.compare_exchange_weak(seen, now)) {
            }
            std::this_thread::yield();
            --running;
            done.increment();
        });
    }
    ASSERT_TRUE(done.waitFor(54));
    EXPECT_EQ(mostAtOnce.load(), 1);
    EXPECT_TRUE(eventually([&] { return pool.threadCount() == 1u; })) << pool.threadCount();
}

}  // namespace
