// The per-instance call statistics behind the status report: counts by outcome from many
// threads, and percentiles within the buckets' tenth.

#include "agent/spf/legacyservicepublisher/CallStatistics.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using agent::spf::legacyservicepublisher::CallStatistics;
using std::chrono::milliseconds;

TEST(CallStatisticsTest, CountsEveryOutcomeFromManyThreadsAndPlacesThePercentiles) {
    CallStatistics statistics;
    EXPECT_FALSE(statistics.snapshot().p50) << "no percentile before the first call";

    // Four threads record 1 ms to 1000 ms once each between them; every tenth call fails and
    // every fiftieth of those times out.
    std::vector<std::thread> recorders;
    for (int thread = 0; thread < 4; ++thread) {
        recorders.emplace_back([&statistics, thread] {
            for (int ms = 1 + thread; ms <= 1000; ms += 4) {
                const auto outcome = ms % 50 == 0   ? CallStatistics::Outcome::timedOut
                                     : ms % 10 == 0 ? CallStatistics::Outcome::failed
                                                    : CallStatistics::Outcome::succeeded;
                statistics.record(outcome, milliseconds(ms));
            }
        });
    }
    for (auto& recorder : recorders) recorder.join();
    const auto snapshot = statistics.snapshot();
    EXPECT_EQ(1000u, snapshot.calls);
    EXPECT_EQ(100u, snapshot.failures);
    EXPECT_EQ(20u, snapshot.timeouts);
    for (const auto& [percentile, expected] : {std::pair{snapshot.p50, 500.0}, {snapshot.p90, 900.0},
                                               {snapshot.p99, 990.0}}) {
        ASSERT_TRUE(percentile);
        EXPECT_NEAR(expected, *percentile, expected / 10) << expected;
    }

    // Latencies beyond either end of the buckets land in the end buckets.
    CallStatistics extremes;
    extremes.record(CallStatistics::Outcome::succeeded, std::chrono::nanoseconds(0));
    extremes.record(CallStatistics::Outcome::succeeded, std::chrono::hours(24 * 365));
    EXPECT_LT(*extremes.snapshot().p50, 0.01);
    EXPECT_GT(*extremes.snapshot().p99, 1e9);
}

}  // namespace
