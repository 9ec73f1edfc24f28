#pragma once

// The part of an invokable publisher that does not depend on the invokable type: the registry of
// invokable factories, their withdrawal, the lookup by clients and the listeners.
//
// A factory is registered (InvokablePublisher::registerInvokableFactory) with a get-callback that
// makes an invokable and an unget-callback that takes one back. Clients find factories, get
// invokables through them and give them back, either explicitly or by dropping the last copy.
// Every invokable a get-callback made is offered to the unget-callback exactly once, unless the
// factory is withdrawn first: from then on the registrant owns the invokables still out (it is
// expected to clean them up itself), and none of the factory's callbacks is called again.
//
// Thread safety: every member may be called from any thread at any time, also from inside a
// callback or listener of this publisher, except the destructor. No lock of the publisher is held
// while a callback or listener runs.

#include "agent/spf/servicepublisher/InvokableFactoryDescription.h"
#include "agent/spf/servicepublisher/InvokableFactoryListener.h"

#include <cppmicroservices/LDAPFilter.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace agent::spf::servicepublisher {

namespace detail {
class InvokableFactoryRecord;
class InvokableFactoryEventDispatcher;
}  // namespace detail

class InvokablePublisherCommon {
public:
    InvokablePublisherCommon();
    InvokablePublisherCommon(const InvokablePublisherCommon&) = delete;
    InvokablePublisherCommon& operator=(const InvokablePublisherCommon&) = delete;

    // Withdraws every factory still registered, tells the listeners, and waits until listener
    // calls in flight on other threads have returned. Blocking. Never call it from a callback or
    // listener of this publisher.
    virtual ~InvokablePublisherCommon();

    // Withdraws a factory: clients no longer find it, getInvokable on it fails, and once this
    // returns none of its callbacks runs again. Blocks until the factory's callbacks running on
    // other threads have returned; a callback of the factory may withdraw it on its own thread
    // (the wait then leaves that call out). Then tells the listeners (Removed).
    // Invokables still held by clients stay valid objects but are no longer given back through
    // the unget-callback. Do not call it while holding a lock that the factory's callbacks take.
    // Throws std::invalid_argument("Unknown invokable factory: <handle>") for a handle that is not
    // registered (never was, or already withdrawn).
    void withdrawInvokableFactory(const InvokableFactoryHandle& handle);

    // True while the factory is registered. Non-blocking.
    bool isRegistered(const InvokableFactoryHandle& handle) const;

    // Every registered factory, in registration order. Non-blocking.
    std::vector<InvokableFactoryDescription> getInvokableFactories() const;

    // The registered factories with exactly this name and this major version whose properties
    // match filter, highest version first (registration order among equal versions). The filter
    // sees one property map: the service properties, then the endpoint properties (an endpoint
    // property wins over a service property whose key differs only in case). An invalid
    // (default-constructed) filter matches every factory. Non-blocking.
    std::vector<InvokableFactoryDescription> findInvokableFactories(
        const std::string& name, std::uint32_t majorVersion,
        const cppmicroservices::LDAPFilter& filter = cppmicroservices::LDAPFilter()) const;

    // Adds a listener for factories added and withdrawn from now on; with notifyExisting it is
    // first told of every factory registered at this moment (Added), before any later change.
    // The calls happen as InvokableFactoryListener.h says; this call may make some of them
    // itself. Throws std::invalid_argument("An invokable factory listener needs a function") for
    // an empty listener.
    InvokableFactoryListenerToken addInvokableFactoryListener(InvokableFactoryListener listener,
                                                              bool notifyExisting = false);

    // Removes a listener. Once it returns the listener is not called again and no call of it is
    // running on another thread (it blocks for one that is; a listener may remove itself).
    // False if the token names no listener of this publisher (also when removed before).
    bool removeInvokableFactoryListener(const InvokableFactoryListenerToken& token);

protected:
    using UntypedGetCallback = std::function<std::shared_ptr<void>()>;
    using UntypedUngetCallback = std::function<void(std::shared_ptr<void>)>;

    // See InvokablePublisher::registerInvokableFactory.
    InvokableFactoryHandle registerUntypedInvokableFactory(UntypedGetCallback getCallback,
                                                           UntypedUngetCallback ungetCallback, std::string name,
                                                           const boost::uuids::uuid& uuid,
                                                           const core::APIVersion& version,
                                                           const cppmicroservices::AnyMap& endpointProperties,
                                                           const cppmicroservices::AnyMap& serviceProperties);

    // See InvokablePublisher::getInvokable.
    std::shared_ptr<void> getUntypedInvokable(const InvokableFactoryHandle& handle);

    // See InvokablePublisher::ungetInvokable.
    bool ungetUntypedInvokable(const std::shared_ptr<void>& invokable);

private:
    // Hands queued listener events out; called with no lock held.
    void deliverEvents() noexcept;

    // Lock order: registryMutex_, then the dispatcher's own lock (events are queued under
    // registryMutex_ so that they keep the registry's order).
    mutable std::mutex registryMutex_;  // guards factories_ and nextSequence_
    std::map<InvokableFactoryHandle, std::shared_ptr<detail::InvokableFactoryRecord>> factories_;
    std::uint64_t nextSequence_ = 0;

    const std::unique_ptr<detail::InvokableFactoryEventDispatcher> dispatcher_;
};

}  // namespace agent::spf::servicepublisher
