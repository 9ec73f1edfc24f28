#include "agent/directory/DirectoryCore.h"

#include "agent/directory/NamePattern.h"
#include "directory/DirectoryLogger.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <stdexcept>

namespace agent::directory {

using directoryinterfaces::ServiceInstanceInfo;
using directoryinterfaces::ServiceNotification;
using directoryinterfaces::ServiceStartedNotification;
using directoryinterfaces::ServiceStoppedNotification;
using foundation::log::severity::error;

namespace {

boost::uuids::uuid randomUuid() {
    thread_local boost::uuids::random_generator generator;
    return generator();
}

bool holdsAll(const DirectoryCore::Metadata& metadata, const DirectoryCore::Metadata& wanted) {
    for (const auto& [key, value] : wanted) {
        auto found = metadata.find(key);
        if (found == metadata.end() || found->second != value) {
            return false;
        }
    }
    return true;
}

}  // namespace

DirectoryCore::DirectoryCore() {
    std::lock_guard<std::mutex> lock(stateMutex_);
    insertLocked(selfEntry());
}

DirectoryCore::~DirectoryCore() = default;

ServiceInstanceInfo DirectoryCore::selfEntry() {
    const auto address = core::transport::getWellKnowAddressFor(core::transport::WellKnownAddressName::Directory);
    ServiceInstanceInfo self;
    self.name = kServiceName;
    self.instance = address.getUUID();
    self.version = core::serviceutils::APIVersion(1);
    self.methods.emplace("request", address);
    return self;
}

void DirectoryCore::registerInstance(ServiceInstanceInfo instance) {
    if (instance.name.empty()) {
        throw std::invalid_argument("Service instance needs a name");
    }
    if (instance.instance.is_nil()) {
        throw std::invalid_argument("Service instance needs a uuid");
    }
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        if (shutDown_) {
            throw std::invalid_argument("The directory is shut down");
        }
        if (instances_.count(instance.instance) != 0) {
            throw std::invalid_argument("Service instance " + boost::uuids::to_string(instance.instance) +
                                        " is already registered");
        }
        queueLocked(instance, true);
        insertLocked(std::move(instance));
    }
    drain();
}

bool DirectoryCore::deregisterInstance(const Uuid& instance) {
    if (instance == selfEntry().instance) {
        throw std::invalid_argument("The directory's own entry cannot be deregistered");
    }
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        if (instances_.count(instance) == 0) {
            return false;
        }
        queueLocked(eraseLocked(instance), false);
    }
    drain();
    return true;
}

std::vector<ServiceInstanceInfo> DirectoryCore::deregisterNode(const Uuid& node) {
    std::vector<ServiceInstanceInfo> removed;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        for (auto it = subscriptions_.begin(); it != subscriptions_.end();) {
            it = it->second.node == node ? subscriptions_.erase(it) : std::next(it);
        }
        auto owned = byNode_.find(node);
        if (owned != byNode_.end()) {
            const std::set<Uuid> instances = owned->second;  // eraseLocked edits the index
            for (const auto& instance : instances) {
                removed.push_back(eraseLocked(instance));
                queueLocked(removed.back(), false);
            }
        }
    }
    drain();
    return removed;
}

std::vector<DirectoryCore::Uuid> DirectoryCore::queryByName(const std::string& pattern) const {
    return queryByMetadata(pattern, {});
}

std::vector<DirectoryCore::Uuid> DirectoryCore::queryByMetadata(const std::string& pattern,
                                                                const Metadata& metadata) const {
    const NamePattern names(pattern);
    std::vector<Uuid> found;
    std::lock_guard<std::mutex> lock(stateMutex_);
    auto collect = [&](const std::set<Uuid>& instances) {
        for (const auto& id : instances) {
            if (metadata.empty() || holdsAll(instances_.at(id).metadata, metadata)) {
                found.push_back(id);
            }
        }
    };
    if (names.isExact()) {
        auto it = byName_.find(names.prefix());
        if (it != byName_.end()) {
            collect(it->second);
        }
    } else if (names.isPrefix()) {
        for (auto it = byName_.lower_bound(names.prefix());
             it != byName_.end() && it->first.compare(0, names.prefix().size(), names.prefix()) == 0; ++it) {
            collect(it->second);
        }
    } else {
        for (const auto& [name, instances] : byName_) {
            if (names.matches(name)) {
                collect(instances);
            }
        }
    }
    return found;
}

boost::optional<ServiceInstanceInfo> DirectoryCore::lookup(const Uuid& instance,
                                                            const core::serviceutils::APIVersion& version) const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    auto it = instances_.find(instance);
    if (it == instances_.end()) {
        return boost::none;
    }
    const auto& registered = it->second.version;
    if (version.isZero()) {
        return it->second;
    }
    if (registered.isZero()) {
        ServiceInstanceInfo asRequested = it->second;
        asRequested.version = version;
        return asRequested;
    }
    if (registered.getMajor() != version.getMajor() || registered < version) {
        return boost::none;
    }
    return it->second;
}

std::size_t DirectoryCore::size() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return instances_.size();
}

DirectoryCore::Uuid DirectoryCore::subscribe(const Filter& filter, bool retrospectively, Sink sink,
                                             const Uuid& node) {
    if (!sink) {
        throw std::invalid_argument("Subscription needs a sink");
    }
    const auto id = randomUuid();
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        if (shutDown_) {
            throw std::invalid_argument("The directory is shut down");
        }
        auto& subscription = subscriptions_[id];
        subscription.filter = filter;
        subscription.node = node;
        subscription.sink = std::make_shared<const Sink>(std::move(sink));
        if (retrospectively) {
            for (const auto& [name, instances] : byName_) {
                for (const auto& instanceId : instances) {
                    const auto& instance = instances_.at(instanceId);
                    if (admits(filter, instance)) {
                        outbox_.push_back({id, subscription.sink,
                                           ServiceStartedNotification{instance.name, instance.instance},
                                           ++subscription.sent});
                    }
                }
            }
        }
    }
    drain();
    return id;
}

bool DirectoryCore::unsubscribe(const Uuid& subscription) {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return subscriptions_.erase(subscription) != 0;
}

std::size_t DirectoryCore::subscriptionCount() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return subscriptions_.size();
}

void DirectoryCore::shutDown() {
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        if (shutDown_) {
            return;
        }
        shutDown_ = true;
        queueLocked(eraseLocked(selfEntry().instance), false);
    }
    drain();
}

void DirectoryCore::insertLocked(ServiceInstanceInfo instance) {
    const auto id = instance.instance;
    byName_[instance.name].insert(id);
    byNode_[instance.node].insert(id);
    instances_.emplace(id, std::move(instance));
}

ServiceInstanceInfo DirectoryCore::eraseLocked(const Uuid& id) {
    auto it = instances_.find(id);
    ServiceInstanceInfo instance = std::move(it->second);
    instances_.erase(it);
    auto named = byName_.find(instance.name);
    named->second.erase(id);
    if (named->second.empty()) {
        byName_.erase(named);
    }
    auto owned = byNode_.find(instance.node);
    owned->second.erase(id);
    if (owned->second.empty()) {
        byNode_.erase(owned);
    }
    return instance;
}

void DirectoryCore::queueLocked(const ServiceInstanceInfo& instance, bool started) {
    for (auto& [id, subscription] : subscriptions_) {
        if (!admits(subscription.filter, instance)) {
            continue;
        }
        ServiceNotification notification = started
            ? ServiceNotification(ServiceStartedNotification{instance.name, instance.instance})
            : ServiceNotification(ServiceStoppedNotification{instance.name, instance.instance});
        outbox_.push_back({id, subscription.sink, std::move(notification), ++subscription.sent});
    }
}

void DirectoryCore::drain() {
    std::unique_lock<std::mutex> lock(stateMutex_);
    if (draining_) {
        return;
    }
    draining_ = true;
    while (!outbox_.empty()) {
        Pending next = std::move(outbox_.front());
        outbox_.pop_front();
        lock.unlock();
        try {
            (*next.sink)(next.subscription, next.notification, next.sequence);
        } catch (const std::exception& e) {
            FOUNDATION_LOG(directoryLogger(), error) << "A directory subscriber failed: " << e.what();
        } catch (...) {
            FOUNDATION_LOG(directoryLogger(), error) << "A directory subscriber failed";
        }
        lock.lock();
    }
    draining_ = false;
}

bool DirectoryCore::admits(const Filter& filter, const ServiceInstanceInfo& instance) {
    if (filter.serviceName && !NamePattern(*filter.serviceName).matches(instance.name)) {
        return false;
    }
    return !filter.metadata || holdsAll(instance.metadata, *filter.metadata);
}

}  // namespace agent::directory
