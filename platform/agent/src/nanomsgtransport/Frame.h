#pragma once

#include "agent/nanomsgtransport/Envelope.h"

#include <nng/nng.h>

#include <cstddef>
#include <memory>
#include <string>

namespace agent::nanomsgtransport {

// Owns an nng message until it is handed to nng (release()).
struct NngMessageDeleter {
    void operator()(nng_msg* msg) const noexcept { nng_msg_free(msg); }
};
using NngMessagePtr = std::unique_ptr<nng_msg, NngMessageDeleter>;

// A frame: envelope + payload in the body, the request word in the header (what a
// container sends). Throws std::runtime_error("Cannot allocate a frame: <cause>").
NngMessagePtr makeFrame(const Envelope& envelope, const void* payload, std::size_t size);

// The last message the exchange sends a connection: an empty one for `pipeId`. A raw REQ
// socket takes a message shorter than its 4-byte request word as garbage and drops the
// connection from its receive path (Envelope.h). Throws std::runtime_error("Cannot
// allocate a frame: <cause>").
NngMessagePtr makeHangUp(std::uint32_t pipeId);

// Points a frame at a pipe of the exchange's raw REP socket: header [pipe][word].
// Returns false if nng refuses (then the frame is unchanged).
bool addressToPipe(nng_msg* frame, std::uint32_t pipeId) noexcept;

// "<what>: <nng's text>"
std::string nngFailure(const std::string& what, int rv);

}  // namespace agent::nanomsgtransport
