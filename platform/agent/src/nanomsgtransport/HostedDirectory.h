#pragma once

#include "agent/core/container/ServiceContainer.h"
#include "agent/directory/DirectoryCore.h"
#include "agent/directory/DirectoryServiceHost.h"

#include <boost/uuid/uuid.hpp>

#include <memory>
#include <mutex>
#include <string>

namespace agent::nanomsgtransport {

// The directory service of one exchange: a container of the exchange's own, dialled into
// it over a private inproc:// endpoint, serving a DirectoryCore at the well-known
// directory address exactly as any other service is served.
//
// Lifecycle: construct (connects and starts serving), stop (idempotent; also run by the
// destructor). nodeGone may be called from any thread until stop has begun; stop must not
// run on the container's pool.
class HostedDirectory {
public:
    // Connects to the exchange at `endpoint` and registers the directory there. Blocks
    // until the exchange confirmed the address. Throws std::runtime_error("Cannot start
    // the exchange's directory: <cause>").
    explicit HostedDirectory(const std::string& endpoint);
    ~HostedDirectory();
    HostedDirectory(const HostedDirectory&) = delete;
    HostedDirectory& operator=(const HostedDirectory&) = delete;

    // The node of the directory's own container (the exchange leaves it out of its counts).
    const boost::uuids::uuid& node() const noexcept;
    std::shared_ptr<directory::DirectoryCore> directory() const noexcept { return directory_; }

    // The container `node` lost its connection: its instances and subscriptions go, and
    // the subscribers are told. Never throws (failures are logged).
    void nodeGone(const boost::uuids::uuid& node) noexcept;

    // Tells every subscriber that "directory" stopped and waits (up to a second) for them
    // to take it, then takes leave of the exchange. Blocks; idempotent; never throws.
    void stop() noexcept;

private:
    std::shared_ptr<directory::DirectoryCore> directory_;
    std::shared_ptr<core::container::ServiceContainer> container_;
    std::unique_ptr<directory::DirectoryServiceHost> host_;

    std::mutex stopMutex_;
    bool stopped_ = false;
};

}  // namespace agent::nanomsgtransport
