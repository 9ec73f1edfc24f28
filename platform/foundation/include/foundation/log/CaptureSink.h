#pragma once

#include "foundation/log/Sink.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::log {

// Keeps records in memory so tests can assert on log lines. Install it with addSink
// and remove it afterwards. All members are thread-safe; predicates run with the
// capture's lock held, so they must not log or call back into this object.
class capture_sink : public sink {
public:
    using predicate = std::function<bool(const record&)>;

    // Captures only records of the logger called loggerName; all records if empty.
    explicit capture_sink(std::string loggerName = {});

    void consume(const record& rec) override;

    std::vector<record> records() const;
    std::vector<std::string> texts() const;
    // True if some captured record's text contains `text`.
    bool contains(const std::string& text) const;
    std::size_t count(const predicate& matches) const;
    void clear();

    // Blocks until some captured record matches (records already captured count),
    // or the deadline passes. Returns whether a match was seen.
    bool waitFor(const predicate& matches, std::chrono::steady_clock::time_point deadline) const;
    // Blocks until at least n captured records match, or the deadline passes.
    bool waitForCount(const predicate& matches, std::size_t n,
                      std::chrono::steady_clock::time_point deadline) const;

private:
    const std::string loggerName_;

    mutable std::mutex recordsMutex_;
    mutable std::condition_variable recordAdded_;
    std::vector<record> records_;
    std::uint64_t clearCount_ = 0;  // lets waiters notice a clear()
};

}  // namespace foundation::log
