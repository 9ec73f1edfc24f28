#pragma once

#include "agent/core/transport/Address.h"
#include "agent/core/transport/Message.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/core/transport/RequestHandler.h"
#include "agent/nanomsgtransport/Envelope.h"
#include "nanomsgtransport/PipeEventRelay.h"
#include "nanomsgtransport/SocketSender.h"

#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <boost/functional/hash.hpp>
#include <boost/uuid/uuid.hpp>

#include <nng/nng.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>

namespace agent::nanomsgtransport {

// A container's side of an exchange connection: one raw REQ socket, one receive aio
// whose callback completes replies in place and hands requests to the container's
// pool, and one housekeeping thread for connection events, credit reports that could not
// go out at once, and the single request timer.
// Pool tasks hold a shared_ptr to it, so it outlives the transport object if they run
// late; after disconnect they find the socket closed and drop their replies.
//
// Teardown (closeConnection) quiesces the connection before nng_close, because nng 1.5.2
// strands an operation that enters a socket while it closes (SocketSender.h) and hangs
// when an ipc or tcp pipe closes while a frame arrives (ExchangeRouter.h): a Goodbye
// ends all sending, the exchange's Farewell ends all arriving, then the receive aio is
// stopped, the housekeeper joined, and only then is the socket closed; pipe events reach
// us through a PipeEventRelay, so a late one finds nothing.
class TransportCore : public std::enable_shared_from_this<TransportCore> {
public:
    using Clock = std::chrono::steady_clock;

    // A failed reply's exception, carrying `reason`.
    static std::exception_ptr failure(const std::string& reason);

    TransportCore(foundation::concurrent::threadpool::ThreadPool& pool, const boost::uuids::uuid& node,
                  std::chrono::milliseconds requestTimeout, std::chrono::milliseconds connectTimeout);
    ~TransportCore();

    void connect(const std::string& endpoint);
    void disconnect(bool orderly);
    bool isConnected() const noexcept;

    void registerHandler(const core::transport::Address& address, core::transport::RequestHandler handler,
                         const boost::uuids::uuid& serviceInstance);
    bool unregisterHandler(const core::transport::Address& address);
    void rejectRequestsFor(const boost::uuids::uuid& serviceInstance);
    core::transport::ReplyFuture sendRequest(const core::transport::Address& destination,
                                             core::transport::Message request,
                                             std::chrono::milliseconds timeout);

private:
    enum class State { Idle, Connected, Closing };

    struct Pending {
        std::promise<core::transport::Message> promise;
        std::multimap<Clock::time_point, std::uint64_t>::iterator deadline;
        core::transport::Address destination;
    };
    struct HandlerEntry {
        std::shared_ptr<const core::transport::RequestHandler> handler;
        boost::uuids::uuid serviceInstance;
    };
    struct PipeEvent {
        nng_pipe_ev event;
        bool exchangeClosed = false;  // a removal that followed the exchange's Goodbye
    };

    static void onReceive(void* self) noexcept;
    void onPipeEvent(nng_pipe pipe, nng_pipe_ev event) noexcept;
    static nng_socket socketOf(std::uint32_t id);

    // Sends one frame, reporting our credit. Blocks on back-pressure up to the connect
    // timeout. Returns 0 or nng's error (NNG_ECLOSED once closing has begun).
    int sendFrame(Envelope envelope, const void* payload, std::size_t size) noexcept;
    // A request to the exchange itself (Hello, Register): its answer completes the future.
    core::transport::ReplyFuture sendControl(FrameKind kind, const boost::uuids::uuid& address);
    void waitForControl(core::transport::ReplyFuture future, const std::string& what);
    std::uint64_t addPending(const core::transport::Address& destination,
                             std::promise<core::transport::Message> promise, Clock::time_point deadline);
    // Completes and forgets one pending request, if still pending.
    void complete(std::uint64_t correlationId, core::transport::Message reply);
    void fail(std::uint64_t correlationId, const std::string& reason);
    void failAll(const std::string& reason);
    void maybeSendCredit() noexcept;
    // Runs on the pool: finds the handler and answers.
    void serve(const Envelope& envelope, const core::transport::Message& request);
    void housekeeping();
    void reannounce();
    // Creates and starts the dialer: blocking (flags 0) or not (NNG_FLAG_NONBLOCK).
    // Returns 0 or nng's error.
    int startDialer(nng_socket socket, int flags, nng_dialer& dialer);
    // Housekeeper only: the pause after an exchange's Goodbye is over; dial again.
    void endPause();
    // Call with lifecycleMutex_ held, or on closer_.
    void closeConnection();
    // Call with lifecycleMutex_ held. Waits for a forced disconnect's closing to end.
    void joinCloser();
    // Call with lifecycleMutex_ held, or on closer_. Ends all sending with a Goodbye and waits, bounded,
    // for the exchange's Farewell.
    void sayGoodbye();

    // The core whose handler the current thread runs, so an orderly disconnect from inside
    // a handler does not wait for itself.
    static thread_local const TransportCore* servingCore;

    foundation::concurrent::threadpool::ThreadPool& pool_;
    const boost::uuids::uuid node_;
    const std::chrono::milliseconds requestTimeout_;
    const std::chrono::milliseconds connectTimeout_;

    // Serialises connect and disconnect; no callback of ours takes it.
    std::mutex lifecycleMutex_;
    // A forced disconnect returns at once and leaves the closing to this thread, which
    // owns the connection until joined (joinCloser) by whoever next needs it.
    std::thread closer_;
    std::string endpoint_;
    nng_aio* receiveAio_ = nullptr;
    std::thread housekeeper_;
    PipeEventRelay pipeEvents_;
    SocketSender sender_;

    std::atomic<State> state_{State::Idle};
    std::atomic<std::uint32_t> socketId_{0};
    std::atomic<bool> pipeUp_{false};
    std::atomic<bool> acceptingRequests_{false};
    std::atomic<std::uint64_t> nextCorrelationId_{1};
    std::atomic<std::uint32_t> unreportedCredit_{0};

    std::mutex pendingMutex_;
    std::condition_variable housekeeperWake_;
    std::unordered_map<std::uint64_t, Pending> pending_;
    std::multimap<Clock::time_point, std::uint64_t> deadlines_;
    Clock::time_point timerWakeAt_{};
    std::deque<PipeEvent> events_;
    std::int32_t currentPipe_ = 0;  // the dialer's connection; 0 while there is none
    nng_dialer dialer_{};
    // The connection on which the exchange said Goodbye. We hang up by closing the dialer
    // (nothing arrives after a Goodbye, so closing it here is safe) and make a new one
    // when a short pause ends: nng 1.5.2 redials at once when a connection drops, into the
    // exchange that is closing, and leaks the listener and the connection when the
    // listener closes while it accepts one.
    std::int32_t closingPipe_ = 0;
    bool pausing_ = false;
    Clock::time_point pauseEnds_{};
    bool creditWanted_ = false;  // the receive path could not report credit without blocking
    bool leaveClosingExchange_ = false;  // the exchange said Goodbye: close the dialer
    bool stopping_ = false;

    mutable std::shared_mutex handlersMutex_;
    std::unordered_map<core::transport::Address, HandlerEntry> handlers_;
    std::unordered_set<boost::uuids::uuid, boost::hash<boost::uuids::uuid>> rejectedInstances_;

    std::mutex activeMutex_;
    std::condition_variable activeChanged_;
    unsigned activeHandlers_ = 0;
};

}  // namespace agent::nanomsgtransport
