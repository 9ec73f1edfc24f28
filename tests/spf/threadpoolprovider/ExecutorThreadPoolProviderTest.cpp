#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include "support/Barrier.h"
#include "support/WaitFor.h"

#include <boost/uuid/random_generator.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace agent::spf::threadpoolprovider {
namespace {

using foundation::concurrent::threadpool::stop_token;
using namespace std::chrono_literals;

boost::uuids::uuid newGroup() {
    static boost::uuids::random_generator generator;
    return generator();
}

// A task that runs until it is asked to stop (or released), reporting that it started.
struct BlockingTask {
    std::shared_ptr<std::promise<void>> started = std::make_shared<std::promise<void>>();
    std::shared_ptr<std::atomic<bool>> released = std::make_shared<std::atomic<bool>>(false);
    std::shared_ptr<std::atomic<bool>> sawStop = std::make_shared<std::atomic<bool>>(false);

    auto body() {
        return [started = started, released = released, sawStop = sawStop](stop_token token) {
            started->set_value();
            testsupport::WaitFor([&] { return token.stop_requested() || released->load(); }, 20s);
            sawStop->store(token.stop_requested());
        };
    }
};

TEST(ExecutorThreadPoolProviderTest, HandsOutOneExecutorThatRunsWorkInGroups) {
    ExecutorThreadPoolProvider provider;
    auto executor = provider.getExecutor();
    ASSERT_NE(executor, nullptr);
    EXPECT_EQ(executor, provider.getExecutor());

    const auto group = newGroup();
    std::atomic<int> ran{0};
    for (int i = 0; i < 20; ++i) {
        executor->postWork(group, [&ran](stop_token) { ++ran; }, i % 2 == 0);
    }
    executor->waitForTaskGroups({group});
    EXPECT_EQ(ran.load(), 20);
}

TEST(ExecutorThreadPoolProviderTest, WaitingForOneGroupIgnoresAnotherGroupsLongTask) {
    ExecutorThreadPoolProvider provider;
    auto executor = provider.getExecutor();
    BlockingTask other;
    auto otherHandle = executor->postWork(newGroup(), other.body(), false);
    other.started->get_future().wait();

    const auto mine = newGroup();
    std::atomic<bool> mineRan{false};
    executor->postWork(mine, [&mineRan](stop_token) { mineRan = true; }, false);
    executor->waitForTaskGroups({mine});  // returns although the other task still runs
    EXPECT_TRUE(mineRan.load());
    EXPECT_FALSE(otherHandle->isFinished());

    *other.released = true;
    otherHandle->wait();
    EXPECT_FALSE(other.sawStop->load());
}

TEST(ExecutorThreadPoolProviderTest, ShutDownStopsRunningWorkWaitsForItAndRefusesMore) {
    ExecutorThreadPoolProvider provider;
    auto executor = provider.getExecutor();
    BlockingTask task;
    auto handle = executor->postWork(newGroup(), task.body(), false);
    task.started->get_future().wait();

    provider.shutDown();
    EXPECT_TRUE(handle->isFinished());
    EXPECT_TRUE(task.sawStop->load());
    {
        std::shared_lock<std::shared_mutex> lock(executor->shutdownMutex());
        EXPECT_TRUE(executor->isShutDown());
    }
    try {
        executor->postWork(newGroup(), [](stop_token) {}, false);
        ADD_FAILURE() << "a shut-down executor accepted work";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Executor is shut down");
    }
    provider.shutDown();  // idempotent
}

TEST(ExecutorThreadPoolProviderTest, AnExecutorKeptByAUserOutlivesTheProvider) {
    std::shared_ptr<foundation::concurrent::threadpool::Executor> kept;
    {
        ExecutorThreadPoolProvider provider;
        kept = provider.getExecutor();
    }
    std::shared_lock<std::shared_mutex> lock(kept->shutdownMutex());
    EXPECT_TRUE(kept->isShutDown());
}

// The way a component leaves: under the shared lock, wait for its own group unless the
// pool is already shut down. Racing a shutdown, it must neither hang nor miss a task.
TEST(ExecutorThreadPoolProviderTest, PostersRacingShutDownEitherRunOrAreRefusedNeverLost) {
    for (int round = 0; round < 20; ++round) {
        ExecutorThreadPoolProvider provider;
        auto executor = provider.getExecutor();
        constexpr int kPosters = 8;
        constexpr int kPostsEach = 25;
        testsupport::Barrier barrier(kPosters + 1);
        std::atomic<int> accepted{0};
        std::atomic<int> refused{0};
        std::atomic<int> ran{0};
        std::vector<std::thread> posters;
        for (int p = 0; p < kPosters; ++p) {
            posters.emplace_back([&] {
                const auto group = newGroup();
                barrier.ArriveAndWait();
                for (int i = 0; i < kPostsEach; ++i) {
                    try {
                        executor->postWork(group, [&ran](stop_token) { ++ran; }, false);
                        ++accepted;
                    } catch (const std::runtime_error&) {
                        ++refused;
                    }
                }
                std::shared_lock<std::shared_mutex> lock(executor->shutdownMutex());
                if (!executor->isShutDown()) {
                    executor->waitForTaskGroups({group});
                }
            });
        }
        barrier.ArriveAndWait();
        provider.shutDown();
        for (auto& poster : posters) {
            poster.join();
        }
        EXPECT_EQ(accepted + refused, kPosters * kPostsEach);
        EXPECT_EQ(ran.load(), accepted.load()) << "every accepted task runs exactly once";
        EXPECT_EQ(executor->pendingCount(), 0u);
    }
}

}  // namespace
}  // namespace agent::spf::threadpoolprovider
