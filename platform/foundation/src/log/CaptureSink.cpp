#include "foundation/log/CaptureSink.h"

#include <algorithm>

namespace foundation::log {

capture_sink::capture_sink(std::string loggerName) : loggerName_(std::move(loggerName)) {}

void capture_sink::consume(const record& rec) {
    if (!loggerName_.empty() && rec.loggerName != loggerName_) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(recordsMutex_);
        records_.push_back(rec);
    }
    recordAdded_.notify_all();
}

std::vector<record> capture_sink::records() const {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    return records_;
}

std::vector<std::string> capture_sink::texts() const {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    std::vector<std::string> result;
    result.reserve(records_.size());
    for (const auto& rec : records_) {
        result.push_back(rec.text);
    }
    return result;
}

bool capture_sink::contains(const std::string& text) const {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    return std::any_of(records_.begin(), records_.end(),
                       [&](const record& rec) { return rec.text.find(text) != std::string::npos; });
}

std::size_t capture_sink::count(const predicate& matches) const {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    return static_cast<std::size_t>(std::count_if(records_.begin(), records_.end(), matches));
}

void capture_sink::clear() {
    std::lock_guard<std::mutex> lock(recordsMutex_);
    records_.clear();
    ++clearCount_;
}

bool capture_sink::waitFor(const predicate& matches, std::chrono::steady_clock::time_point deadline) const {
    return waitForCount(matches, 1, deadline);
}

bool capture_sink::waitForCount(const predicate& matches, std::size_t n,
                                std::chrono::steady_clock::time_point deadline) const {
    std::unique_lock<std::mutex> lock(recordsMutex_);
    // Records are only appended (or cleared), so a scan can resume where it stopped.
    std::size_t scanned = 0;
    std::size_t found = 0;
    std::uint64_t clears = clearCount_;
    return recordAdded_.wait_until(lock, deadline, [&] {
        if (clears != clearCount_) {
            clears = clearCount_;
            scanned = 0;
            found = 0;
        }
        for (; scanned < records_.size(); ++scanned) {
            if (matches(records_[scanned])) {
                ++found;
            }
        }
        return found >= n;
    });
}

}  // namespace foundation::log
