#pragma once

#include "agent/directory/DirectoryCore.h"
#include "agent/core/transport/Transport.h"

#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <memory>
#include <vector>

namespace agent::directory {

// Serves a DirectoryCore at the well-known directory address (getWellKnowAddressFor(1))
// of the exchange `transport` is connected to, and sends each subscription's
// notifications to its callback address as Notification requests (numbered, so the
// client can restore their order whatever order its pool runs them in).
//
// An exchange hosts one through a container of its own connected in-process, and calls
// nodeGone when a container's connection goes.
//
// Lifecycle: construct, start, stop (idempotent; also run by the destructor). The
// transport must outlive the host. Thread-safe; stop must not run on a handler of this
// host.
class DirectoryServiceHost {
public:
    // Throws std::invalid_argument("DirectoryServiceHost needs a directory") for null.
    DirectoryServiceHost(std::shared_ptr<DirectoryCore> directory, core::transport::Transport& transport);
    ~DirectoryServiceHost();
    DirectoryServiceHost(const DirectoryServiceHost&) = delete;
    DirectoryServiceHost& operator=(const DirectoryServiceHost&) = delete;

    // Registers the handler at the well-known address. Blocks until the exchange
    // confirmed it; throws what Transport::registerHandler throws (another directory
    // already serves this exchange, say).
    void start();

    // The container `node` lost its connection: its instances are deregistered (their
    // subscribers told) and its subscriptions dropped. Returns what went. Non-blocking
    // apart from sending the notifications.
    std::vector<directoryinterfaces::ServiceInstanceInfo> nodeGone(const boost::uuids::uuid& node);

    // Tells every subscriber that "directory" stopped, waits up to `flushTimeout` for
    // the notifications in flight to be taken, then stops serving and sending. Blocks.
    // Idempotent; never throws.
    void stop(std::chrono::milliseconds flushTimeout = std::chrono::seconds(1));

    DirectoryCore& directory() const noexcept { return *directory_; }

private:
    class Sender;

    static core::transport::Message handle(DirectoryCore& directory, const std::shared_ptr<Sender>& sender,
                                           const core::transport::Message& request);

    std::shared_ptr<DirectoryCore> directory_;
    core::transport::Transport& transport_;
    std::shared_ptr<Sender> sender_;
};

}  // namespace agent::directory
