#pragma once

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/directoryinterfaces/ServiceNotification.h"

#include <boost/container_hash/hash.hpp>
#include <boost/optional.hpp>
#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace agent::directory {

// The directory of one exchange, without any transport: the service instances running
// on it and the subscriptions to their comings and goings.
//
// It lists itself as the instance "directory" (uuid = getWellKnowAddressFor(1)), version
// 1.0.0.0, with the method "request" at that address, owned by no node.
//
// Notifications. Every change is queued, under the directory's lock, for each matching
// subscription with that subscription's next sequence number (1, 2, ...), and the queue
// is drained by one thread at a time outside the lock: sinks are called one at a time, in
// the order the changes happened, never under a lock. The thread that made a change
// usually drains it before returning; when another thread is already draining, that one
// delivers it. A sink may call back into the directory. A sink that throws is logged and
// skipped. After unsubscribe returns, notifications already queued may still reach the
// sink; none queued later will.
//
// Thread-safe: every member may be called from any thread, sinks included.
// Queries cost O(log n) per named instance; a name pattern other than exact, "*" or a
// trailing "*" walks the distinct names.
class DirectoryCore {
public:
    using Uuid = boost::uuids::uuid;
    using Metadata = std::map<std::string, std::string>;
    // Receives one subscription's notifications; `sequence` counts them from 1.
    using Sink = std::function<void(const Uuid& subscription, const directoryinterfaces::ServiceNotification&,
                                    std::uint64_t sequence)>;

    // Which instances a subscription hears of: names matching `serviceName` (a
    // NamePattern; none = all) whose metadata holds every pair of `metadata`.
    struct Filter {
        boost::optional<std::string> serviceName;
        boost::optional<Metadata> metadata;
    };

    static constexpr const char* kServiceName = "directory";

    DirectoryCore();
    ~DirectoryCore();
    DirectoryCore(const DirectoryCore&) = delete;
    DirectoryCore& operator=(const DirectoryCore&) = delete;

    // The directory's own entry.
    static directoryinterfaces::ServiceInstanceInfo selfEntry();

    // Adds `instance` and notifies the matching subscribers that it started. Throws
    // std::invalid_argument("Service instance needs a name"), ("Service instance needs a
    // uuid"), ("Service instance <uuid> is already registered"), or
    // ("The directory is shut down").
    void registerInstance(directoryinterfaces::ServiceInstanceInfo instance);
    // Removes the instance and notifies its stop; false when it was not there. Throws
    // std::invalid_argument("The directory's own entry cannot be deregistered").
    bool deregisterInstance(const Uuid& instance);
    // Removes every instance `node` registered (its connection went) and every
    // subscription it made, notifying each stop; returns the instances removed.
    std::vector<directoryinterfaces::ServiceInstanceInfo> deregisterNode(const Uuid& node);

    // Instances whose name matches `pattern` (see NamePattern), ordered by name, then uuid.
    std::vector<Uuid> queryByName(const std::string& pattern) const;
    // As queryByName, keeping those whose metadata holds every pair of `metadata`.
    std::vector<Uuid> queryByMetadata(const std::string& pattern, const Metadata& metadata) const;
    // The instance `instance` if it offers `version`:
    //   - version 0.0.0.0 accepts any version; the entry comes back as registered;
    //   - otherwise the major numbers must be equal and the registered version at least
    //     `version`; an instance registered with version 0.0.0.0 (unversioned) accepts
    //     any requested version and comes back carrying the requested one.
    // none when unknown or incompatible.
    boost::optional<directoryinterfaces::ServiceInstanceInfo> lookup(
        const Uuid& instance, const core::serviceutils::APIVersion& version) const;
    std::size_t size() const;

    // Starts a subscription and returns its id. With `retrospectively` the instances
    // running now that match come first, as started notifications. `node` (may be nil)
    // ties the subscription to a container, for deregisterNode. Throws
    // std::invalid_argument("Subscription needs a sink") or ("The directory is shut down").
    Uuid subscribe(const Filter& filter, bool retrospectively, Sink sink, const Uuid& node = {});
    // false when no such subscription.
    bool unsubscribe(const Uuid& subscription);
    std::size_t subscriptionCount() const;

    // Withdraws the directory's own entry, so every subscriber whose filter admits it is
    // told "directory" stopped, and refuses further registrations and subscriptions.
    // Blocks until this thread has drained the queue, unless another thread drains it.
    // Idempotent.
    void shutDown();

private:
    struct Subscription {
        Filter filter;
        Uuid node{};
        std::shared_ptr<const Sink> sink;
        std::uint64_t sent = 0;
    };
    struct Pending {
        Uuid subscription;
        std::shared_ptr<const Sink> sink;
        directoryinterfaces::ServiceNotification notification;
        std::uint64_t sequence;
    };
    using UuidHash = boost::hash<Uuid>;

    // Needs stateMutex_ held.
    void insertLocked(directoryinterfaces::ServiceInstanceInfo instance);
    // Needs stateMutex_ held.
    directoryinterfaces::ServiceInstanceInfo eraseLocked(const Uuid& instance);
    // Needs stateMutex_ held.
    void queueLocked(const directoryinterfaces::ServiceInstanceInfo& instance, bool started);
    // Needs stateMutex_ not held: calls out to sinks.
    void drain();

    static bool admits(const Filter& filter, const directoryinterfaces::ServiceInstanceInfo& instance);

    mutable std::mutex stateMutex_;
    std::unordered_map<Uuid, directoryinterfaces::ServiceInstanceInfo, UuidHash> instances_;
    std::map<std::string, std::set<Uuid>> byName_;
    std::unordered_map<Uuid, std::set<Uuid>, UuidHash> byNode_;
    std::unordered_map<Uuid, Subscription, UuidHash> subscriptions_;
    std::deque<Pending> outbox_;
    bool draining_ = false;
    bool shutDown_ = false;
};

}  // namespace agent::directory
