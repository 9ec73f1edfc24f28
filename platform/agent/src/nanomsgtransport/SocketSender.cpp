#include "nanomsgtransport/SocketSender.h"

namespace agent::nanomsgtransport {

SocketSender::~SocketSender() {
    close();
}

void SocketSender::open(nng_socket socket) noexcept {
    std::lock_guard<std::mutex> lock(sendsMutex_);
    socket_ = socket;
    open_ = true;
    suspended_ = false;
}

void SocketSender::suspend() noexcept {
    std::lock_guard<std::mutex> lock(sendsMutex_);
    suspended_ = true;
    // Cancelling never waits and the aios have no callbacks, so nothing calls back here.
    for (nng_aio* aio : inFlight_) {
        nng_aio_cancel(aio);
    }
}

void SocketSender::resume() noexcept {
    std::lock_guard<std::mutex> lock(sendsMutex_);
    suspended_ = false;
}

int SocketSender::send(nng_msg* frame, nng_duration timeout) noexcept {
    nng_aio* aio = nullptr;
    if (int rv = nng_aio_alloc(&aio, nullptr, nullptr); rv != 0) {
        nng_msg_free(frame);
        return rv;
    }
    nng_socket socket;
    {
        std::lock_guard<std::mutex> lock(sendsMutex_);
        if (!open_ || suspended_) {
            nng_aio_free(aio);
            nng_msg_free(frame);
            return NNG_ECLOSED;
        }
        try {
            inFlight_.insert(aio);
        } catch (...) {
            nng_aio_free(aio);
            nng_msg_free(frame);
            return NNG_ENOMEM;
        }
        socket = socket_;
    }
    nng_aio_set_timeout(aio, timeout);
    nng_aio_set_msg(aio, frame);
    // If close() stopped the aio before this point, nng refuses it at once (ECANCELED).
    nng_send_aio(socket, aio);
    {
        // A suspend() whose cancel came before the send started did nothing to it; it
        // took nng's aio lock before we did, so its flag shows here.
        std::lock_guard<std::mutex> lock(sendsMutex_);
        if (suspended_) {
            nng_aio_cancel(aio);
        }
    }
    nng_aio_wait(aio);
    const int rv = nng_aio_result(aio);
    if (rv != 0) {
        if (nng_msg* unsent = nng_aio_get_msg(aio)) {
            nng_msg_free(unsent);  // a failed send leaves the frame with us
        }
    }
    bool drained = false;
    {
        std::lock_guard<std::mutex> lock(sendsMutex_);
        inFlight_.erase(aio);
        drained = inFlight_.empty();
    }
    if (drained) {
        sendsDrained_.notify_all();
    }
    nng_aio_free(aio);
    return rv;
}

int SocketSender::closeWithLastFrame(nng_msg* frame, nng_duration timeout) noexcept {
    close();
    nng_socket socket;
    {
        std::lock_guard<std::mutex> lock(sendsMutex_);
        socket = socket_;
    }
    nng_aio* aio = nullptr;
    if (int rv = nng_aio_alloc(&aio, nullptr, nullptr); rv != 0) {
        nng_msg_free(frame);
        return rv;
    }
    // The caller owns the socket's lifecycle, so nothing closes it during this send.
    nng_aio_set_timeout(aio, timeout);
    nng_aio_set_msg(aio, frame);
    nng_send_aio(socket, aio);
    nng_aio_wait(aio);
    const int rv = nng_aio_result(aio);
    if (rv != 0) {
        if (nng_msg* unsent = nng_aio_get_msg(aio)) {
            nng_msg_free(unsent);
        }
    }
    nng_aio_free(aio);
    return rv;
}

void SocketSender::close() noexcept {
    std::unique_lock<std::mutex> lock(sendsMutex_);
    open_ = false;
    // Under the lock so no sender frees its aio meanwhile; the aios have no callbacks, so
    // nng_aio_stop calls nothing of ours and only waits for nng to complete the send.
    for (nng_aio* aio : inFlight_) {
        nng_aio_stop(aio);
    }
    sendsDrained_.wait(lock, [this] { return inFlight_.empty(); });
}

}  // namespace agent::nanomsgtransport
