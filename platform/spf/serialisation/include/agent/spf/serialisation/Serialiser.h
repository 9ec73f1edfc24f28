#pragma once

#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/serialisation/ByteBuffer.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <typeindex>

namespace agent::spf::serialisation {

// Writes the value in slot `index` of a payload to a buffer, in one content type.
using SerialiseFunction = std::function<void(const core::GenericPayload& payload, std::size_t index, ByteBuffer& out)>;

// The serialised form of one value, handed out in chunks so that a caller can copy it into
// its own buffers piece by piece.
//
// Plain chunking: the first nextChunk() encodes the whole value into a buffer of its own;
// that and every later call hand out consecutive slices of at most chunkSize bytes. (No
// coroutine: encoders run to completion on the caller's stack, which keeps them usable
// under every sanitizer and debugger.)
//
// Owns the value until it is encoded. Movable, not copyable, not synchronised: one thread
// at a time.
class Serialiser {
public:
    static constexpr std::size_t defaultChunkSize = 64 * 1024;

    struct Chunk {
        const std::uint8_t* data = nullptr;
        std::size_t size = 0;  // 0: no more output
    };

    // `value` holds the value in slot 0. chunkSize 0 is taken as 1. Null encoder:
    // std::invalid_argument.
    Serialiser(core::GenericPayload value, SerialiseFunction encoder, std::size_t chunkSize = defaultChunkSize);
    Serialiser(Serialiser&&) noexcept = default;
    Serialiser& operator=(Serialiser&&) noexcept = default;
    Serialiser(const Serialiser&) = delete;
    Serialiser& operator=(const Serialiser&) = delete;

    // The next slice of the output, valid until the next call or the serialiser's end; a
    // chunk of size 0 once everything was handed out. The first call runs the encoder and
    // passes its failures on (std::runtime_error with the encoder's text); after a failure
    // there is no more output.
    Chunk nextChunk();

    // Hands every remaining chunk to `sink` in order; returns the number of bytes handed.
    std::size_t drainInto(const std::function<void(const std::uint8_t* data, std::size_t size)>& sink);

    // The type of the value this serialiser writes.
    std::type_index valueType() const noexcept { return valueType_; }

private:
    core::GenericPayload value_;  // emptied once encoded
    SerialiseFunction encoder_;
    std::size_t chunkSize_;
    std::type_index valueType_;
    bool encoded_ = false;
    ByteBuffer output_;
    std::size_t handedOut_ = 0;
};

}  // namespace agent::spf::serialisation
