#include "agent/spf/legacyservicewrapper/MultipartFraming.h"

#include <stdexcept>
#include <string>

namespace agent::spf::legacyservicewrapper {

using agent::core::transport::Message;

std::vector<MultipartFraming::Part> MultipartFraming::splitParts(const Message& message,
                                                                 std::size_t expectedParts) {
    std::vector<Part> parts;
    const std::uint8_t* bytes = message.data();
    const std::size_t total = message.size();
    std::size_t offset = 0;
    while (offset < total) {
        const std::size_t remaining = total - offset;
        if (remaining < kSizeFieldBytes) {
            throw std::runtime_error("Invalid message - cannot determine buffer size: " + std::to_string(remaining) +
                                     " bytes left at offset " + std::to_string(offset) + ", " +
                                     std::to_string(kSizeFieldBytes) + " needed");
        }
        std::uint64_t size = 0;
        for (std::size_t i = 0; i < kSizeFieldBytes; ++i) {
            size = (size << 8) | bytes[offset + i];
        }
        if (size > remaining - kSizeFieldBytes) {
            throw std::runtime_error("Invalid message - reported data size larger than buffer");
        }
        if (parts.size() == expectedParts) {
            throw std::runtime_error("Number of parts in Message does not match number of expected arguments");
        }
        parts.push_back(Part{offset + kSizeFieldBytes, static_cast<std::size_t>(size)});
        offset += kSizeFieldBytes + static_cast<std::size_t>(size);
    }
    if (parts.size() != expectedParts) {
        throw std::runtime_error("Number of parts in Message does not match number of expected arguments");
    }
    return parts;
}

std::size_t MultipartFraming::beginPart(Message& message) {
    const std::size_t at = message.size();
    const std::uint8_t zeros[kSizeFieldBytes] = {};
    message.append(zeros, kSizeFieldBytes);
    return at;
}

void MultipartFraming::endPart(Message& message, std::size_t sizeFieldOffset) {
    std::uint64_t size = message.size() - sizeFieldOffset - kSizeFieldBytes;
    std::uint8_t* field = message.data() + sizeFieldOffset;
    for (std::size_t i = kSizeFieldBytes; i-- > 0;) {
        field[i] = static_cast<std::uint8_t>(size & 0xff);
        size >>= 8;
    }
}

}  // namespace agent::spf::legacyservicewrapper
