#include "agent/spf/serialisation/Serialiser.h"

#include <algorithm>
#include <stdexcept>

namespace agent::spf::serialisation {

namespace {

std::type_index typeOfSlotZero(const core::GenericPayload& value) {
    if (value.size() != 1) {
        throw std::invalid_argument("Serialiser needs a payload of one value");
    }
    return value.typeAt(0);
}

}  // namespace

Serialiser::Serialiser(core::GenericPayload value, SerialiseFunction encoder, std::size_t chunkSize)
    : value_(std::move(value)),
      encoder_(std::move(encoder)),
      chunkSize_(std::max<std::size_t>(chunkSize, 1)),
      valueType_(typeOfSlotZero(value_)) {
    if (!encoder_) {
        throw std::invalid_argument("Serialiser needs an encoding function");
    }
}

Serialiser::Chunk Serialiser::nextChunk() {
    if (!encoded_) {
        encoded_ = true;
        core::GenericPayload value = std::move(value_);
        SerialiseFunction encoder = std::move(encoder_);
        encoder(value, 0, output_);
    }
    const std::size_t size = std::min(chunkSize_, output_.size() - handedOut_);
    Chunk chunk{output_.data() + handedOut_, size};
    handedOut_ += size;
    return chunk;
}

std::size_t Serialiser::drainInto(const std::function<void(const std::uint8_t*, std::size_t)>& sink) {
    std::size_t total = 0;
    for (Chunk chunk = nextChunk(); chunk.size != 0; chunk = nextChunk()) {
        sink(chunk.data, chunk.size);
        total += chunk.size;
    }
    return total;
}

}  // namespace agent::spf::serialisation
