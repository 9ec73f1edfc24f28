#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include "support/WaitFor.h"

#include <boost/uuid/random_generator.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <shared_mutex>
#include <stdexcept>

namespace agent::spf::threadpoolprovider {
namespace {

using foundation::concurrent::threadpool::stop_token;
using namespace std::chrono_literals;

boost::uuids::uuid newGroup() {
    static boost::uuids::random_generator generator;
    return generator();
}

// A task that runs until it is asked to stop, reporting that it started.
struct BlockingTask {
    std::shared_ptr<std::promise<void>> started = std::make_shared<std::promise<void>>();
    std::shared_ptr<std::atomic<bool>> sawStop = std::make_shared<std::atomic<bool>>(false);

    auto body() {
        return [started = started, sawStop = sawStop](stop_token token) {
            started->set_value();
            testsupport::WaitFor([&] { return token.stop_requested(); }, 20s);
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

}  // namespace
}  // namespace agent::spf::threadpoolprovider
