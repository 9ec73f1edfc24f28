#include "nanomsgtransport/Frame.h"

#include <cstring>
#include <stdexcept>

namespace agent::nanomsgtransport {

NngMessagePtr makeFrame(const Envelope& envelope, const void* payload, std::size_t size) {
    nng_msg* raw = nullptr;
    if (int rv = nng_msg_alloc(&raw, Envelope::kSize + size); rv != 0) {
        throw std::runtime_error(nngFailure("Cannot allocate a frame", rv));
    }
    NngMessagePtr frame(raw);
    auto* body = static_cast<std::uint8_t*>(nng_msg_body(raw));
    encodeEnvelope(envelope, body);
    if (size != 0) {
        std::memcpy(body + Envelope::kSize, payload, size);
    }
    if (int rv = nng_msg_header_append_u32(raw, Envelope::kRequestWord); rv != 0) {
        throw std::runtime_error(nngFailure("Cannot allocate a frame", rv));
    }
    return frame;
}

NngMessagePtr makeHangUp(std::uint32_t pipeId) {
    nng_msg* raw = nullptr;
    if (int rv = nng_msg_alloc(&raw, 0); rv != 0) {
        throw std::runtime_error(nngFailure("Cannot allocate a frame", rv));
    }
    NngMessagePtr hangUp(raw);
    // Only the pipe id: raw REP strips it, and nothing at all goes on the wire.
    if (int rv = nng_msg_header_append_u32(raw, pipeId); rv != 0) {
        throw std::runtime_error(nngFailure("Cannot allocate a frame", rv));
    }
    return hangUp;
}

bool addressToPipe(nng_msg* frame, std::uint32_t pipeId) noexcept {
    nng_msg_header_clear(frame);
    return nng_msg_header_append_u32(frame, pipeId) == 0 &&
           nng_msg_header_append_u32(frame, Envelope::kRequestWord) == 0;
}

std::string nngFailure(const std::string& what, int rv) {
    return what + ": " + nng_strerror(rv);
}

}  // namespace agent::nanomsgtransport
