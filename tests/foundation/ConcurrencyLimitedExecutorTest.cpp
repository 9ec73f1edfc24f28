#include "foundation/concurrent/threadpool/ConcurrencyLimitedExecutor.h"
#include "foundation/log/CaptureSink.h"

#include "ConcurrencyTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
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

// Tracks how many items run at once.
struct ConcurrencyMeter {
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    void enter() {
        const int now = ++running;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
    }
    void leave() { --running; }
};

TEST(ConcurrencyLimitedExecutorTest, LimitOfThreeNeverRunsMoreThanThreeAtOnce) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 3);
    ConcurrencyMeter meter;
    constexpr int kPosters = 4;
    constexpr int kItems = 100;
    std::atomic<int> ran{0};
    Barrier start(kPosters);
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; ++p) {
        posters.emplace_back([&] {
            start.arriveAndWait();
            for (int i = 0; i < kItems; ++i) {
                executor.postWork([&] {
                    meter.enter();
                    std::this_thread::yield();
                    ++ran;
                    meter.leave();
                });
            }
        });
    }
    for (auto& poster : posters) {
        poster.join();
    }
    executor.wait();
    EXPECT_EQ(ran.load(), kPosters * kItems);
    EXPECT_LE(meter.most.load(), 3);
    EXPECT_GE(meter.most.load(), 1);
    EXPECT_EQ(executor.pendingCount(), 0u);
}

TEST(ConcurrencyLimitedExecutorTest, LimitOfOneRunsItemsInPostingOrder) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 1);
    std::mutex orderMutex;
    std::vector<int> order;
    constexpr int kItems = 300;
    for (int i = 0; i < kItems; ++i) {
        executor.postWork([&, i] {
            std::lock_guard<std::mutex> lock(orderMutex);
            order.push_back(i);
        });
    }
    executor.wait();
    ASSERT_EQ(order.size(), static_cast<std::size_t>(kItems));
    for (int i = 0; i < kItems; ++i) {
        EXPECT_EQ(order[i], i);
    }
}

TEST(ConcurrencyLimitedExecutorTest, UnlimitedFacadeRunsBlockedItemsAtOnce) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool);
    constexpr int kItems = 8;
    Barrier allRunning(kItems);
    std::atomic<int> passed{0};
    for (int i = 0; i < kItems; ++i) {
        executor.postWork([&] { passed += allRunning.arriveAndWait() ? 1 : 0; });
    }
    executor.wait();
    EXPECT_EQ(passed.load(), kItems);
}

TEST(ConcurrencyLimitedExecutorTest, WaitWithNothingPostedReturnsAtOnce) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 2);
    executor.wait();
    EXPECT_EQ(pool.threadCount(), 0u) << "no hand-off was needed";
}

TEST(ConcurrencyLimitedExecutorTest, WaitCoversRunningAndQueuedItemsPostedBeforeIt) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 1);
    Gate gate;
    std::atomic<int> finished{0};
    executor.postWork([&] {
        gate.wait();
        ++finished;
    });
    for (int i = 0; i < 10; ++i) {
        executor.postWork([&] { ++finished; });
    }
    std::atomic<int> seenByWaiter{-1};
    std::thread waiter([&] {
        executor.wait();
        seenByWaiter = finished.load();
    });
    gate.open();
    waiter.join();
    EXPECT_EQ(seenByWaiter.load(), 11);
}

TEST(ConcurrencyLimitedExecutorTest, RaisingTheLimitStartsQueuedItems) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 1);
    Counter secondStarted;
    std::atomic<bool> firstSawSecond{false};
    executor.postWork([&] { firstSawSecond = secondStarted.waitFor(1); });
    executor.postWork([&] { secondStarted.increment(); });
    executor.setConcurrencyLimit(2);
    executor.wait();
    EXPECT_TRUE(firstSawSecond.load());
    EXPECT_EQ(executor.concurrencyLimit(), 2u);
}

TEST(ConcurrencyLimitedExecutorTest, LoweringTheLimitTakesEffectAsItemsFinish) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 4);
    Barrier fourRunning(4 + 1);
    for (int i = 0; i < 4; ++i) {
        executor.postWork([&] { fourRunning.arriveAndWait(); });
    }
    ConcurrencyMeter meter;
    for (int i = 0; i < 50; ++i) {
        executor.postWork([&] {
            meter.enter();
            std::this_thread::yield();
            meter.leave();
        });
    }
    executor.setConcurrencyLimit(1);
    ASSERT_TRUE(fourRunning.arriveAndWait());
    executor.wait();
    EXPECT_EQ(meter.most.load(), 1);
}

TEST(ConcurrencyLimitedExecutorTest, ThrowingItemIsLoggedAndTheNextOneRuns) {
    auto capture = std::make_shared<foundation::log::capture_sink>("foundation::concurrent::threadpool");
    foundation::log::addSink(capture);
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 1);
    std::atomic<bool> nextRan{false};
    executor.postWork([] { throw std::runtime_error("item failed"); });
    executor.postWork([&] { nextRan = true; });
    executor.wait();
    EXPECT_TRUE(nextRan.load());
    EXPECT_TRUE(capture->contains("Exception caught: item failed"));
    foundation::log::removeSink(capture);
}

TEST(ConcurrencyLimitedExecutorTest, WaitFromOwnItemIsRefused) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 2);
    tp::ConcurrencyLimitedExecutor other(pool, 1);
    std::string error;
    bool otherWaited = false;
    executor.postWork([&] {
        other.wait();  // another facade is fine
        otherWaited = true;
        try {
            executor.wait();
        } catch (const std::logic_error& e) {
            error = e.what();
        }
    });
    executor.wait();
    EXPECT_TRUE(otherWaited);
    EXPECT_EQ(error, "ConcurrencyLimitedExecutor::wait called from one of its own work items");
}

TEST(ConcurrencyLimitedExecutorTest, DestructionWaitsForItsItems) {
    tp::ThreadPool pool;
    auto executor = std::make_unique<tp::ConcurrencyLimitedExecutor>(pool, 1);
    Gate gate;
    std::atomic<int> finished{0};
    executor->postWork([&] {
        gate.wait();
        ++finished;
    });
    executor->postWork([&] { ++finished; });
    std::atomic<int> seenAfterDestruction{-1};
    std::thread destroyer([&] {
        executor.reset();
        seenAfterDestruction = finished.load();
    });
    gate.open();
    destroyer.join();
    EXPECT_EQ(seenAfterDestruction.load(), 2);
}

TEST(ConcurrencyLimitedExecutorTest, DestroyedFromItsOwnItemTheRestStillRuns) {
    tp::ThreadPool pool;
    auto* executor = new tp::ConcurrencyLimitedExecutor(pool, 1);
    Gate bothPosted;
    Counter ran;
    executor->postWork([&] {
        bothPosted.wait();
        delete executor;  // must not wait for itself
        ran.increment();
    });
    executor->postWork([&] { ran.increment(); });
    bothPosted.open();
    EXPECT_TRUE(ran.waitFor(2));
}

TEST(ConcurrencyLimitedExecutorTest, PostToAShutDownPoolIsRefusedAndLeavesNothingPending) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor executor(pool, 1);
    pool.shutDown();
    EXPECT_THROW(executor.postWork([] {}), std::runtime_error);
    EXPECT_EQ(executor.pendingCount(), 0u);
    executor.wait();
}

TEST(ConcurrencyLimitedExecutorTest, FacadesSharingAPoolKeepTheirOwnLimits) {
    tp::ThreadPool pool;
    tp::ConcurrencyLimitedExecutor serial(pool, 1);
    tp::ConcurrencyLimitedExecutor wide(pool, 0);
    ConcurrencyMeter serialMeter;
    Barrier wideRunning(4);
    std::atomic<int> widePassed{0};
    for (int i = 0; i < 4; ++i) {
        wide.postWork([&] { widePassed += wideRunning.arriveAndWait() ? 1 : 0; });
        serial.postWork([&] {
            serialMeter.enter();
            std::this_thread::yield();
            serialMeter.leave();
        });
    }
    wide.wait();
    serial.wait();
    EXPECT_EQ(widePassed.load(), 4);
    EXPECT_EQ(serialMeter.most.load(), 1);
}

}  // namespace
