// A container's connection to its exchange: connecting, the orderly and the forced
// disconnect with their closing protocol, and the housekeeping thread (connection events,
// redialing, credit reports, the request timer).

#include "nanomsgtransport/TransportCore.h"

#include "nanomsgtransport/Frame.h"
#include "nanomsgtransport/Loggers.h"

#include "foundation/log/Severity.h"

#include <nng/protocol/reqrep0/req.h>

#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace agent::nanomsgtransport {

namespace severity = foundation::log::severity;
using core::transport::Address;
using core::transport::Message;
using core::transport::ReplyFuture;

namespace {

// How long closing waits for the exchange's Farewell; a stopped exchange never sends it.
constexpr std::chrono::milliseconds kFarewellWait{500};
// How long we stay away from an exchange that said Goodbye. It closes within a few
// milliseconds unless one of its containers does not read.
constexpr std::chrono::milliseconds kPauseAfterGoodbye{100};

}  // namespace

TransportCore::~TransportCore() {
    std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
    joinCloser();
    if (state_.load() == State::Connected) {
        state_ = State::Closing;
        acceptingRequests_ = false;
        failAll("The transport was disconnected");
        closeConnection();
    }
}

// Call with lifecycleMutex_ held.
void TransportCore::joinCloser() {
    if (closer_.joinable()) {
        closer_.join();
    }
}

bool TransportCore::isConnected() const noexcept {
    return state_.load() == State::Connected && pipeUp_.load();
}

void TransportCore::connect(const std::string& endpoint) {
    std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
    joinCloser();
    if (state_.load() != State::Idle) {
        throw std::logic_error("Transport is already connected");
    }
    const std::string failurePrefix = "Cannot connect to the exchange at " + endpoint;
    nng_socket socket;
    if (int rv = nng_req0_open_raw(&socket); rv != 0) {
        throw std::runtime_error(nngFailure(failurePrefix, rv));
    }
    nng_socket_set_ms(socket, NNG_OPT_SENDTIMEO, static_cast<nng_duration>(connectTimeout_.count()));
    try {
        pipeEvents_.attach(socket, {NNG_PIPE_EV_ADD_POST, NNG_PIPE_EV_REM_POST},
                           [this](nng_pipe pipe, nng_pipe_ev event) { onPipeEvent(pipe, event); });
    } catch (const std::exception&) {
        nng_close(socket);
        pipeEvents_.detach();
        throw std::runtime_error(failurePrefix + ": out of memory");
    }
    if (nng_aio_alloc(&receiveAio_, &TransportCore::onReceive, this) != 0) {
        nng_close(socket);
        pipeEvents_.detach();
        throw std::runtime_error(failurePrefix + ": out of memory");
    }
    socketId_ = socket.id;
    sender_.open(socket);
    endpoint_ = endpoint;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        stopping_ = false;
        creditWanted_ = false;
        events_.clear();
        currentPipe_ = 0;
        closingPipe_ = 0;
        leaveClosingExchange_ = false;
        pausing_ = false;
    }
    housekeeper_ = std::thread([this] { housekeeping(); });
    state_ = State::Connected;
    acceptingRequests_ = true;

    // Synchronous, so an unreachable exchange is reported here; once connected the dialer
    // redials by itself whenever the connection drops.
    nng_dialer dialer;
    if (int rv = startDialer(socket, 0, dialer); rv != 0) {
        closeConnection();
        throw std::runtime_error(nngFailure(failurePrefix, rv));
    }
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        dialer_ = dialer;
    }
    pipeUp_ = true;
    nng_recv_aio(socket, receiveAio_);
    try {
        waitForControl(sendControl(FrameKind::Hello, {}), "it did not answer");
        std::vector<boost::uuids::uuid> addresses;
        {
            std::shared_lock<std::shared_mutex> lock(handlersMutex_);
            for (const auto& [address, entry] : handlers_) {
                addresses.push_back(address.getUUID());
            }
        }
        for (const auto& address : addresses) {
            waitForControl(sendControl(FrameKind::Register, address), "it did not confirm an address");
        }
    } catch (const std::exception& e) {
        closeConnection();
        throw std::runtime_error(failurePrefix + ": " + e.what());
    }
}

int TransportCore::startDialer(nng_socket socket, int flags, nng_dialer& dialer) {
    int rv = nng_dialer_create(&dialer, socket, endpoint_.c_str());
    if (rv != 0) {
        return rv;
    }
    nng_dialer_set_ms(dialer, NNG_OPT_RECONNMINT, 50);
    nng_dialer_set_ms(dialer, NNG_OPT_RECONNMAXT, 1000);
    nng_dialer_set_size(dialer, NNG_OPT_RECVMAXSZ, Envelope::kMaxFrameSize);
    rv = nng_dialer_start(dialer, flags);
    if (rv != 0 && (flags & NNG_FLAG_NONBLOCK) != 0) {
        nng_dialer_close(dialer);  // a failed synchronous start closes it by itself
    }
    return rv;
}

void TransportCore::endPause() {
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        closingPipe_ = 0;
    }
    nng_dialer dialer;
    const int rv = startDialer(socketOf(socketId_.load()), NNG_FLAG_NONBLOCK, dialer);
    if (rv != 0) {
        FOUNDATION_LOG(transportLogger(), severity::error)
            << nngFailure("Cannot dial the exchange at " + endpoint_ + " again", rv);
    }
    std::lock_guard<std::mutex> lock(pendingMutex_);
    if (rv == 0) {
        dialer_ = dialer;
        pausing_ = false;
    } else {
        pauseEnds_ = Clock::now() + kPauseAfterGoodbye;
    }
}

void TransportCore::waitForControl(ReplyFuture future, const std::string& what) {
    if (future.wait_until(Clock::now() + connectTimeout_) != std::future_status::ready) {
        throw std::runtime_error(what + " within " + std::to_string(connectTimeout_.count()) + " ms");
    }
    future.get();
}

void TransportCore::disconnect(bool orderly) {
    std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
    if (orderly) {
        joinCloser();  // an orderly disconnect returns with the socket closed
    }
    if (state_.load() != State::Connected) {
        return;
    }
    state_ = State::Closing;
    {
        std::lock_guard<std::mutex> lock(activeMutex_);
        acceptingRequests_ = false;
    }
    failAll("The transport was disconnected");
    if (!orderly) {
        // Taking leave may wait for an exchange that does not answer; nothing of the
        // caller's depends on it any more.
        try {
            closer_ = std::thread([this] { closeConnection(); });
            return;
        } catch (const std::system_error&) {
            // no thread to spare: close here
        }
    }
    if (orderly) {
        const unsigned own = servingCore == this ? 1 : 0;
        std::unique_lock<std::mutex> lock(activeMutex_);
        activeChanged_.wait(lock, [&] { return activeHandlers_ <= own; });
    }
    closeConnection();
}

// Call with lifecycleMutex_ held, or on closer_.
void TransportCore::closeConnection() {
    state_ = State::Closing;
    acceptingRequests_ = false;
    // Nobody may be inside nng on this socket when it closes (SocketSender.h), so every
    // user goes first: every sender (callers, pool tasks, the housekeeper), the receive
    // callback (once stopped, the aio never starts again), then the housekeeper. Nothing
    // may be arriving either (ExchangeRouter.h tells what nng 1.5.2 does when an ipc
    // or tcp pipe closes while a frame comes in), so we take leave of the exchange first
    // and close once its Farewell, the last frame it sends us, is in.
    sayGoodbye();
    if (receiveAio_ != nullptr) {
        nng_aio_stop(receiveAio_);
    }
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        stopping_ = true;
    }
    housekeeperWake_.notify_all();
    if (housekeeper_.joinable()) {
        housekeeper_.join();
    }
    // Does not wait for the peer, so a stopped exchange cannot hold us here.
    nng_close(socketOf(socketId_.load()));
    pipeEvents_.detach();
    pipeUp_ = false;
    if (receiveAio_ != nullptr) {
        nng_aio_free(receiveAio_);
        receiveAio_ = nullptr;
    }
    unreportedCredit_ = 0;
    failAll("The transport was disconnected");
    state_ = State::Idle;
}

// Call with lifecycleMutex_ held, or on closer_.
void TransportCore::sayGoodbye() {
    if (receiveAio_ == nullptr || !pipeUp_.load()) {
        sender_.close();  // nothing connected, so nothing in transit
        return;
    }
    const auto wait = std::min(connectTimeout_, kFarewellWait);
    try {
        std::promise<Message> promise;
        ReplyFuture farewell(promise.get_future());
        Envelope goodbye;
        goodbye.kind = FrameKind::Goodbye;
        goodbye.correlationId = addPending(Address(node_), std::move(promise), Clock::now() + wait);
        goodbye.sourceNode = node_;
        goodbye.credit = unreportedCredit_.exchange(0);
        if (sender_.closeWithLastFrame(makeFrame(goodbye, nullptr, 0).release(),
                                       static_cast<nng_duration>(wait.count())) == 0) {
            farewell.wait_until(Clock::now() + wait);  // a stopped exchange never answers
        }
    } catch (const std::exception&) {
        // Out of memory: close without the farewell.
    }
    sender_.close();
}

void TransportCore::onPipeEvent(nng_pipe pipe, nng_pipe_ev event) noexcept {
    // Runs on nng's threads: record the event, act on the housekeeping thread. A dialer has
    // one connection at a time, but the reaper may report an old one's removal after its
    // successor came up; only the current connection's removal counts.
    const auto id = nng_pipe_id(pipe);
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        if (event == NNG_PIPE_EV_ADD_POST && closingPipe_ != 0) {
            // The dialer redialed before we closed it, most likely into the closing
            // exchange: say nothing there; closing the dialer ends it.
            return;
        }
        if (event == NNG_PIPE_EV_ADD_POST) {
            currentPipe_ = id;
            sender_.resume();
            pipeUp_ = true;
        } else if (currentPipe_ == id) {
            currentPipe_ = 0;
            pipeUp_ = false;
            // Sends waiting for a connection would wait out their time-out; nothing they
            // carry means anything to whichever exchange comes next.
            sender_.suspend();
        } else {
            return;
        }
        try {
            events_.push_back(PipeEvent{event, event == NNG_PIPE_EV_REM_POST && closingPipe_ == id});
        } catch (...) {
            return;
        }
    }
    housekeeperWake_.notify_all();
}

void TransportCore::housekeeping() {
    std::unique_lock<std::mutex> lock(pendingMutex_);
    while (!stopping_) {
        // Sleeping no longer than the default timeout means a request with the default
        // timeout never has to wake this thread: its deadline is after our wake-up.
        auto wakeAt = Clock::now() + requestTimeout_;
        if (!deadlines_.empty() && deadlines_.begin()->first < wakeAt) {
            wakeAt = deadlines_.begin()->first;
        }
        if (pausing_ && pauseEnds_ < wakeAt) {
            wakeAt = pauseEnds_;
        }
        timerWakeAt_ = wakeAt;
        housekeeperWake_.wait_until(lock, wakeAt, [&] {
            return stopping_ || !events_.empty() || creditWanted_ || leaveClosingExchange_ || timerWakeAt_ < wakeAt;
        });
        if (stopping_) {
            break;
        }
        std::vector<std::promise<Message>> expired;
        const auto now = Clock::now();
        while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
            auto it = pending_.find(deadlines_.begin()->second);
            deadlines_.erase(deadlines_.begin());
            if (it != pending_.end()) {
                expired.push_back(std::move(it->second.promise));
                pending_.erase(it);
            }
        }
        auto events = std::move(events_);
        events_.clear();
        const bool sendCredit = std::exchange(creditWanted_, false);
        const bool leave = std::exchange(leaveClosingExchange_, false);
        const nng_dialer dialer = dialer_;
        if (leave) {
            pausing_ = true;
            pauseEnds_ = now + kPauseAfterGoodbye;
        }
        const bool pauseOver = pausing_ && pauseEnds_ <= now;
        lock.unlock();
        if (leave) {
            nng_dialer_close(dialer);
        }
        if (sendCredit) {
            Envelope credit;
            credit.kind = FrameKind::Credit;
            sendFrame(credit, nullptr, 0);  // blocks on back-pressure, up to the send timeout
        }
        for (auto& promise : expired) {
            promise.set_exception(failure("Request timed out"));
        }
        for (const auto& event : events) {
            if (event.event == NNG_PIPE_EV_REM_POST) {
                if (event.exchangeClosed) {
                    FOUNDATION_LOG(transportLogger(), severity::info)
                        << "The exchange at " << endpoint_ << " closed; reconnecting";
                    failAll("The exchange closed");
                } else {
                    FOUNDATION_LOG(transportLogger(), severity::warning)
                        << "Lost the connection to the exchange at " << endpoint_ << "; reconnecting";
                    failAll("The connection to the exchange was lost");
                }
            } else if (event.event == NNG_PIPE_EV_ADD_POST) {
                reannounce();
            }
        }
        if (pauseOver) {
            endPause();
        }
        lock.lock();
    }
}

void TransportCore::reannounce() {
    // The exchange forgets a container whose connection drops: introduce ourselves again.
    // Repeating this on the first connection is harmless; the exchange's answers find no
    // pending request and are ignored.
    Envelope hello;
    hello.kind = FrameKind::Hello;
    if (sendFrame(hello, nullptr, 0) != 0) {
        return;
    }
    std::vector<boost::uuids::uuid> addresses;
    {
        std::shared_lock<std::shared_mutex> lock(handlersMutex_);
        for (const auto& [address, entry] : handlers_) {
            addresses.push_back(address.getUUID());
        }
    }
    for (const auto& address : addresses) {
        Envelope registration;
        registration.kind = FrameKind::Register;
        registration.sourceAddress = address;
        sendFrame(registration, nullptr, 0);
    }
}


}  // namespace agent::nanomsgtransport
