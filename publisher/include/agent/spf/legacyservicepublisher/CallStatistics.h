#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace agent::spf::legacyservicepublisher {

// The calls of one published instance since it was published: counts by outcome and the
// latency of each, kept in buckets of an eighth of a doubling (so a percentile is off by at most
// a tenth). Recording takes a few relaxed atomic additions; any thread may record and read.
class CallStatistics {
public:
    enum class Outcome { succeeded, failed, timedOut };

    struct Snapshot {
        std::uint64_t calls = 0;
        std::uint64_t failures = 0;  // timeouts included
        std::uint64_t timeouts = 0;
        // Latency percentiles in milliseconds; none before the first call.
        std::optional<double> p50;
        std::optional<double> p90;
        std::optional<double> p99;
    };

    void record(Outcome outcome, std::chrono::nanoseconds latency) noexcept;
    Snapshot snapshot() const noexcept;

private:
    static constexpr int kStepsPerDoubling = 8;
    static constexpr int kDoublings = 40;  // from 1 µs to about twelve days
    static constexpr int kBuckets = kStepsPerDoubling * kDoublings;

    static int bucketOf(std::chrono::nanoseconds latency) noexcept;
    static double millisecondsOf(int bucket) noexcept;

    std::atomic<std::uint64_t> calls_{0};
    std::atomic<std::uint64_t> failures_{0};
    std::atomic<std::uint64_t> timeouts_{0};
    std::array<std::atomic<std::uint64_t>, kBuckets> buckets_{};
};

}  // namespace agent::spf::legacyservicepublisher
