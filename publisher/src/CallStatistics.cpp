#include "agent/spf/legacyservicepublisher/CallStatistics.h"

#include <cmath>

namespace agent::spf::legacyservicepublisher {

void CallStatistics::record(Outcome outcome, std::chrono::nanoseconds latency) noexcept {
    calls_.fetch_add(1, std::memory_order_relaxed);
    if (outcome != Outcome::succeeded) {
        failures_.fetch_add(1, std::memory_order_relaxed);
    }
    if (outcome == Outcome::timedOut) {
        timeouts_.fetch_add(1, std::memory_order_relaxed);
    }
    buckets_[static_cast<std::size_t>(bucketOf(latency))].fetch_add(1, std::memory_order_relaxed);
}

CallStatistics::Snapshot CallStatistics::snapshot() const noexcept {
    Snapshot snapshot;
    snapshot.calls = calls_.load(std::memory_order_relaxed);
    snapshot.failures = failures_.load(std::memory_order_relaxed);
    snapshot.timeouts = timeouts_.load(std::memory_order_relaxed);
    std::array<std::uint64_t, kBuckets> counts{};
    std::uint64_t total = 0;
    for (int i = 0; i < kBuckets; ++i) {
        counts[static_cast<std::size_t>(i)] = buckets_[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
        total += counts[static_cast<std::size_t>(i)];
    }
    if (total == 0) {
        return snapshot;
    }
    // The percentile is the first bucket at which the running count reaches that share.
    const auto percentile = [&](double share) {
        const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(total)));
        std::uint64_t seen = 0;
        for (int i = 0; i < kBuckets; ++i) {
            seen += counts[static_cast<std::size_t>(i)];
            if (seen >= wanted) {
                return millisecondsOf(i);
            }
        }
        return millisecondsOf(kBuckets - 1);
    };
    snapshot.p50 = percentile(0.50);
    snapshot.p90 = percentile(0.90);
    snapshot.p99 = percentile(0.99);
    return snapshot;
}

// Bucket b covers [2^(b/8), 2^((b+1)/8)) microseconds; below a microsecond is bucket 0.
int CallStatistics::bucketOf(std::chrono::nanoseconds latency) noexcept {
    const double microseconds = static_cast<double>(latency.count()) / 1000.0;
    if (microseconds <= 1.0) {
        return 0;
    }
    const int bucket = static_cast<int>(std::log2(microseconds) * kStepsPerDoubling);
    return bucket >= kBuckets ? kBuckets - 1 : bucket;
}

// The geometric middle of the bucket.
double CallStatistics::millisecondsOf(int bucket) noexcept {
    return std::exp2((bucket + 0.5) / kStepsPerDoubling) / 1000.0;
}

}  // namespace agent::spf::legacyservicepublisher
