#include "nanomsgtransport/ExchangeRouter.h"

#include "nanomsgtransport/Loggers.h"

#include "foundation/log/Severity.h"

#include <nng/protocol/reqrep0/rep.h>

#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <stdexcept>

namespace agent::nanomsgtransport {

namespace severity = foundation::log::severity;

namespace {

constexpr std::size_t kRemovedPipesRemembered = 4096;
// Two missed probes in a row (ListenerProbe.h) mean a listener has stopped accepting.
constexpr unsigned kProbesBeforeRestart = 2;

std::string text(const boost::uuids::uuid& id) {
    return boost::uuids::to_string(id);
}

}  // namespace

Exchange::Router::Router() {
    if (int rv = nng_rep0_open_raw(&socket_); rv != 0) {
        throw std::runtime_error(nngFailure("Cannot open the exchange socket", rv));
    }
    nng_socket_set_int(socket_, NNG_OPT_SENDBUF, 8192);
    nng_socket_set_int(socket_, NNG_OPT_RECVBUF, 1024);
    nng_socket_set_size(socket_, NNG_OPT_RECVMAXSZ, Envelope::kMaxFrameSize);
    try {
        pipeEvents_.attach(socket_, {NNG_PIPE_EV_ADD_PRE, NNG_PIPE_EV_REM_POST},
                           [this](nng_pipe pipe, nng_pipe_ev event) { onPipeEvent(pipe, event); });
    } catch (const std::exception&) {
        nng_close(socket_);
        throw std::runtime_error(nngFailure("Cannot open the exchange socket", NNG_ENOMEM));
    }
    if (int rv = nng_aio_alloc(&receiveAio_, &Router::onReceive, this); rv != 0) {
        nng_close(socket_);
        pipeEvents_.detach();
        throw std::runtime_error(nngFailure("Cannot open the exchange socket", rv));
    }
    sender_.open(socket_);
    housekeeper_ = std::thread([this] { housekeeping(); });
    nng_recv_aio(socket_, receiveAio_);
}

Exchange::Router::~Router() {
    close();
}

std::string Exchange::Router::listen(const std::string& url, bool announce) {
    {
        std::lock_guard<std::mutex> lock(closeMutex_);
        if (closed_) {
            throw std::logic_error("Exchange is closed");
        }
    }
    nng_listener listener;
    if (int rv = nng_listener_create(&listener, socket_, url.c_str()); rv != 0) {
        throw std::runtime_error(nngFailure("Cannot listen on " + url, rv));
    }
    nng_listener_set_size(listener, NNG_OPT_RECVMAXSZ, Envelope::kMaxFrameSize);
    if (int rv = nng_listener_start(listener, 0); rv != 0) {
        nng_listener_close(listener);
        throw std::runtime_error(nngFailure("Cannot listen on " + url, rv));
    }
    std::string bound = url;
    char* resolved = nullptr;
    if (nng_listener_get_string(listener, NNG_OPT_URL, &resolved) == 0) {
        bound = resolved;
        nng_strfree(resolved);
    }
    {
        std::lock_guard<std::mutex> lock(listenersMutex_);
        listeners_.push_back(Listener{bound, listener, url.rfind("ipc://", 0) == 0, 0});
    }
    FOUNDATION_LOG(exchangeLogger(), announce ? severity::info : severity::debug) << "Exchange listening on " << bound;
    return bound;
}

void Exchange::Router::setProbeInterval(std::chrono::milliseconds interval) {
    std::lock_guard<std::mutex> lock(listenersMutex_);
    probeInterval_ = interval;
}

void Exchange::Router::setBacklogLimit(std::size_t frames) {
    std::lock_guard<std::mutex> lock(routingMutex_);
    backlogLimit_ = frames;
}

void Exchange::Router::setOwnNode(const boost::uuids::uuid& node) {
    std::lock_guard<std::mutex> lock(routingMutex_);
    ownNode_ = node;
}

void Exchange::Router::setNodeGoneHandler(NodeGoneHandler handler) {
    std::unique_lock<std::mutex> lock(nodeGoneMutex_);
    nodeGoneReturned_.wait(lock, [this] { return !reportingGoneNodes_; });
    nodeGoneHandler_ = std::move(handler);
}

ExchangeStatistics Exchange::Router::statistics() const {
    std::lock_guard<std::mutex> lock(routingMutex_);
    auto copy = statistics_;
    copy.connectedContainers = static_cast<std::size_t>(
        std::count_if(containers_.begin(), containers_.end(), [this](const auto& entry) {
            return ownNode_.is_nil() || entry.second.node != ownNode_;
        }));
    return copy;
}

void Exchange::Router::onReceive(void* arg) noexcept {
    auto* self = static_cast<Router*>(arg);
    const int rv = nng_aio_result(self->receiveAio_);
    if (rv == NNG_ECLOSED || rv == NNG_ECANCELED) {
        return;
    }
    if (rv == 0) {
        nng_msg* frame = nng_aio_get_msg(self->receiveAio_);
        Outbox out;
        bool nodesGone = false;
        std::vector<std::uint32_t> talkers;
        try {
            std::lock_guard<std::mutex> lock(self->routingMutex_);
            self->route(frame, out);
            nodesGone = !self->goneNodes_.empty();
            talkers.swap(self->newTalkers_);
        } catch (const std::exception& e) {
            // Out of memory while routing: the frame is gone, the exchange goes on.
            FOUNDATION_LOG(exchangeLogger(), severity::error) << "Dropped a frame: " << e.what();
        }
        self->send(out);
        if (!talkers.empty()) {
            std::lock_guard<std::mutex> lock(self->eventsMutex_);
            for (auto pipe : talkers) {
                if (auto it = self->pipes_.find(pipe); it != self->pipes_.end() && it->second) {
                    self->awaited_.insert(pipe);
                }
            }
        }
        if (nodesGone) {
            // A Goodbye: the directory's clean-up is the housekeeper's, off nng's threads.
            {
                std::lock_guard<std::mutex> lock(self->eventsMutex_);
                self->nodesGone_ = true;
            }
            self->eventsChanged_.notify_all();
        }
    } else {
        FOUNDATION_LOG(exchangeLogger(), severity::error) << nngFailure("Receiving failed", rv);
    }
    nng_recv_aio(self->socket_, self->receiveAio_);
}

void Exchange::Router::onPipeEvent(nng_pipe pipe, nng_pipe_ev event) noexcept {
    // Runs on nng's threads (REM_POST on the reaper): only record the event. (Turning a
    // newcomer away here while closing would be natural, but nng 1.5.2 now and then leaks
    // the listener's and the connection's descriptors when a pipe is closed in ADD_PRE;
    // route() hangs up on newcomers instead.)
    const auto id = static_cast<std::uint32_t>(nng_pipe_id(pipe));
    try {
        if (event == NNG_PIPE_EV_ADD_PRE) {
            nng_sockaddr remote{};
            const bool inproc = nng_pipe_get_addr(pipe, NNG_OPT_REMADDR, &remote) == 0 &&
                                remote.s_family == NNG_AF_INPROC;
            std::lock_guard<std::mutex> lock(eventsMutex_);
            if (removedEarly_.erase(id) == 0) {
                pipes_.emplace(id, !inproc);
            }
            return;
        }
        std::lock_guard<std::mutex> lock(eventsMutex_);
        if (pipes_.erase(id) == 0) {
            removedEarly_.insert(id);
        }
        awaited_.erase(id);
        events_.push_back(PipeEvent{id, event});
    } catch (...) {
        return;
    }
    eventsChanged_.notify_all();
}

Exchange::Router::Container* Exchange::Router::containerFor(std::uint32_t pipe) {
    if (auto it = containers_.find(pipe); it != containers_.end()) {
        return &it->second;
    }
    if (removedPipes_.count(pipe) != 0) {
        return nullptr;  // a late frame of a connection already gone
    }
    auto& container = containers_[pipe];
    container.pipe = pipe;
    return &container;
}

void Exchange::Router::route(nng_msg* raw, Outbox& out) {
    NngMessagePtr frame(raw);
    if (closing_) {
        takeLeave(frame.release(), out);
        return;
    }
    const auto pipe = static_cast<std::uint32_t>(nng_pipe_id(nng_msg_get_pipe(raw)));
    Envelope envelope;
    try {
        envelope = decodeEnvelope(static_cast<const std::uint8_t*>(nng_msg_body(raw)), nng_msg_len(raw));
    } catch (const EnvelopeError& e) {
        ++statistics_.malformedFrames;
        FOUNDATION_LOG(exchangeLogger(), severity::error)
            << "Dropped a malformed frame from pipe " << pipe << ": " << e.what();
        return;
    }
    Container* source = containerFor(pipe);
    if (source == nullptr) {
        return;
    }
    source->inFlight -= std::min(source->inFlight, envelope.credit);
    while (!source->backlog.empty() && source->inFlight < Envelope::kCreditWindow) {
        out.push_back(source->backlog.front());
        source->backlog.pop_front();
        ++source->inFlight;
    }
    if (envelope.sourceNode.is_nil()) {
        ++statistics_.malformedFrames;
        FOUNDATION_LOG(exchangeLogger(), severity::error)
            << "Dropped a " << frameKindName(envelope.kind) << " frame without a source node from pipe " << pipe;
        return;
    }
    if (source->node != envelope.sourceNode) {
        if (!source->node.is_nil()) {
            ++statistics_.malformedFrames;
            FOUNDATION_LOG(exchangeLogger(), severity::error)
                << "Dropped a frame from pipe " << pipe << " claiming node " << text(envelope.sourceNode)
                << " while it is node " << text(source->node);
            return;
        }
        // The node id is the address replies to this container are routed to. A newer
        // connection of the same node takes over from one not yet reported gone.
        source->node = envelope.sourceNode;
        owners_[envelope.sourceNode] = pipe;
    }

    switch (envelope.kind) {
        case FrameKind::Hello:
            answer(*source, FrameKind::Welcome, envelope.correlationId, {}, source->node, {}, out);
            return;
        case FrameKind::Register: {
            const auto& address = envelope.sourceAddress;
            auto owner = owners_.find(address);
            if (address.is_nil()) {
                answer(*source, FrameKind::Failure, envelope.correlationId, address, source->node,
                       "Cannot register the nil address", out);
            } else if (owner != owners_.end() && owner->second != pipe &&
                       containers_.count(owner->second) != 0 && containers_[owner->second].node != source->node) {
                answer(*source, FrameKind::Failure, envelope.correlationId, address, source->node,
                       "Address " + text(address) + " is registered by another container", out);
            } else {
                owners_[address] = pipe;
                source->addresses.insert(address);
                answer(*source, FrameKind::Registered, envelope.correlationId, address, source->node, {}, out);
            }
            return;
        }
        case FrameKind::Unregister: {
            auto owner = owners_.find(envelope.sourceAddress);
            if (owner != owners_.end() && owner->second == pipe && envelope.sourceAddress != source->node) {
                owners_.erase(owner);
            }
            source->addresses.erase(envelope.sourceAddress);
            return;
        }
        case FrameKind::Request: {
            const PendingKey key{source->node, envelope.correlationId};
            const auto& destination = envelope.destinationAddress;
            auto owner = owners_.find(destination);
            auto target = owner == owners_.end() ? containers_.end() : containers_.find(owner->second);
            if (target == containers_.end()) {
                ++statistics_.unknownDestinations;
                answer(*source, FrameKind::Failure, envelope.correlationId, destination, source->node,
                       "No service is registered at address " + text(destination), out);
                return;
            }
            if (!addressToPipe(frame.get(), target->first)) {
                answer(*source, FrameKind::Failure, envelope.correlationId, destination, source->node,
                       "The exchange could not route the request", out);
                return;
            }
            target->second.pendingServed[key] = destination;
            if (!deliver(target->second, frame.get(), out)) {
                target->second.pendingServed.erase(key);
                ++statistics_.backlogRefusals;
                answer(*source, FrameKind::Failure, envelope.correlationId, destination, source->node,
                       "The service at address " + text(destination) + " is not keeping up with its requests",
                       out);
                return;
            }
            frame.release();
            ++statistics_.framesRouted;
            return;
        }
        case FrameKind::Reply:
        case FrameKind::Failure: {
            const auto& requester = envelope.destinationAddress;
            source->pendingServed.erase(PendingKey{requester, envelope.correlationId});
            auto owner = owners_.find(requester);
            auto target = owner == owners_.end() ? containers_.end() : containers_.find(owner->second);
            if (target == containers_.end()) {
                FOUNDATION_LOG(exchangeLogger(), severity::debug)
                    << "Dropped a " << frameKindName(envelope.kind) << " for " << text(requester)
                    << ", which is no longer connected";
                return;
            }
            if (!addressToPipe(frame.get(), target->first) || !deliver(target->second, frame.get(), out)) {
                ++statistics_.droppedFrames;
                FOUNDATION_LOG(exchangeLogger(), severity::error)
                    << "Dropped a " << frameKindName(envelope.kind) << " for " << text(requester)
                    << ": that container is not reading its messages";
                return;
            }
            frame.release();
            ++statistics_.framesRouted;
            return;
        }
        case FrameKind::Credit:
            return;
        case FrameKind::Goodbye: {
            // Straight out, past credit and backlog: nothing may follow it on this pipe.
            Envelope farewell;
            farewell.kind = FrameKind::Farewell;
            farewell.flags = FrameFlags::fromExchange;
            farewell.correlationId = envelope.correlationId;
            farewell.destinationAddress = source->node;
            auto answer = makeFrame(farewell, nullptr, 0);
            dropContainer(pipe, out);
            if (addressToPipe(answer.get(), pipe)) {
                out.push_back(answer.release());
            }
            return;
        }
        case FrameKind::Welcome:
        case FrameKind::Registered:
        case FrameKind::Farewell:
            ++statistics_.malformedFrames;
            FOUNDATION_LOG(exchangeLogger(), severity::error)
                << "Dropped a " << frameKindName(envelope.kind) << " frame sent to the exchange from pipe " << pipe;
            return;
    }
}

bool Exchange::Router::deliver(Container& target, nng_msg* frame, Outbox& out) {
    if (target.inFlight < Envelope::kCreditWindow && target.backlog.empty()) {
        ++target.inFlight;
        out.push_back(frame);
        return true;
    }
    if (target.backlog.size() >= backlogLimit_) {
        return false;
    }
    target.backlog.push_back(frame);
    return true;
}

void Exchange::Router::answer(Container& target, FrameKind kind, std::uint64_t correlationId,
                              const boost::uuids::uuid& about, const boost::uuids::uuid& to,
                              const std::string& reason, Outbox& out) {
    Envelope envelope;
    envelope.kind = kind;
    envelope.flags = FrameFlags::fromExchange;
    envelope.correlationId = correlationId;
    envelope.sourceAddress = about;
    envelope.destinationAddress = to;
    auto frame = makeFrame(envelope, reason.data(), reason.size());
    if (!addressToPipe(frame.get(), target.pipe) || !deliver(target, frame.get(), out)) {
        ++statistics_.droppedFrames;
        FOUNDATION_LOG(exchangeLogger(), severity::error)
            << "Dropped the exchange's " << frameKindName(kind) << " for " << text(to)
            << ": that container is not reading its messages";
        return;
    }
    frame.release();
}

void Exchange::Router::failRequester(const PendingKey& key, const boost::uuids::uuid& address,
                                     const std::string& reason, Outbox& out) {
    auto owner = owners_.find(key.requesterNode);
    if (owner == owners_.end()) {
        return;
    }
    auto requester = containers_.find(owner->second);
    if (requester == containers_.end()) {
        return;
    }
    answer(requester->second, FrameKind::Failure, key.correlationId, address, key.requesterNode, reason, out);
}

void Exchange::Router::dropContainer(std::uint32_t pipe, Outbox& out) {
    if (removedPipes_.insert(pipe).second) {
        removedOrder_.push_back(pipe);
        if (removedOrder_.size() > kRemovedPipesRemembered) {
            removedPipes_.erase(removedOrder_.front());
            removedOrder_.pop_front();
        }
    }
    auto it = containers_.find(pipe);
    if (it == containers_.end()) {
        return;
    }
    Container gone = std::move(it->second);
    containers_.erase(it);
    for (const auto& address : gone.addresses) {
        if (auto owner = owners_.find(address); owner != owners_.end() && owner->second == pipe) {
            owners_.erase(owner);
        }
    }
    if (auto owner = owners_.find(gone.node); owner != owners_.end() && owner->second == pipe) {
        owners_.erase(owner);
    }
    if (!gone.node.is_nil()) {
        goneNodes_.push_back(gone.node);
    }
    for (nng_msg* frame : gone.backlog) {
        nng_msg_free(frame);
    }
    for (const auto& [key, address] : gone.pendingServed) {
        ++statistics_.failedOnDisconnect;
        failRequester(key, address,
                      "The service at address " + text(address) + " went away before replying", out);
    }
    FOUNDATION_LOG(exchangeLogger(), severity::debug)
        << "Container " << text(gone.node) << " on pipe " << pipe << " disconnected; "
        << gone.pendingServed.size() << " pending requests failed";
}

void Exchange::Router::send(Outbox& out) noexcept {
    for (nng_msg* frame : out) {
        // Raw REP queues up to NNG_OPT_SENDBUF frames for its pipes; the credit window keeps
        // us far below that, so this blocks only in pathological cases (and close cuts it).
        if (int rv = sender_.send(frame, NNG_DURATION_INFINITE); rv != 0 && rv != NNG_ECLOSED && rv != NNG_ECANCELED) {
            FOUNDATION_LOG(exchangeLogger(), severity::error) << nngFailure("Sending a frame failed", rv);
        }
    }
    out.clear();
}

void Exchange::Router::housekeeping() {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    auto nextProbe = std::chrono::steady_clock::now();
    {
        std::lock_guard<std::mutex> listenersLock(listenersMutex_);
        nextProbe += probeInterval_;  // a listener just made is fine
    }
    while (!stopping_) {
        if (events_.empty() && !nodesGone_) {
            eventsChanged_.wait_until(lock, nextProbe, [this] { return stopping_ || !events_.empty() || nodesGone_; });
        }
        if (stopping_) {
            break;
        }
        auto events = std::move(events_);
        events_.clear();
        nodesGone_ = false;
        lock.unlock();
        Outbox out;
        try {
            std::lock_guard<std::mutex> routingLock(routingMutex_);
            for (const auto& event : events) {
                if (event.event == NNG_PIPE_EV_REM_POST) {
                    dropContainer(event.pipe, out);
                }
            }
        } catch (const std::exception& e) {
            FOUNDATION_LOG(exchangeLogger(), severity::error) << "Cleaning up after a container failed: " << e.what();
        }
        send(out);
        reportGoneNodes();
        if (std::chrono::steady_clock::now() >= nextProbe) {
            probeListeners();
            std::lock_guard<std::mutex> listenersLock(listenersMutex_);
            nextProbe = std::chrono::steady_clock::now() + probeInterval_;
        }
        lock.lock();
    }
}

void Exchange::Router::reportGoneNodes() {
    std::vector<boost::uuids::uuid> gone;
    {
        std::lock_guard<std::mutex> lock(routingMutex_);
        gone.swap(goneNodes_);
        // A node that came back on a newer connection (an exchange restart, a listener
        // restart) keeps what it registered.
        gone.erase(std::remove_if(gone.begin(), gone.end(),
                                  [this](const boost::uuids::uuid& node) {
                                      auto owner = owners_.find(node);
                                      return owner != owners_.end() && containers_.count(owner->second) != 0;
                                  }),
                   gone.end());
    }
    if (gone.empty()) {
        return;
    }
    NodeGoneHandler handler;
    {
        std::lock_guard<std::mutex> lock(nodeGoneMutex_);
        if (!nodeGoneHandler_) {
            return;
        }
        handler = nodeGoneHandler_;
        reportingGoneNodes_ = true;
    }
    for (const auto& node : gone) {
        try {
            handler(node);
        } catch (const std::exception& e) {
            FOUNDATION_LOG(exchangeLogger(), severity::error)
                << "Cleaning up after container " << text(node) << " failed: " << e.what();
        }
    }
    {
        std::lock_guard<std::mutex> lock(nodeGoneMutex_);
        reportingGoneNodes_ = false;
    }
    nodeGoneReturned_.notify_all();
}

void Exchange::Router::probeListeners() {
    std::vector<std::string> urls;
    {
        std::lock_guard<std::mutex> lock(listenersMutex_);
        for (const auto& listener : listeners_) {
            if (listener.watched) {
                urls.push_back(listener.url);
            }
        }
    }
    for (const auto& url : urls) {
        const bool alive = probe_.answers(url);
        std::lock_guard<std::mutex> lock(listenersMutex_);
        auto listener = std::find_if(listeners_.begin(), listeners_.end(),
                                     [&](const Listener& l) { return l.url == url; });
        if (listener == listeners_.end()) {
            continue;
        }
        listener->failedProbes = alive ? 0 : listener->failedProbes + 1;
        if (listener->failedProbes < kProbesBeforeRestart) {
            continue;
        }
        // nng 1.5.2 stops accepting on an ipc listener after a peer hangs up during the
        // handshake; only a new listener accepts again.
        FOUNDATION_LOG(exchangeLogger(), severity::warning)
            << "The listener on " << url << " stopped accepting connections; restarting it";
        nng_listener_close(listener->listener);
        nng_listener replacement;
        int rv = nng_listener_create(&replacement, socket_, url.c_str());
        if (rv == 0) {
            nng_listener_set_size(replacement, NNG_OPT_RECVMAXSZ, Envelope::kMaxFrameSize);
            rv = nng_listener_start(replacement, 0);
            if (rv != 0) {
                nng_listener_close(replacement);
            }
        }
        if (rv != 0) {
            FOUNDATION_LOG(exchangeLogger(), severity::error) << nngFailure("Cannot listen again on " + url, rv);
            continue;  // probed and retried next round
        }
        listener->listener = replacement;
        listener->failedProbes = 0;
        std::lock_guard<std::mutex> routingLock(routingMutex_);
        ++statistics_.listenerRestarts;
    }
}

}  // namespace agent::nanomsgtransport
