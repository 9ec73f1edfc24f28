#include "agent/spf/core/ExportedCallback.h"

#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <vector>

using agent::spf::core::ExportedCallback;
using agent::spf::core::GenericPayload;

// Invokes race for the last allowed one: exactly the maximum run, one of them tells its handler,
// the rest are refused; removal by the client tells its handler once, by the service nobody.
TEST(ExportedCallbackTest, ConcurrentInvokesStopAtTheMaximumAndRemovalTellsOnlyTheOtherSide) {
    constexpr int threadCount = 8;
    constexpr int maximum = 5;
    std::atomic<int> runs{0};
    std::atomic<int> lastInvokes{0};
    std::atomic<int> refused{0};
    ExportedCallback callback = ExportedCallback::make([&runs](std::int32_t) { ++runs; }, maximum);
    auto state = callback.getSharedState();
    state->setLastInvokeHandler([&lastInvokes] { ++lastInvokes; });
    testsupport::RunConcurrently(threadCount, [&](int) {
        try {
            state->invoke(GenericPayload::make(std::int32_t{1}));
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ("Exported callback is no longer active", e.what());
            ++refused;
        }
    });
    EXPECT_EQ(maximum, runs.load());
    EXPECT_EQ(threadCount - maximum, refused.load());
    EXPECT_EQ(1, lastInvokes.load());
    EXPECT_FALSE(state->isActive());

    for (const bool byClient : {true, false}) {
        ExportedCallback removed = ExportedCallback::make([](std::int32_t) {});
        int removals = 0;
        removed.getSharedState()->setClientSideRemovedHandler([&removals] { ++removals; });
        if (!byClient) removed.getSharedState()->serviceSideHasRemovedCallback();
        ExportedCallback copy = removed;
        copy.remove();
        removed.remove();
        EXPECT_EQ(byClient ? 1 : 0, removals);
        EXPECT_THROW(removed.getSharedState()->invoke(GenericPayload::make(std::int32_t{1})), std::runtime_error);
    }
}
