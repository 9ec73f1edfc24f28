#pragma once

#include "agent/directory/DirectoryServiceClient.h"

#include <memory>

namespace agent::spf::inprocessdiscovery {

// Offers the agent exchange that runs inside this process: legacy services started on
// the contexts of its clients are reachable by every container of the process that
// dials that exchange, without leaving the process.
//
// Registered under "agent::spf::inprocessdiscovery::InProcessDiscovery".
// Implementations are thread-safe.
class InProcessDiscovery {
public:
    // A new directory client of the in-process exchange. Its associated context
    // (getAssociatedContext()) has a fresh service-instance uuid and runs its work on the
    // exchange's container, at most `concurrency` items at once (0 = no limit); copies of
    // that context stay usable after the client is gone, as long as this service lives.
    // The caller owns the client, which keeps what it uses: it may outlive this service and
    // its bundle, and then either still works or fails its calls with std::runtime_error
    // (each implementation says which). Blocks only to build the client. Any thread. Throws
    // std::runtime_error when no client can be made (each implementation says when).
    virtual std::unique_ptr<agent::directory::DirectoryServiceClient> getFrameworkDiscoveryService(
        unsigned int concurrency) const = 0;

    virtual ~InProcessDiscovery();

protected:
    InProcessDiscovery() = default;
    InProcessDiscovery(const InProcessDiscovery&) = delete;
    InProcessDiscovery& operator=(const InProcessDiscovery&) = delete;
};

}  // namespace agent::spf::inprocessdiscovery
