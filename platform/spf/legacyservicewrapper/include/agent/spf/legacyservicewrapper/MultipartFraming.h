#pragma once

#include "agent/core/transport/Message.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace agent::spf::legacyservicewrapper {

// The multipart framing of legacy SPF messages: a sequence of parts with no padding and no
// count, each an 8-byte big-endian size followed by that many bytes. A request holds one
// part per argument; a reply holds one part, the result (empty for a method without one).
// Wrapped services frame with it, and so may a legacy service written natively that speaks
// a "+spf/multipart" wire format, so that both refuse a malformed request alike.
//
// Every length read from a message is checked against what remains before it is used;
// nothing here reads outside the message. Stateless, so any thread; nothing blocks.
class MultipartFraming {
public:
    static constexpr std::size_t kSizeFieldBytes = 8;

    // Where one part's bytes lie in its message.
    struct Part {
        std::size_t offset = 0;
        std::size_t size = 0;
    };

    // The parts of `message`, which must hold exactly `expectedParts` of them. Throws
    // std::runtime_error with
    //   "Invalid message - cannot determine buffer size: <detail>" when fewer than 8 bytes
    //     remain where a size field should start,
    //   "Invalid message - reported data size larger than buffer" when a size field
    //     reaches beyond the message, and
    //   "Number of parts in Message does not match number of expected arguments" for any
    //     other count (found as soon as the count is exceeded, so a flood of empty parts
    //     costs nothing).
    static std::vector<Part> splitParts(const agent::core::transport::Message& message, std::size_t expectedParts);

    // Reserves a size field at the end of `message` for a part about to be appended;
    // returns where it starts, for endPart.
    static std::size_t beginPart(agent::core::transport::Message& message);
    // Writes the size of the part begun at `sizeFieldOffset`: everything appended since.
    static void endPart(agent::core::transport::Message& message, std::size_t sizeFieldOffset);
};

}  // namespace agent::spf::legacyservicewrapper
