#pragma once

#include <nng/nng.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>

namespace agent::nanomsgtransport {

// Delivers an nng socket's pipe events to a handler that may be gone before nng is done
// with the socket. nng keeps the callback argument of nng_pipe_notify for as long as the
// socket lives and calls it from its reaper and connect threads; a connection completing
// while the socket closes can still deliver an event. So nng is given a number, not a
// pointer: each event looks the number up, and after detach() finds nothing.
//
// Thread-safe. The handler runs on nng's threads; it must only record the event (no nng
// socket calls, no blocking; reading the pipe's options is fine) and must not call
// attach() or detach().
class PipeEventRelay {
public:
    using Handler = std::function<void(nng_pipe pipe, nng_pipe_ev event)>;

    PipeEventRelay() = default;
    ~PipeEventRelay();
    PipeEventRelay(const PipeEventRelay&) = delete;
    PipeEventRelay& operator=(const PipeEventRelay&) = delete;

    // Routes `events` of `socket` to `handler`, replacing an earlier attach. Call before
    // the socket dials or listens. Throws std::bad_alloc.
    void attach(nng_socket socket, std::initializer_list<nng_pipe_ev> events, Handler handler);
    // Blocks until a call of the handler in progress has returned; afterwards it is never
    // called again. Idempotent.
    void detach() noexcept;

private:
    static void onPipeEvent(nng_pipe pipe, nng_pipe_ev event, void* token) noexcept;

    std::uintptr_t token_ = 0;
};

}  // namespace agent::nanomsgtransport
