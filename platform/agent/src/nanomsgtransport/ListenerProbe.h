#pragma once

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <string>

namespace agent::nanomsgtransport {

// Tells whether an exchange's listener still accepts connections, by a round trip
// through it: a Hello from a socket of its own must come back as a Welcome (on a stuck
// nng 1.5.2 ipc listener the dialer side still completes its handshake, so only a round
// trip tells).
//
// A probe is never cut short, not even when the exchange closes: one that hangs up
// during the handshake is exactly what leaves an nng 1.5.2 ipc listener stuck (and, at
// close, leaks it with every connection it accepted since). So it may block for up to a
// second when the listener is stuck; a healthy one answers in well under a millisecond.
//
// Not thread-safe: one thread (the exchange's housekeeper) probes.
class ListenerProbe {
public:
    ListenerProbe();

    // Blocks (see above). True when the listener answered, or when the probe could not
    // tell (its own trouble, not the listener's). Never throws.
    bool answers(const std::string& url) noexcept;

private:
    boost::uuids::uuid node_{};  // differs from every container's
    std::uint64_t count_ = 0;
};

}  // namespace agent::nanomsgtransport
