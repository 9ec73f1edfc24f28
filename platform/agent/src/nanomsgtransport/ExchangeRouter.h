#pragma once

#include "agent/nanomsgtransport/Envelope.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "nanomsgtransport/Frame.h"
#include "nanomsgtransport/ListenerProbe.h"
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
// Closing works around two faults of nng 1.5.2.
// (1) An operation that enters a socket while it closes is stranded (SocketSender.h), so
// every user of the socket is quiesced before nng_close: the housekeeper is joined, sends
// are cut off, the receive aio is stopped.
// (2) An ipc (or tcp) pipe closed locally while its receive callback runs strands the
// protocol's receive for good: the callback re-arms the read of the frame's body (or of
// the next frame) on an aio the close has just stopped, nng silently refuses it, and the
// reaper then waits for that receive in the protocol's pipe_stop forever, so nng_close
// never returns and every later pipe teardown in the process stalls behind it.
// Reproduction with nothing but nng (libnng 1.5.2-2): a raw REQ peer dialing ipc:// and
// sending without pause; in a loop, open a raw REP socket, listen on that path, read for
// 20 ms, stop the read and nng_close the socket. Within about a hundred iterations
// nng_close blocks for good. A connection that ends from its own receive path is torn
// down safely (the read fails, nng closes the pipe from that callback). So the exchange
// never closes a live connection itself: it says Goodbye to every container, which then
// hangs up (Envelope.h), and our side ends by reading the end of the stream; one that
// does not is sent a hang-up after a while, an empty message on which its nng drops the
// connection from its receive path. Only once every ipc or tcp connection that may still
// carry frames is gone (or after a bounded wait, for a peer that does not read) is the
// socket closed; a connection that never spoke is closed with it, nothing arriving on
// it.
// (3) Closing a listener while it accepts a connection leaks both descriptors, so no
// container may be connecting then: a container closes its dialer on our Goodbye
// (nng would redial at once otherwise) and dials again after a pause. And our own
// listener probe is never cut short (ListenerProbe.h). Left to chance: an unrelated
// container that connects in the moment the socket closes, and one so slow to act on
// our Goodbye that it hangs up just as our hang-up arrives.
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
    // Stops routing and says Goodbye to every container (a connection that never spoke is
    // hung up on at once). Call after the housekeeper stopped.
    void sayGoodbyeToEverybody();
    // Call with routingMutex_ held, once closing. A newcomer's first frame earns it a
    // Goodbye (a hang-up, if it is not one of ours); everything else is dropped. Takes
    // ownership of `frame`.
    void takeLeave(nng_msg* frame, Outbox& out);
    // Hangs up on every awaited connection not yet hung up on.
    void hangUpStragglers();
    // Waits, bounded, until every ipc and tcp connection is gone, hanging up on the
    // stragglers now and then.
    void waitForHangUps();

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
    bool closing_ = false;                          // routes nothing more (sayGoodbyeToEverybody)
    std::unordered_set<std::uint32_t> toldGoodbye_;  // pipes sent a Goodbye while closing
    std::unordered_set<std::uint32_t> hungUp_;       // pipes sent a hang-up while closing
    std::vector<std::uint32_t> newTalkers_;          // newcomers that spoke, not yet awaited
    std::size_t backlogLimit_ = Envelope::kDefaultBacklogLimit;
    boost::uuids::uuid ownNode_{};
    std::vector<boost::uuids::uuid> goneNodes_;  // dropped, not yet reported

    std::mutex listenersMutex_;
    std::vector<Listener> listeners_;
    std::chrono::milliseconds probeInterval_{250};
    ListenerProbe probe_;  // only the housekeeping thread probes

    std::mutex eventsMutex_;
    std::condition_variable eventsChanged_;
    std::deque<PipeEvent> events_;
    std::unordered_map<std::uint32_t, bool> pipes_;     // every pipe not yet removed → over ipc or tcp
    // Closing: the ipc and tcp connections that may still have frames arriving (connected
    // when closing began, or spoke since), which must end before the socket closes.
    std::unordered_set<std::uint32_t> awaited_;
    std::unordered_set<std::uint32_t> removedEarly_;    // removed before their arrival was seen
    bool nodesGone_ = false;                            // goneNodes_ has news for the housekeeper
    bool stopping_ = false;  // closing: no more housekeeping

    std::mutex nodeGoneMutex_;
    std::condition_variable nodeGoneReturned_;
    NodeGoneHandler nodeGoneHandler_;
    bool reportingGoneNodes_ = false;

    std::mutex closeMutex_;
    bool closed_ = false;
    std::thread housekeeper_;
};

}  // namespace agent::nanomsgtransport
