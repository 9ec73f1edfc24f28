#include "nanomsgtransport/ListenerProbe.h"

#include "agent/nanomsgtransport/Envelope.h"
#include "nanomsgtransport/Frame.h"

#include <nng/nng.h>
#include <nng/protocol/reqrep0/req.h>

#include <chrono>
#include <exception>

namespace agent::nanomsgtransport {

namespace {

constexpr nng_duration kProbeWaitMs = 1000;

}  // namespace

ListenerProbe::ListenerProbe() {
    node_.data[0] = 0xff;
    node_.data[15] = 0x01;
}

bool ListenerProbe::answers(const std::string& url) noexcept {
    nng_socket probe;
    if (nng_req0_open_raw(&probe) != 0) {
        return true;  // cannot tell; do not disturb the listener
    }
    // The Hello waits in the socket until the dialer connects.
    nng_socket_set_int(probe, NNG_OPT_SENDBUF, 1);
    nng_socket_set_ms(probe, NNG_OPT_SENDTIMEO, kProbeWaitMs);
    nng_socket_set_ms(probe, NNG_OPT_RECVTIMEO, kProbeWaitMs);
    bool alive = true;
    try {
        Envelope hello;
        hello.kind = FrameKind::Hello;
        hello.sourceNode = node_;
        hello.correlationId = ++count_;
        auto frame = makeFrame(hello, nullptr, 0);
        if (nng_dial(probe, url.c_str(), nullptr, NNG_FLAG_NONBLOCK) == 0 &&
            nng_sendmsg(probe, frame.get(), 0) == 0) {
            frame.release();
            alive = false;
            const auto giveUp = std::chrono::steady_clock::now() + std::chrono::milliseconds(kProbeWaitMs);
            while (!alive && std::chrono::steady_clock::now() < giveUp) {
                nng_msg* answer = nullptr;
                const int rv = nng_recvmsg(probe, &answer, 0);
                if (rv == NNG_ETIMEDOUT) {
                    continue;
                }
                if (rv != 0) {
                    break;
                }
                NngMessagePtr owned(answer);
                const auto envelope = decodeEnvelope(static_cast<const std::uint8_t*>(nng_msg_body(answer)),
                                                     nng_msg_len(answer));
                alive = envelope.kind == FrameKind::Welcome && envelope.correlationId == hello.correlationId;
            }
        }
    } catch (const std::exception&) {
        alive = true;  // our own trouble, not the listener's
    }
    nng_close(probe);
    return alive;
}

}  // namespace agent::nanomsgtransport
