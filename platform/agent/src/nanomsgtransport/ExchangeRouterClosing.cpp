// The exchange's closing protocol (ExchangeRouter.h): Goodbye to every container, wait for
// them to hang up, hang up on the stragglers, and only then close the socket.

#include "nanomsgtransport/ExchangeRouter.h"

#include "nanomsgtransport/Loggers.h"

#include "foundation/log/Severity.h"

namespace agent::nanomsgtransport {

namespace severity = foundation::log::severity;

namespace {

// A container hangs up on our Goodbye at once; one that has not after this long
// (stalled, or not one of ours) is hung up on.
constexpr std::chrono::milliseconds kGoodbyeWait{500};
// A container hangs up as soon as its receive path reads our hang-up; only one that
// does not read (stopped, stalled) makes us wait this long.
constexpr std::chrono::milliseconds kHangUpWait{2000};

// The exchange is closing (Envelope.h). Throws what makeFrame throws.
NngMessagePtr makeGoodbye(const boost::uuids::uuid& node) {
    Envelope goodbye;
    goodbye.kind = FrameKind::Goodbye;
    goodbye.flags = FrameFlags::fromExchange;
    goodbye.destinationAddress = node;
    return makeFrame(goodbye, nullptr, 0);
}

}  // namespace

void Exchange::Router::close() {
    {
        std::lock_guard<std::mutex> lock(closeMutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
    }
    // The connections end from their own receive path while we still read (ExchangeRouter.h).
    // Then nobody may be inside nng on this socket when it closes (SocketSender.h): the
    // housekeeper, which also owns the listeners, went first; then the senders; then the
    // receive callback (once stopped, the aio never starts again).
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        stopping_ = true;
    }
    eventsChanged_.notify_all();
    if (housekeeper_.joinable()) {
        housekeeper_.join();
    }
    sayGoodbyeToEverybody();
    waitForHangUps();
    sender_.close();
    nng_aio_stop(receiveAio_);
    nng_close(socket_);
    pipeEvents_.detach();
    nng_aio_free(receiveAio_);
    receiveAio_ = nullptr;
    std::lock_guard<std::mutex> lock(routingMutex_);
    for (auto& [pipe, container] : containers_) {
        for (nng_msg* frame : container.backlog) {
            nng_msg_free(frame);
        }
    }
    containers_.clear();
    owners_.clear();
    statistics_.connectedContainers = 0;
}

void Exchange::Router::sayGoodbyeToEverybody() {
    std::vector<std::uint32_t> pipes;
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        for (const auto& [pipe, remote] : pipes_) {
            pipes.push_back(pipe);
            if (remote) {
                awaited_.insert(pipe);
            }
        }
    }
    Outbox out;
    {
        std::lock_guard<std::mutex> lock(routingMutex_);
        closing_ = true;
        for (auto pipe : pipes) {
            try {
                // Past credit and backlog: the backlog is dropped (its requesters fail their
                // requests when they hang up), and two frames beyond the credit window still
                // fit nng's queue of 64 per pipe.
                auto it = containers_.find(pipe);
                if (it != containers_.end()) {
                    for (nng_msg* frame : it->second.backlog) {
                        nng_msg_free(frame);
                    }
                    it->second.backlog.clear();
                }
                if (it != containers_.end() && !it->second.node.is_nil()) {
                    if (auto goodbye = makeGoodbye(it->second.node); addressToPipe(goodbye.get(), pipe)) {
                        out.push_back(goodbye.release());
                    }
                    toldGoodbye_.insert(pipe);
                } else if (hungUp_.insert(pipe).second) {
                    // It never spoke, so nothing of it is arriving: no need to wait for it.
                    out.push_back(makeHangUp(pipe).release());
                }
            } catch (const std::exception& e) {
                FOUNDATION_LOG(exchangeLogger(), severity::error)
                    << "Cannot tell the connection on pipe " << pipe << " goodbye: " << e.what();
            }
        }
    }
    send(out);
}

// Call with routingMutex_ held, after closing began. Takes ownership of `raw`.
void Exchange::Router::takeLeave(nng_msg* raw, Outbox& out) {
    NngMessagePtr frame(raw);
    const auto pipe = static_cast<std::uint32_t>(nng_pipe_id(nng_msg_get_pipe(raw)));
    if (hungUp_.count(pipe) != 0) {
        return;
    }
    Envelope envelope;
    try {
        envelope = decodeEnvelope(static_cast<const std::uint8_t*>(nng_msg_body(raw)), nng_msg_len(raw));
    } catch (const EnvelopeError&) {
        envelope.sourceNode = {};  // not one of ours: no goodbye, just the hang-up
    }
    if (!toldGoodbye_.insert(pipe).second) {
        return;  // it was told and hangs up by itself
    }
    // A container that connected after we said goodbye: tell it too (and wait for it).
    newTalkers_.push_back(pipe);
    if (!envelope.sourceNode.is_nil()) {
        if (auto goodbye = makeGoodbye(envelope.sourceNode); addressToPipe(goodbye.get(), pipe)) {
            out.push_back(goodbye.release());
        }
        return;
    }
    hungUp_.insert(pipe);  // not one of ours: it cannot be told
    out.push_back(makeHangUp(pipe).release());
}

void Exchange::Router::hangUpStragglers() {
    std::vector<std::uint32_t> pipes;
    {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        pipes.assign(awaited_.begin(), awaited_.end());
    }
    Outbox out;
    {
        std::lock_guard<std::mutex> lock(routingMutex_);
        for (auto pipe : pipes) {
            try {
                if (hungUp_.insert(pipe).second) {
                    out.push_back(makeHangUp(pipe).release());
                }
            } catch (const std::exception& e) {
                FOUNDATION_LOG(exchangeLogger(), severity::error)
                    << "Cannot hang up on the connection on pipe " << pipe << ": " << e.what();
            }
        }
    }
    send(out);
}

void Exchange::Router::waitForHangUps() {
    const auto remote = [this] { return awaited_.size(); };
    const auto giveUp = std::chrono::steady_clock::now() + kHangUpWait;
    auto nudge = std::chrono::steady_clock::now() + kGoodbyeWait;
    std::unique_lock<std::mutex> lock(eventsMutex_);
    while (!eventsChanged_.wait_until(lock, std::min(nudge, giveUp), [&] { return remote() == 0; })) {
        if (std::chrono::steady_clock::now() >= giveUp) {
            const auto left = remote();
            lock.unlock();
            FOUNDATION_LOG(exchangeLogger(), severity::warning)
                << left << " connections did not hang up within " << kHangUpWait.count()
                << " ms; closing the exchange anyway";
            return;
        }
        lock.unlock();
        hangUpStragglers();
        lock.lock();
        nudge = std::chrono::steady_clock::now() + kGoodbyeWait;
    }
}

}  // namespace agent::nanomsgtransport
