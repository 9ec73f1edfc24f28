#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace agent::directory {
class DirectoryCore;
}

namespace agent::nanomsgtransport {

class HostedDirectory;

// Counters of an exchange, for tests and diagnostics.
struct ExchangeStatistics {
    std::uint64_t framesRouted = 0;
    std::uint64_t malformedFrames = 0;      // dropped with a logged error
    std::uint64_t unknownDestinations = 0;  // answered with a failure
    std::uint64_t backlogRefusals = 0;      // requests refused because a container lags too far
    std::uint64_t droppedFrames = 0;        // non-requests refused for the same reason (logged)
    std::uint64_t failedOnDisconnect = 0;   // pending requests failed because their server went
    std::uint64_t listenerRestarts = 0;     // ipc listeners recreated by the watchdog
    std::size_t connectedContainers = 0;    // not counting the exchange's own directory
};

// The broker containers dial (see Envelope.h for the design and the wire format). It
// routes every frame by destination address, answers requests to unknown addresses with a
// failure at once, and when a container's connection goes it drops that container's
// addresses and fails every request still waiting on it.
//
// Every exchange hosts the directory service at the well-known directory address
// (getWellKnowAddressFor(1)): a container of its own, dialled in over a private
// inproc:// endpoint from the constructor on. When a container's connection goes, its
// directory entries and subscriptions go with it and the subscribers are told.
//
// Routing runs on nng's receive callback (no extra thread hand-off); connection events,
// the ipc listener watchdog, failures on disconnect and the directory's clean-up after a
// lost container run on one housekeeping thread.
// Thread-safe. Lifecycle: construct, listen (once per endpoint), close (idempotent,
// blocking; never call it from a handler of this exchange), destroy (closes).
class Exchange {
public:
    // Opens the socket and starts the directory. Blocks briefly. Throws
    // std::runtime_error("Cannot open the exchange socket: <cause>") or ("Cannot start
    // the exchange's directory: <cause>").
    Exchange();
    ~Exchange();
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    // Listens on `url` (inproc://, ipc://, tcp://; a tcp port 0 is resolved) and returns
    // the URL containers should dial. Blocks briefly. Throws std::runtime_error
    // ("Cannot listen on <url>: <cause>") and std::logic_error after close().
    // An ipc:// listener is watched: nng 1.5.2 stops accepting on it after a peer hangs up
    // during the handshake, so the exchange probes it and recreates it when it is stuck
    // (connected containers reconnect by themselves).
    std::string listen(const std::string& url);

    // Tells every directory subscriber that "directory" stopped (waiting up to a second
    // for them to take it), then closes the connections and the socket. Blocks until
    // nng's callbacks have drained. Idempotent; never throws.
    void close();

    ExchangeStatistics statistics() const;

    // The directory this exchange serves, for tests, benchmarks and tools in the same
    // process. Thread-safe (see DirectoryCore); it outlives close() (shut down).
    std::shared_ptr<directory::DirectoryCore> directory() const noexcept;

    // How often ipc listeners are probed (default 250 ms). Call before listen().
    void setListenerProbeInterval(std::chrono::milliseconds interval);
    // Frames held per container beyond its credit window (default
    // Envelope::kDefaultBacklogLimit). Non-blocking; applies to frames routed afterwards.
    void setBacklogLimit(std::size_t frames);

private:
    class Router;
    std::shared_ptr<Router> router_;
    std::shared_ptr<directory::DirectoryCore> directory_;
    std::unique_ptr<HostedDirectory> hostedDirectory_;
};

}  // namespace agent::nanomsgtransport
