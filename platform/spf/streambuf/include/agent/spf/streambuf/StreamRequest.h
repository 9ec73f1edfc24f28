#pragma once

// The requests a legacy service sends to an exported stream's address (the stream uuid of the
// reference it received). The first byte says what is asked:
//   StreamRequest::write, then the bytes to write: the reply is empty;
//   StreamRequest::read, then a count (4 bytes, big-endian): the reply holds 1 to that many
//     bytes, or none once the stream has ended;
//   StreamRequest::close: a data sink is flushed; the stream is withdrawn either way and later
//     requests fail. The reply is empty.
// A failure (a sink that cannot be written, a request the stream cannot serve) comes back as
// the request's failure, with its text.

#include "agent/core/transport/Message.h"

#include <cstddef>
#include <cstdint>

namespace agent::spf::streambuf {

enum class StreamRequest : std::uint8_t { write = 1, read = 2, close = 3 };

// The largest read a stream serves at once; a larger count is served in part.
inline constexpr std::uint32_t kLargestRead = 1u << 20;

agent::core::transport::Message makeWriteRequest(const void* data, std::size_t size);
agent::core::transport::Message makeReadRequest(std::uint32_t count);
agent::core::transport::Message makeCloseRequest();

}  // namespace agent::spf::streambuf
