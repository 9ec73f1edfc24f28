#pragma once

#include "agent/directory/DirectoryServiceClient.h"

#include <boost/uuid/uuid.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

// Records what one directory subscription is told, with the moment each notification arrived,
// and lets the test wait for the record with a deadline. Thread-safe: the callback runs on the
// client's pool while the test thread waits. Must outlive the subscription (end it, or the
// client, first).
class NotificationLog {
public:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        std::string line;  // "started Clock", "stopped directory", ...
        boost::uuids::uuid instance{};
        Clock::time_point at;
    };

    agent::directory::DirectoryCallback callback() {
        return [this](const agent::directoryinterfaces::ServiceNotification& notification) {
            using namespace agent::directoryinterfaces;
            Entry entry{"", {}, Clock::now()};
            if (const auto* started = boost::get<ServiceStartedNotification>(&notification)) {
                entry = {"started " + started->serviceName, started->serviceInstance, entry.at};
            } else {
                const auto& stopped = boost::get<ServiceStoppedNotification>(notification);
                entry = {"stopped " + stopped.serviceName, stopped.serviceInstance, entry.at};
            }
            std::lock_guard<std::mutex> lock(entriesMutex_);
            entries_.push_back(std::move(entry));
            changed_.notify_all();
        };
    }

    // Waits until there are `count` entries or, given `line`, one that reads it; returns the
    // entries there are then (fewer, or without the line, when the deadline passed first).
    std::vector<Entry> waitFor(std::size_t count, const std::string& line = "",
                               Clock::time_point deadline = Clock::now() + std::chrono::seconds(20)) {
        std::unique_lock<std::mutex> lock(entriesMutex_);
        changed_.wait_until(lock, deadline, [&] {
            return line.empty() ? entries_.size() >= count
                                : std::any_of(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.line == line; });
        });
        return entries_;
    }

    static std::vector<std::string> lines(const std::vector<Entry>& entries) {
        std::vector<std::string> lines;
        for (const auto& entry : entries) lines.push_back(entry.line);
        return lines;
    }

private:
    std::mutex entriesMutex_;  // guards entries_
    std::vector<Entry> entries_;
    std::condition_variable changed_;
};

}  // namespace testsupport
