#pragma once

#include "agent/nanomsgtransport/Envelope.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "nanomsgtransport/Frame.h"
#include "nanomsgtransport/PipeEventRelay.h"
#include "nanomsgtransport/SocketSender.h"

#include <boost/functional/hash.hpp>
#include <boost/uuid/uuid.hpp>

#include <nng/nng.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace agent::nanomsgtransport {

// The exchange's machinery behind Exchange (see Exchange.h and Envelope.h).
//
// close() quiesces every user of the socket before nng_close, because nng 1.5.2 strands an
// operation that enters a socket while it closes (see SocketSender.h): sends are cut off,
// the receive aio is stopped, the housekeeper is joined, then the socket is closed.
class Exchange::Router {
public:
    Router();
    ~Router();
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    using NodeGoneHandler = std::function<void(const boost::uuids::uuid& node)>;

    // `announce`: log it as an endpoint containers dial (the directory's own is not).
    std::string listen(const std::string& url, bool announce);
    void close();
    ExchangeStatistics statistics() const;
    void setProbeInterval(std::chrono::milliseconds interval);
    void setBacklogLimit(std::size_t frames);
    // The exchange's own directory container, left out of the statistics.
    void setOwnNode(const boost::uuids::uuid& node);
    // Called on the housekeeping thread, with no lock held, for every container whose
    // connection went (or that said Goodbye) and that has not come back meanwhile.
    // Replacing it (an empty one: none) blocks until a call in progress has returned, so
    // never call this from the handler.
    void setNodeGoneHandler(NodeGoneHandler handler);

private:
    struct PendingKey {
        boost::uuids::uuid requesterNode;
        std::uint64_t correlationId;
        friend bool operator==(const PendingKey& a, const PendingKey& b) noexcept {
            return a.correlationId == b.correlationId && a.requesterNode == b.requesterNode;
        }
    };
    struct PendingKeyHash {
        std::size_t operator()(const PendingKey& k) const noexcept {
            std::size_t seed = boost::hash<boost::uuids::uuid>()(k.requesterNode);
            boost::hash_combine(seed, k.correlationId);
            return seed;
        }
    };
    using UuidHash = boost::hash<boost::uuids::uuid>;

    // One connected container, keyed by its pipe.
    struct Container {
        std::uint32_t pipe = 0;
        boost::uuids::uuid node{};
        std::uint32_t inFlight = 0;        // frames sent to it and not yet credited
        std::deque<nng_msg*> backlog;      // frames waiting for credit
        // Requests routed to it and not yet answered → the address they were sent to.
        std::unordered_map<PendingKey, boost::uuids::uuid, PendingKeyHash> pendingServed;
        std::unordered_set<boost::uuids::uuid, UuidHash> addresses;
    };

    struct Listener {
        std::string url;
        nng_listener listener;
        bool watched = false;  // ipc: probed and restarted when stuck
        unsigned failedProbes = 0;
    };

    struct PipeEvent {
        std::uint32_t pipe;
        nng_pipe_ev event;
    };

    using Outbox = std::vector<nng_msg*>;

    static void onReceive(void* self) noexcept;
    void onPipeEvent(nng_pipe pipe, nng_pipe_ev event) noexcept;

    // Call with routingMutex_ held. Takes ownership of `frame`.
    void route(nng_msg* frame, Outbox& out);
    // Call with routingMutex_ held.
    Container* containerFor(std::uint32_t pipe);
    // Call with routingMutex_ held. Queues `frame` (already addressed) for `target`,
    // respecting its credit. Returns false, keeping ownership with the caller, when the
    // target's backlog is full.
    bool deliver(Container& target, nng_msg* frame, Outbox& out);
    // Call with routingMutex_ held. Sends a frame the exchange originates to `pipe`.
    void answer(Container& target, FrameKind kind, std::uint64_t correlationId,
                const boost::uuids::uuid& about, const boost::uuids::uuid& to,
                const std::string& text, Outbox& out);
    // Call with routingMutex_ held. Answers a requester (by node) with a failure.
    void failRequester(const PendingKey& key, const boost::uuids::uuid& address, const std::string& text,
                       Outbox& out);
    // Call with routingMutex_ held.
    void dropContainer(std::uint32_t pipe, Outbox& out);
    // Call with no lock held.
    void send(Outbox& out) noexcept;

    void housekeeping();
    // Call with no lock held: calls out.
    void reportGoneNodes();
    void probeListeners();
    bool probe(const std::string& url);
    bool stopRequested();
    // Ends every ipc and tcp connection from its own receive path (AcceptedConnections.h)
    // and waits, bounded, until their pipes are gone. Call after the housekeeper stopped.
    void drainConnections();

    nng_socket socket_{};
    nng_aio* receiveAio_ = nullptr;
    PipeEventRelay pipeEvents_;
    SocketSender sender_;

    mutable std::mutex routingMutex_;
    std::unordered_map<std::uint32_t, Container> containers_;
    std::unordered_map<boost::uuids::uuid, std::uint32_t, UuidHash> owners_;  // address → pipe
    std::unordered_set<std::uint32_t> removedPipes_;
    std::deque<std::uint32_t> removedOrder_;
    ExchangeStatistics statistics_;
    std::size_t backlogLimit_ = Envelope::kDefaultBacklogLimit;
    boost::uuids::uuid ownNode_{};
    std::vector<boost::uuids::uuid> goneNodes_;  // dropped, not yet reported

    std::mutex listenersMutex_;
    std::vector<Listener> listeners_;
    std::chrono::milliseconds probeInterval_{250};
    // Only the housekeeping thread probes.
    boost::uuids::uuid probeNode_{};
    std::uint64_t probeCount_ = 0;

    std::mutex eventsMutex_;
    std::condition_variable eventsChanged_;
    std::deque<PipeEvent> events_;
    std::unordered_set<std::uint32_t> connectedPipes_;  // ipc and tcp pipes not yet removed
    std::unordered_set<std::uint32_t> removedEarly_;    // removed before their arrival was seen
    bool nodesGone_ = false;                            // goneNodes_ has news for the housekeeper
    bool stopping_ = false;

    std::mutex nodeGoneMutex_;
    std::condition_variable nodeGoneReturned_;
    NodeGoneHandler nodeGoneHandler_;
    bool reportingGoneNodes_ = false;

    std::mutex closeMutex_;
    bool closed_ = false;
    std::thread housekeeper_;
};

}  // namespace agent::nanomsgtransport
