#include "agent/spf/servicepublisher/InvokablePublisherCommon.h"

#include "InvokableFactoryEventDispatcher.h"
#include "InvokableFactoryRecord.h"
#include "InvokableLease.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <cctype>
#include <set>
#include <stdexcept>

namespace agent::spf::servicepublisher {

namespace {

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Case-variant keys within one map would make filters match one of them by chance.
void requireNoCaseVariants(const cppmicroservices::AnyMap& properties) {
    if (properties.GetType() == cppmicroservices::AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS) {
        return;
    }
    std::set<std::string> seen;
    for (const auto& entry : properties) {
        if (!seen.insert(lowerCase(entry.first)).second) {
            throw std::invalid_argument("Invokable factory properties contain case variants of the key: " +
                                        entry.first);
        }
    }
}

cppmicroservices::AnyMap mergeForFilters(const cppmicroservices::AnyMap& endpointProperties,
                                         const cppmicroservices::AnyMap& serviceProperties) {
    requireNoCaseVariants(endpointProperties);
    requireNoCaseVariants(serviceProperties);
    cppmicroservices::AnyMap merged(cppmicroservices::AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (const auto& [key, value] : serviceProperties) {
        merged[key] = value;
    }
    for (const auto& [key, value] : endpointProperties) {
        merged[key] = value;
    }
    return merged;
}

InvokableFactoryHandle newHandle() {
    // One generator per thread: it is not thread-safe, and seeding it is the expensive part.
    thread_local boost::uuids::random_generator generator;
    return generator();
}

std::invalid_argument unknownFactory(const InvokableFactoryHandle& handle) {
    return std::invalid_argument("Unknown invokable factory: " + boost::uuids::to_string(handle));
}

}  // namespace

InvokablePublisherCommon::InvokablePublisherCommon()
    : dispatcher_(std::make_unique<detail::InvokableFactoryEventDispatcher>()) {}

InvokablePublisherCommon::~InvokablePublisherCommon() {
    std::map<InvokableFactoryHandle, std::shared_ptr<detail::InvokableFactoryRecord>> remaining;
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        remaining.swap(factories_);
        std::vector<std::shared_ptr<detail::InvokableFactoryRecord>> inOrder;
        for (const auto& entry : remaining) {
            inOrder.push_back(entry.second);
        }
        std::sort(inOrder.begin(), inOrder.end(),
                  [](const auto& a, const auto& b) { return a->sequence() < b->sequence(); });
        for (const auto& record : inOrder) {
            dispatcher_->enqueue(InvokableFactoryEventKind::Removed, record->description());
        }
    }
    for (const auto& entry : remaining) {
        entry.second->withdraw();
    }
    dispatcher_->deliver();
    dispatcher_->waitUntilIdle();
}

InvokableFactoryHandle InvokablePublisherCommon::registerUntypedInvokableFactory(
    UntypedGetCallback getCallback, UntypedUngetCallback ungetCallback, std::string name,
    const boost::uuids::uuid& uuid, const core::APIVersion& version,
    const cppmicroservices::AnyMap& endpointProperties, const cppmicroservices::AnyMap& serviceProperties) {
    if (!getCallback) {
        throw std::invalid_argument("An invokable factory needs a get callback");
    }
    if (!ungetCallback) {
        throw std::invalid_argument("An invokable factory needs an unget callback");
    }
    if (name.empty()) {
        throw std::invalid_argument("An invokable factory needs a name");
    }
    auto matchProperties = mergeForFilters(endpointProperties, serviceProperties);
    const auto handle = newHandle();
    auto description = std::make_shared<const InvokableFactoryDescription>(
        InvokableFactoryDescription{handle, std::move(name), uuid, version, endpointProperties, serviceProperties});
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        auto record = std::make_shared<detail::InvokableFactoryRecord>(description, std::move(matchProperties),
                                                                       nextSequence_++, std::move(getCallback),
                                                                       std::move(ungetCallback));
        factories_.emplace(handle, std::move(record));
        dispatcher_->enqueue(InvokableFactoryEventKind::Added, std::move(description));
    }
    deliverEvents();
    return handle;
}

void InvokablePublisherCommon::withdrawInvokableFactory(const InvokableFactoryHandle& handle) {
    std::shared_ptr<detail::InvokableFactoryRecord> record;
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        const auto found = factories_.find(handle);
        if (found == factories_.end()) {
            throw unknownFactory(handle);
        }
        record = std::move(found->second);
        factories_.erase(found);
        dispatcher_->enqueue(InvokableFactoryEventKind::Removed, record->description());
    }
    record->withdraw();
    deliverEvents();
}

bool InvokablePublisherCommon::isRegistered(const InvokableFactoryHandle& handle) const {
    std::lock_guard<std::mutex> lock(registryMutex_);
    return factories_.count(handle) != 0;
}

std::vector<InvokableFactoryDescription> InvokablePublisherCommon::getInvokableFactories() const {
    std::vector<std::shared_ptr<detail::InvokableFactoryRecord>> records;
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        for (const auto& entry : factories_) {
            records.push_back(entry.second);
        }
    }
    std::sort(records.begin(), records.end(),
              [](const auto& a, const auto& b) { return a->sequence() < b->sequence(); });
    std::vector<InvokableFactoryDescription> result;
    result.reserve(records.size());
    for (const auto& record : records) {
        result.push_back(*record->description());
    }
    return result;
}

std::vector<InvokableFactoryDescription> InvokablePublisherCommon::findInvokableFactories(
    const std::string& name, std::uint32_t majorVersion, const cppmicroservices::LDAPFilter& filter) const {
    std::vector<std::shared_ptr<detail::InvokableFactoryRecord>> candidates;
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        for (const auto& entry : factories_) {
            const auto& description = *entry.second->description();
            if (description.name == name && description.version.major == majorVersion) {
                candidates.push_back(entry.second);
            }
        }
    }
    // Matching runs outside the lock: the records' properties never change.
    candidates.erase(std::remove_if(candidates.begin(), candidates.end(),
                                    [&](const auto& record) {
                                        return filter && !filter.Match(record->matchProperties());
                                    }),
                     candidates.end());
    std::sort(candidates.begin(), candidates.end(), [](const auto& a, const auto& b) {
        const auto& va = a->description()->version;
        const auto& vb = b->description()->version;
        return vb < va || (!(va < vb) && a->sequence() < b->sequence());
    });
    std::vector<InvokableFactoryDescription> result;
    result.reserve(candidates.size());
    for (const auto& record : candidates) {
        result.push_back(*record->description());
    }
    return result;
}

InvokableFactoryListenerToken InvokablePublisherCommon::addInvokableFactoryListener(InvokableFactoryListener listener,
                                                                                    bool notifyExisting) {
    if (!listener) {
        throw std::invalid_argument("An invokable factory listener needs a function");
    }
    InvokableFactoryListenerToken token;
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        std::vector<detail::InvokableFactoryEventDispatcher::Description> existing;
        if (notifyExisting) {
            std::vector<std::shared_ptr<detail::InvokableFactoryRecord>> records;
            for (const auto& entry : factories_) {
                records.push_back(entry.second);
            }
            std::sort(records.begin(), records.end(),
                      [](const auto& a, const auto& b) { return a->sequence() < b->sequence(); });
            for (const auto& record : records) {
                existing.push_back(record->description());
            }
        }
        token = dispatcher_->add(std::move(listener), existing);
    }
    deliverEvents();
    return token;
}

bool InvokablePublisherCommon::removeInvokableFactoryListener(const InvokableFactoryListenerToken& token) {
    return dispatcher_->remove(token);
}

std::shared_ptr<void> InvokablePublisherCommon::getUntypedInvokable(const InvokableFactoryHandle& handle) {
    std::shared_ptr<detail::InvokableFactoryRecord> record;
    {
        std::lock_guard<std::mutex> lock(registryMutex_);
        const auto found = factories_.find(handle);
        if (found == factories_.end()) {
            throw unknownFactory(handle);
        }
        record = found->second;
    }
    auto invokable = record->get();
    auto* const address = invokable.get();
    return std::shared_ptr<void>(address, detail::InvokableLease(std::move(record), std::move(invokable)));
}

bool InvokablePublisherCommon::ungetUntypedInvokable(const std::shared_ptr<void>& invokable) {
    auto* const lease = std::get_deleter<detail::InvokableLease>(invokable);
    if (lease == nullptr) {
        throw std::invalid_argument("Not an invokable handed out by an invokable publisher");
    }
    return lease->giveBack();
}

void InvokablePublisherCommon::deliverEvents() noexcept {
    dispatcher_->deliver();
}

}  // namespace agent::spf::servicepublisher
