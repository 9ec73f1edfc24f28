#pragma once

#include "agent/core/transport/ITransport.h"

#include <boost/optional.hpp>

#include <chrono>
#include <memory>

namespace agent::core::container {
class ServiceContainer;
}

namespace agent::nanomsgtransport {

// The transport of `container` on an nng exchange (see Exchange.h and Envelope.h).
//   requestTimeout: how long a request waits for its reply when the caller gives no
//     timeout of its own (none: 5 s).
//   connectTimeout: how long connect() waits for the exchange to answer, and how long a
//     send may block on back-pressure before it fails (none: 5 s).
// Handlers run on `container`'s thread pool; the container must outlive the transport.
// Disconnecting takes leave of the exchange and waits for its answer, at most half a
// second (less if connectTimeout is shorter), so that nothing is still arriving when the
// connection closes; a stopped exchange costs that wait. An orderly disconnect waits for
// it; a forced one returns at once (requests failed, handlers no longer called) and
// leaves it to a thread of its own, which connecting again or destroying the transport
// waits for.
// Not blocking; throws std::runtime_error if nng cannot open a socket.
std::unique_ptr<core::transport::ITransport> getTransport(
    core::container::ServiceContainer& container,
    const boost::optional<std::chrono::milliseconds>& requestTimeout,
    const boost::optional<std::chrono::milliseconds>& connectTimeout);

}  // namespace agent::nanomsgtransport
