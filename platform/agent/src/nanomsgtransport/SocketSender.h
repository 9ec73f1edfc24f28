#pragma once

#include <nng/nng.h>

#include <condition_variable>
#include <mutex>
#include <unordered_set>

namespace agent::nanomsgtransport {

// Every send on one of our nng sockets goes through one of these, so that the socket is
// only ever closed when no thread is inside an nng send on it.
//
// Why: nng 1.5.2 never completes a send (or receive) that enters a socket's message queue
// after nng_close has closed that queue. nni_msgq_aio_put and nni_msgq_aio_get do not look
// at the queue's closed flag; nni_msgq_close only fails the operations already queued. A
// thread that has passed nng_send_aio's socket lookup when another thread calls nng_close
// therefore parks its operation on the closed queue, and nng_close then frees the queue:
//   - without a send timeout, nng_sendmsg never returns;
//   - with one, the timeout fires later on an "nng:aio:expire" thread, which locks the
//     freed queue's mutex and aborts the process with
//     "panic: pthread_mutex_lock: Invalid argument".
// Reproduction with nothing but nng (libnng 1.5.2-2): a raw REP listening on inproc://
// and reading; in a loop, open a raw REQ socket with NNG_OPT_SENDTIMEO 300 ms, dial it,
// start a thread that calls nng_sendmsg until it fails, let it send a few frames, then
// nng_close the socket and join the thread. Within a few hundred iterations the join
// hangs (without the timeout) or the process panics as above. The same window catches a
// receive re-armed by a callback racing nng_close, and nng_aio_stop on such an aio after
// nng_close panics the same way; our receive aios are therefore stopped before their
// socket is closed.
//
// So: each send runs on an aio of its own that close() can find. close() refuses new
// sends, stops the ones in flight (they fail with NNG_ECANCELED at once) and returns when
// no thread is inside nng for this socket any more; only then may the owner call
// nng_close. The aios have no callbacks, so stopping them never calls into our code.
//
// Lifecycle: open(socket) → send()… → close() → nng_close(socket) → open(another)….
// Thread-safe; send() may be called from any thread except nng's callback threads when it
// may block (a non-zero timeout).
class SocketSender {
public:
    SocketSender() = default;
    ~SocketSender();
    SocketSender(const SocketSender&) = delete;
    SocketSender& operator=(const SocketSender&) = delete;

    // Accepts sends on `socket` from now on (not suspended). Non-blocking.
    void open(nng_socket socket) noexcept;

    // The socket lost its connection: the sends waiting in nng fail at once
    // (NNG_ECANCELED) and later ones (NNG_ECLOSED) until resume(), instead of waiting for
    // a connection that may never come. Non-blocking; may run on nng's pipe callbacks.
    void suspend() noexcept;
    // A connection is up again. Non-blocking; may run on nng's pipe callbacks.
    void resume() noexcept;

    // Sends `frame`, taking ownership whatever the outcome. Blocks while the socket applies
    // back-pressure, up to `timeout` (NNG_DURATION_ZERO: never blocks). Returns 0 once nng
    // has queued the frame, NNG_ECLOSED when the sender is not open, or nng's error.
    int send(nng_msg* frame, nng_duration timeout) noexcept;

    // Refuses further sends, fails the blocked ones and waits until every send has left
    // nng. Idempotent. Blocks only for as long as nng takes to complete a stopped aio.
    void close() noexcept;
    // close(), then sends `frame` (taking ownership) as the last frame on the socket,
    // waiting up to `timeout` for back-pressure. Returns 0 or nng's error.
    int closeWithLastFrame(nng_msg* frame, nng_duration timeout) noexcept;

private:
    std::mutex sendsMutex_;
    std::condition_variable sendsDrained_;
    bool open_ = false;
    bool suspended_ = false;
    nng_socket socket_{};
    std::unordered_set<nng_aio*> inFlight_;
};

}  // namespace agent::nanomsgtransport
