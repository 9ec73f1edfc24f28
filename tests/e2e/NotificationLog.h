#pragma once

#include "agent/core/transport/Address.h"
#include "agent/directory/DirectoryServiceClient.h"

#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace e2e {

// Records what one directory subscription is told, with the moment each notification
// arrived, and lets the test wait for a condition on the record with a deadline.
// Thread-safe: the callback runs on the client's pool while the test thread waits.
// Must outlive the subscription (end it, or the client, first).
class NotificationLog {
public:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        bool started = false;
        std::string name;
        boost::uuids::uuid instance{};
        Clock::time_point at;
    };

    agent::directory::DirectoryCallback callback() {
        return [this](const agent::directoryinterfaces::ServiceNotification& notification) {
            Entry entry;
            entry.at = Clock::now();
            using agent::directoryinterfaces::ServiceStartedNotification;
            if (const auto* started = boost::get<ServiceStartedNotification>(&notification)) {
                entry.started = true;
                entry.name = started->serviceName;
                entry.instance = started->serviceInstance;
            } else {
                const auto& stopped = boost::get<agent::directoryinterfaces::ServiceStoppedNotification>(notification);
                entry.name = stopped.serviceName;
                entry.instance = stopped.serviceInstance;
            }
            {
                std::lock_guard<std::mutex> lock(entriesMutex_);
                entries_.push_back(std::move(entry));
            }
            changed_.notify_all();
        };
    }

    // Waits until `condition(entries)` holds; returns whether it did by the deadline.
    template <class Condition>
    bool waitUntil(Condition condition, Clock::time_point deadline) {
        std::unique_lock<std::mutex> lock(entriesMutex_);
        return changed_.wait_until(lock, deadline, [&] { return condition(entries_); });
    }

    // Waits for `count` entries; returns them all (fewer if the deadline passed first).
    std::vector<Entry> waitForCount(std::size_t count, Clock::time_point deadline) {
        waitUntil([count](const std::vector<Entry>& entries) { return entries.size() >= count; }, deadline);
        return entries();
    }

    // The entry telling that `name` started (or stopped), once there, or none by the deadline.
    std::optional<Entry> waitFor(bool started, const std::string& name, Clock::time_point deadline) {
        std::optional<Entry> found;
        waitUntil(
            [&](const std::vector<Entry>& entries) {
                for (const auto& entry : entries) {
                    if (entry.started == started && entry.name == name) {
                        found = entry;
                        return true;
                    }
                }
                return false;
            },
            deadline);
        return found;
    }

    std::vector<Entry> entries() const {
        std::lock_guard<std::mutex> lock(entriesMutex_);
        return entries_;
    }

    // "started Clock", "stopped directory", ... in arrival order.
    std::vector<std::string> summary() const {
        std::vector<std::string> lines;
        for (const auto& entry : entries()) {
            lines.push_back((entry.started ? "started " : "stopped ") + entry.name);
        }
        return lines;
    }

private:
    mutable std::mutex entriesMutex_;
    std::vector<Entry> entries_;
    std::condition_variable changed_;
};

}  // namespace e2e
