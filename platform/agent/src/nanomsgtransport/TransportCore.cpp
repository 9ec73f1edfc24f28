// A container's messages: handlers, requests with their replies and time-outs, the receive
// path, credit reports and serving requests on the container's pool.

#include "nanomsgtransport/TransportCore.h"

#include "nanomsgtransport/Frame.h"
#include "nanomsgtransport/Loggers.h"

#include "foundation/log/Severity.h"

#include <boost/uuid/uuid_io.hpp>

#include <stdexcept>
#include <utility>

namespace agent::nanomsgtransport {

namespace severity = foundation::log::severity;
using core::transport::Address;
using core::transport::Message;
using core::transport::ReplyFuture;

namespace {

ReplyFuture failedFuture(const std::string& reason) {
    std::promise<Message> promise;
    promise.set_exception(TransportCore::failure(reason));
    return ReplyFuture(promise.get_future());
}

}  // namespace

thread_local const TransportCore* TransportCore::servingCore = nullptr;

std::exception_ptr TransportCore::failure(const std::string& reason) {
    return std::make_exception_ptr(std::runtime_error(reason));
}

nng_socket TransportCore::socketOf(std::uint32_t id) {
    nng_socket socket;
    socket.id = id;
    return socket;
}

TransportCore::TransportCore(foundation::concurrent::threadpool::ThreadPool& pool, const boost::uuids::uuid& node,
                             std::chrono::milliseconds requestTimeout, std::chrono::milliseconds connectTimeout)
    : pool_(pool), node_(node), requestTimeout_(requestTimeout), connectTimeout_(connectTimeout) {}

void TransportCore::registerHandler(const Address& address, core::transport::RequestHandler handler,
                                    const boost::uuids::uuid& serviceInstance) {
    if (!address.isValid()) {
        throw std::invalid_argument("Cannot register a handler at an invalid address");
    }
    if (!handler) {
        throw std::invalid_argument("Cannot register an empty handler");
    }
    {
        std::unique_lock<std::shared_mutex> lock(handlersMutex_);
        handlers_[address] = HandlerEntry{
            std::make_shared<const core::transport::RequestHandler>(std::move(handler)), serviceInstance};
    }
    if (!isConnected()) {
        return;  // connect(), or the reconnection, registers it
    }
    try {
        waitForControl(sendControl(FrameKind::Register, address.getUUID()), "the exchange did not confirm the address");
    } catch (const std::exception& e) {
        {
            std::unique_lock<std::shared_mutex> lock(handlersMutex_);
            handlers_.erase(address);
        }
        throw std::runtime_error("Cannot register address " + address.toString() + ": " + e.what());
    }
}

bool TransportCore::unregisterHandler(const Address& address) {
    bool existed = false;
    {
        std::unique_lock<std::shared_mutex> lock(handlersMutex_);
        existed = handlers_.erase(address) != 0;
    }
    if (existed && isConnected()) {  // a lost connection took the address with it
        Envelope envelope;
        envelope.kind = FrameKind::Unregister;
        envelope.sourceAddress = address.getUUID();
        sendFrame(envelope, nullptr, 0);
    }
    return existed;
}

void TransportCore::rejectRequestsFor(const boost::uuids::uuid& serviceInstance) {
    std::unique_lock<std::shared_mutex> lock(handlersMutex_);
    rejectedInstances_.insert(serviceInstance);
}

ReplyFuture TransportCore::sendRequest(const Address& destination, Message request,
                                       std::chrono::milliseconds timeout) {
    if (!destination.isValid()) {
        return failedFuture("Cannot send a request to an invalid address");
    }
    if (!isConnected()) {
        return failedFuture("Not connected to an exchange");
    }
    std::promise<Message> promise;
    ReplyFuture future(promise.get_future());
    std::uint64_t correlationId = 0;
    try {
        correlationId = addPending(destination, std::move(promise), Clock::now() + timeout);
    } catch (const std::exception& e) {
        return failedFuture(std::string("Cannot send the request: ") + e.what());
    }
    Envelope envelope;
    envelope.kind = FrameKind::Request;
    envelope.correlationId = correlationId;
    envelope.sourceAddress = node_;
    envelope.destinationAddress = destination.getUUID();
    if (int rv = sendFrame(envelope, request.data(), request.size()); rv == NNG_ECLOSED || rv == NNG_ECANCELED) {
        fail(correlationId, "Not connected to an exchange");  // the connection went meanwhile
    } else if (rv != 0) {
        fail(correlationId, nngFailure("Cannot send the request", rv));
    }
    return future;
}

ReplyFuture TransportCore::sendControl(FrameKind kind, const boost::uuids::uuid& address) {
    std::promise<Message> promise;
    ReplyFuture future(promise.get_future());
    const auto correlationId = addPending(Address(address), std::move(promise), Clock::now() + connectTimeout_);
    Envelope envelope;
    envelope.kind = kind;
    envelope.correlationId = correlationId;
    envelope.sourceAddress = address;
    if (int rv = sendFrame(envelope, nullptr, 0); rv != 0) {
        fail(correlationId, nngFailure("Cannot reach the exchange", rv));
    }
    return future;
}

std::uint64_t TransportCore::addPending(const Address& destination, std::promise<Message> promise,
                                        Clock::time_point deadline) {
    const auto correlationId = nextCorrelationId_.fetch_add(1);
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        auto at = deadlines_.emplace(deadline, correlationId);
        pending_.emplace(correlationId, Pending{std::move(promise), at, destination});
        // The timer sleeps until timerWakeAt_; only an earlier deadline needs to wake it.
        if (deadline < timerWakeAt_) {
            timerWakeAt_ = deadline;
            wake = true;
        }
    }
    if (wake) {
        housekeeperWake_.notify_all();
    }
    return correlationId;
}

int TransportCore::sendFrame(Envelope envelope, const void* payload, std::size_t size) noexcept {
    envelope.sourceNode = node_;
    envelope.credit = unreportedCredit_.exchange(0);
    NngMessagePtr frame;
    try {
        frame = makeFrame(envelope, payload, size);
    } catch (const std::exception&) {
        unreportedCredit_ += envelope.credit;
        return NNG_ENOMEM;
    }
    const int rv = sender_.send(frame.release(), static_cast<nng_duration>(connectTimeout_.count()));
    if (rv != 0) {
        unreportedCredit_ += envelope.credit;
    }
    return rv;
}

void TransportCore::complete(std::uint64_t correlationId, Message reply) {
    std::promise<Message> promise;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        auto it = pending_.find(correlationId);
        if (it == pending_.end()) {
            return;  // timed out or failed already
        }
        promise = std::move(it->second.promise);
        deadlines_.erase(it->second.deadline);
        pending_.erase(it);
    }
    promise.set_value(std::move(reply));
}

void TransportCore::fail(std::uint64_t correlationId, const std::string& reason) {
    std::promise<Message> promise;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        auto it = pending_.find(correlationId);
        if (it == pending_.end()) {
            return;
        }
        promise = std::move(it->second.promise);
        deadlines_.erase(it->second.deadline);
        pending_.erase(it);
    }
    promise.set_exception(failure(reason));
}

void TransportCore::failAll(const std::string& reason) {
    std::unordered_map<std::uint64_t, Pending> failed;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        failed.swap(pending_);
        deadlines_.clear();
    }
    for (auto& [id, pending] : failed) {
        pending.promise.set_exception(failure(reason));
    }
}

void TransportCore::onReceive(void* arg) noexcept {
    auto* self = static_cast<TransportCore*>(arg);
    const int rv = nng_aio_result(self->receiveAio_);
    if (rv == NNG_ECLOSED || rv == NNG_ECANCELED) {
        return;
    }
    if (rv != 0) {
        FOUNDATION_LOG(transportLogger(), severity::error) << nngFailure("Receiving failed", rv);
        nng_recv_aio(socketOf(self->socketId_.load()), self->receiveAio_);
        return;
    }
    NngMessagePtr frame(nng_aio_get_msg(self->receiveAio_));
    const auto pipe = nng_pipe_id(nng_msg_get_pipe(frame.get()));
    if (self->unreportedCredit_.fetch_add(1) + 1 >= Envelope::kCreditWindow / 2) {
        self->maybeSendCredit();
    }
    try {
        const auto* body = static_cast<const std::uint8_t*>(nng_msg_body(frame.get()));
        const auto size = nng_msg_len(frame.get());
        const Envelope envelope = decodeEnvelope(body, size);
        Message payload(body + Envelope::kSize, size - Envelope::kSize);
        frame.reset();
        switch (envelope.kind) {
            case FrameKind::Reply:
            case FrameKind::Welcome:
            case FrameKind::Registered:
            case FrameKind::Farewell:
                self->complete(envelope.correlationId, std::move(payload));
                break;
            case FrameKind::Failure:
                self->fail(envelope.correlationId, std::string(payload.asStringView()));
                break;
            case FrameKind::Goodbye: {
                // The exchange is closing and sends nothing more: we hang up (the
                // housekeeper closes the dialer), and what we wait for fails once the
                // connection is gone. If it is gone already, this came too late to matter.
                {
                    std::lock_guard<std::mutex> lock(self->pendingMutex_);
                    if (self->currentPipe_ != pipe) {
                        break;
                    }
                    self->closingPipe_ = pipe;
                    self->leaveClosingExchange_ = true;
                }
                self->housekeeperWake_.notify_all();
                break;
            }
            case FrameKind::Request:
                if (!self->acceptingRequests_.load()) {
                    break;  // disconnecting: the exchange fails it when we are gone
                }
                // Handlers never run on nng's threads: one hand-off to the pool.
                self->pool_.post([core = self->shared_from_this(), envelope, request = std::move(payload)] {
                    core->serve(envelope, request);
                });
                break;
            default:
                FOUNDATION_LOG(transportLogger(), severity::error)
                    << "Dropped an unexpected " << frameKindName(envelope.kind) << " frame";
                break;
        }
    } catch (const std::exception& e) {
        FOUNDATION_LOG(transportLogger(), severity::error) << "Dropped an incoming frame: " << e.what();
    }
    nng_recv_aio(socketOf(self->socketId_.load()), self->receiveAio_);
}

void TransportCore::maybeSendCredit() noexcept {
    // Never block nng's thread: try without waiting, else the housekeeper sends it.
    Envelope envelope;
    envelope.kind = FrameKind::Credit;
    envelope.sourceNode = node_;
    envelope.credit = unreportedCredit_.exchange(0);
    if (envelope.credit == 0) {
        return;
    }
    try {
        if (sender_.send(makeFrame(envelope, nullptr, 0).release(), NNG_DURATION_ZERO) == 0) {
            return;
        }
    } catch (const std::exception&) {
        // as if the send had failed
    }
    unreportedCredit_ += envelope.credit;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        creditWanted_ = true;
    }
    housekeeperWake_.notify_all();
}

void TransportCore::serve(const Envelope& request, const Message& payload) {
    const Address address(request.destinationAddress);
    Envelope answer;
    answer.kind = FrameKind::Reply;
    answer.correlationId = request.correlationId;
    answer.sourceAddress = request.destinationAddress;
    answer.destinationAddress = request.sourceNode;
    Message reply;
    std::string reason;
    bool counted = false;
    // Counted before anything else, so an orderly disconnect either sees this handler or
    // this task sees the disconnect.
    {
        std::lock_guard<std::mutex> lock(activeMutex_);
        if (acceptingRequests_.load()) {
            ++activeHandlers_;
            counted = true;
        }
    }
    if (!counted) {
        reason = "The container is disconnecting";
    } else {
        std::shared_ptr<const core::transport::RequestHandler> handler;
        {
            std::shared_lock<std::shared_mutex> lock(handlersMutex_);
            auto it = handlers_.find(address);
            if (it == handlers_.end()) {
                reason = "No handler is registered at address " + address.toString();
            } else if (rejectedInstances_.count(it->second.serviceInstance) != 0 ||
                       rejectedInstances_.count(address.getUUID()) != 0) {
                reason = "Service instance " + boost::uuids::to_string(it->second.serviceInstance) +
                         " no longer accepts requests";
            } else {
                handler = it->second.handler;
            }
        }
        if (handler) {
            const auto* outer = servingCore;
            servingCore = this;
            try {
                reply = (*handler)(payload);
            } catch (const std::exception& e) {
                reason = e.what();
                if (reason.empty()) {
                    reason = "Request handler failed";
                }
            } catch (...) {
                reason = "Request handler failed";
            }
            servingCore = outer;
        }
    }
    if (!reason.empty()) {
        answer.kind = FrameKind::Failure;
        reply = Message(reason);
    }
    if (int rv = sendFrame(answer, reply.data(), reply.size()); rv != 0 && rv != NNG_ECLOSED && rv != NNG_ECANCELED) {
        FOUNDATION_LOG(transportLogger(), severity::error)
            << nngFailure("Cannot send the answer to a request for " + address.toString(), rv);
    }
    if (counted) {
        std::lock_guard<std::mutex> lock(activeMutex_);
        --activeHandlers_;
        activeChanged_.notify_all();
    }
}

}  // namespace agent::nanomsgtransport
