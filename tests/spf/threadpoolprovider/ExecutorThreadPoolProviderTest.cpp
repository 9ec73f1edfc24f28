#include "support/Thrown.h"
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

TEST(ExecutorThreadPoolProviderTest, ShutDownStopsRunningWorkWaitsForItAndRefusesMore) {
    ExecutorThreadPoolProvider provider;
    auto executor = provider.getExecutor();
    EXPECT_EQ(executor, provider.getExecutor()) << "one executor for every user";
    auto started = std::make_shared<std::promise<void>>();
    auto sawStop = std::make_shared<std::atomic<bool>>(false);
    auto handle = executor->postWork(boost::uuids::random_generator()(), [started, sawStop](stop_token token) {
        started->set_value();
        testsupport::WaitFor([&] { return token.stop_requested(); }, std::chrono::seconds(20));
        sawStop->store(token.stop_requested());
    }, false);
    started->get_future().wait();

    provider.shutDown();
    EXPECT_TRUE(handle->isFinished());
    EXPECT_TRUE(sawStop->load());
    {
        std::shared_lock<std::shared_mutex> lock(executor->shutdownMutex());
        EXPECT_TRUE(executor->isShutDown());
    }
    EXPECT_EQ(testsupport::ThrownText<std::runtime_error>(
                  [&] { executor->postWork(boost::uuids::random_generator()(), [](stop_token) {}, false); }),
              "Executor is shut down");
    provider.shutDown();  // idempotent
}

}  // namespace
}  // namespace agent::spf::threadpoolprovider
