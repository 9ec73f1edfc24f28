#include "support/Thrown.h"
#include "agent/core/container/ServiceContainer.h"
#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <atomic>

using agent::core::container::ServiceContainer;
using agent::core::serviceutils::Context;

TEST(ContextTest, EmptyContextIsInvalidAndCannotRunWork) {
    Context empty;
    EXPECT_FALSE(empty.isValid());
    EXPECT_EQ(empty.getTransport(), nullptr);
    EXPECT_EQ(testsupport::ThrownText<std::logic_error>([&] { empty.getThreadPool().postWork([] {}); }),
              "Context has no thread pool");
    empty.getThreadPool().wait();  // nothing to wait for
}

// Copies share one facade: its limit bounds the work of every copy, and a wait covers work
// posted through any copy.
TEST(ContextTest, CopiesShareOneLimitedFacadeAndOneWait) {
    auto container = std::make_shared<ServiceContainer>();
    container->setNewMaximumPoolSize(0);
    const auto instance = container->generateServiceInstance();
    Context context = container->createContext(instance);
    ASSERT_TRUE(context.isValid());
    EXPECT_EQ(context.getNodeID(), container->getNodeID());
    EXPECT_EQ(context.getServiceInstance(), instance);
    EXPECT_NE(context.generateUUID(), context.generateUUID());
    context.getThreadPool().setConcurrencyLimit(2);
    std::atomic<int> running{0}, peak{0}, done{0};
    testsupport::Barrier firstTwo(2);
    {
        Context copy = context;
        EXPECT_EQ(&copy.getThreadPool(), &context.getThreadPool());
        for (int i = 0; i < 50; ++i) {
            (i % 2 == 0 ? copy : context).getThreadPool().postWork([&, i] {
                const int now = ++running;
                for (int seen = peak.load(); now > seen && !peak.compare_exchange_weak(seen, now);) {
                }
                if (i < 2) {
                    firstTwo.ArriveAndWait();  // both limit slots busy at once
                }
                --running;
                ++done;
            });
        }
    }
    context.getThreadPool().wait();
    EXPECT_EQ(done.load(), 50);
    EXPECT_EQ(peak.load(), 2);
}
