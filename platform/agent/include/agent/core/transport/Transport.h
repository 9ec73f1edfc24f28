#pragma once

#include "agent/core/transport/ITransport.h"

#include <memory>

namespace agent::core::transport {

// A container's transport: the face of an ITransport. Owned by its ServiceContainer;
// callers borrow it through ServiceContainer::getTransport() or a Context. Thread-safe
// (see ITransport for each member's contract).
class Transport {
public:
    // Throws std::invalid_argument("Transport needs an implementation") for null.
    explicit Transport(std::unique_ptr<ITransport> implementation);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    void connect(const std::string& endpoint) { implementation_->connect(endpoint); }
    void disconnect() { implementation_->disconnect(); }
    void forceDisconnect() { implementation_->forceDisconnect(); }
    bool isConnected() const { return implementation_->isConnected(); }

    void registerHandler(const Address& address, RequestHandler handler,
                         const boost::uuids::uuid& serviceInstance = {}) {
        implementation_->registerHandler(address, std::move(handler), serviceInstance);
    }
    bool unregisterHandler(const Address& address) { return implementation_->unregisterHandler(address); }
    void rejectRequestsFor(const boost::uuids::uuid& serviceInstance) {
        implementation_->rejectRequestsFor(serviceInstance);
    }

    ReplyFuture sendRequest(const Address& destination, Message request,
                            const boost::optional<std::chrono::milliseconds>& timeout = boost::none) {
        return implementation_->sendRequest(destination, std::move(request), timeout);
    }

    ITransport& implementation() const noexcept { return *implementation_; }

private:
    std::unique_ptr<ITransport> implementation_;
};

}  // namespace agent::core::transport
