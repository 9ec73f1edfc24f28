#include "agent/core/container/ServiceContainer.h"
#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using agent::core::container::ServiceContainer;
using agent::core::serviceutils::Context;

TEST(ContextTest, EmptyContextIsInvalidAndCannotRunWork) {
    Context empty;
    EXPECT_FALSE(empty.isValid());
    EXPECT_EQ(empty.getTransport(), nullptr);
    try {
        empty.getThreadPool().postWork([] {});
        FAIL() << "work posted on an empty context";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "Context has no thread pool");
    }
    empty.getThreadPool().wait();  // nothing to wait for
}

TEST(ContextTest, CopiesShareOneFacadeAndWaitCoversWorkPostedThroughAnyCopy) {
    auto container = std::make_shared<ServiceContainer>();
    container->setNewMaximumPoolSize(0);
    const auto instance = container->generateServiceInstance();
    Context context = container->createContext(instance);
    ASSERT_TRUE(context.isValid());
    EXPECT_EQ(context.getNodeID(), container->getNodeID());
    EXPECT_EQ(context.getServiceInstance(), instance);
    EXPECT_NE(context.generateUUID(), context.generateUUID());

    std::atomic<int> done{0};
    {
        Context copy = context;
        for (int i = 0; i < 50; ++i) {
            (i % 2 == 0 ? copy : context).getThreadPool().postWork([&] {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                ++done;
            });
        }
        EXPECT_EQ(&copy.getThreadPool(), &context.getThreadPool());
    }
    context.getThreadPool().wait();
    EXPECT_EQ(done.load(), 50);
}

TEST(ContextTest, ConcurrencyLimitBoundsTheWorkRunningAtOnce) {
    auto container = std::make_shared<ServiceContainer>();
    container->setNewMaximumPoolSize(0);
    Context context = container->createContext(container->generateServiceInstance());
    context.getThreadPool().setConcurrencyLimit(2);
    constexpr int kItems = 16;
    std::atomic<int> running{0};
    std::atomic<int> peak{0};
    testsupport::Barrier firstTwo(2);
    for (int i = 0; i < kItems; ++i) {
        context.getThreadPool().postWork([&, i] {
            const int now = ++running;
            int seen = peak.load();
            while (now > seen && !peak.compare_exchange_weak(seen, now)) {
            }
            if (i < 2) {
                firstTwo.ArriveAndWait();  // both limit slots busy at once
            }
            --running;
        });
    }
    context.getThreadPool().wait();
    EXPECT_EQ(peak.load(), 2);
}
