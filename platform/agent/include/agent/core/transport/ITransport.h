#pragma once

#include "agent/core/transport/Address.h"
#include "agent/core/transport/Message.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/core/transport/RequestHandler.h"

#include <boost/optional.hpp>
#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <string>

namespace agent::core::transport {

// What a transport implementation provides; Transport is the face containers hand out.
// Implementations are thread-safe: every member may be called from any thread,
// including handlers, except where noted.
class ITransport {
public:
    virtual ~ITransport() = default;

    // Connects to the exchange at `endpoint` and registers the handlers registered so
    // far. Blocks until the exchange has answered. Throws std::runtime_error naming the
    // endpoint and the cause when it cannot be reached, or std::logic_error when already
    // connected.
    virtual void connect(const std::string& endpoint) = 0;
    // Orderly: fails outstanding requests, stops calling handlers and waits for the ones
    // running (except the caller's own), then closes. Idempotent. Blocks.
    virtual void disconnect() = 0;
    // At once: fails outstanding requests and closes without waiting for handlers or
    // for the peer. Idempotent.
    virtual void forceDisconnect() = 0;
    virtual bool isConnected() const = 0;

    // Replaces any handler at `address` (std::invalid_argument for an invalid address or
    // an empty handler). `serviceInstance` names the service the handler belongs to, for
    // rejectRequestsFor. Blocks until the exchange confirmed the address when connected;
    // throws std::runtime_error if the exchange refuses it.
    virtual void registerHandler(const Address& address, RequestHandler handler,
                                 const boost::uuids::uuid& serviceInstance) = 0;
    // Returns whether a handler was there. Requests already handed to it still run.
    virtual bool unregisterHandler(const Address& address) = 0;
    // Further requests to handlers of `serviceInstance` (or at the address equal to it)
    // get a failure reply. Non-blocking.
    virtual void rejectRequestsFor(const boost::uuids::uuid& serviceInstance) = 0;

    // Sends `request` to `destination`. Non-blocking apart from back-pressure of the
    // exchange connection. `timeout` (none: the transport's default) bounds the wait for
    // the reply. Failures are reported through the future, never thrown.
    virtual ReplyFuture sendRequest(const Address& destination, Message request,
                                    const boost::optional<std::chrono::milliseconds>& timeout) = 0;
};

}  // namespace agent::core::transport
