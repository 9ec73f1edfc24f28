#pragma once

#include "agent/core/serviceutils/Context.h"
#include "agent/core/transport/ITransport.h"
#include "agent/core/transport/Transport.h"

#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <boost/uuid/uuid.hpp>

#include <memory>
#include <mutex>
#include <string>

namespace agent::core::container {

// A process's presence on an exchange: a thread pool (handlers and context work run on
// it), a node id, and the transport it owns. Create with std::make_shared, choose the
// pool's maximum, createTransport, then connectTransport.
//
// Thread-safe. The destructor force-disconnects the transport, then shuts the pool down
// (queued work still runs), then destroys the transport; it must not run on the pool.
class ServiceContainer : public foundation::concurrent::threadpool::ThreadPool {
public:
    ServiceContainer();
    ~ServiceContainer() override;

    // Installs the transport (replacing and force-disconnecting an earlier one).
    // Throws std::invalid_argument("ServiceContainer needs a transport") for null.
    void createTransport(std::unique_ptr<transport::ITransport> transport);
    // Blocks until connected; throws std::logic_error("ServiceContainer has no transport")
    // without one, and what the transport throws (the endpoint and the cause).
    void connectTransport(const std::string& endpoint);
    // See ITransport::disconnect / forceDisconnect. No-ops without a transport.
    void disconnectTransport();
    void forceDisconnectTransport();

    const boost::uuids::uuid& getNodeID() const noexcept { return nodeId_; }
    // A fresh random uuid for a service instance.
    boost::uuids::uuid generateServiceInstance() const;
    boost::uuids::uuid generateRandomUUID() const;
    // Null before createTransport. The transport lives as long as the container.
    transport::Transport* getTransport() const;

    // A context for `serviceInstance` on this container: its work runs on this pool.
    serviceutils::Context createContext(const boost::uuids::uuid& serviceInstance);

private:
    const boost::uuids::uuid nodeId_;

    mutable std::mutex transportMutex_;
    std::unique_ptr<transport::Transport> transport_;
};

}  // namespace agent::core::container
