#pragma once

#include <nng/nng.h>

#include <cstddef>
#include <vector>

namespace agent::nanomsgtransport {

// The operating system's side of an exchange's ipc:// and tcp:// listeners.
//
// Why: in nng 1.5.2 an ipc (or tcp) pipe that is closed locally while its receive
// callback is running strands the protocol's receive for good: the callback re-arms the
// read of the frame's body (or of the next frame) on an aio that the close has just
// stopped, nng silently refuses it, and nothing ever completes the receive. The reaper
// then waits for it in the protocol's pipe_stop forever, so nng_close never returns and
// every later pipe teardown in the process stalls behind it. Reproduction with nothing
// but nng (libnng 1.5.2-2): a raw REQ peer dialing ipc:// and sending without pause; in
// a loop, open a raw REP socket, listen on that path, read for 20 ms, stop the read and
// nng_close the socket. Within about a hundred iterations nng_close blocks for good.
//
// A connection that ends from its own receive path is torn down safely (the read fails,
// nng closes the pipe from that callback). So before closing its socket, the exchange
// shuts its own end of every connection down here and waits for their pipes to go.
class AcceptedConnections {
public:
    // shutdown(2)s, both ways, every socket of this process whose local address is one of
    // `listeners`: the listening sockets themselves (no new connections) and the
    // connections they accepted. Other sockets, including this process's own dialed
    // connections to those listeners, are left alone. Returns how many were shut down.
    // Non-blocking; never throws. Linux: reads /proc/self/fd.
    static std::size_t shutDown(const std::vector<nng_sockaddr>& listeners) noexcept;
};

}  // namespace agent::nanomsgtransport
