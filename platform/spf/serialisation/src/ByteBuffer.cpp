#include "agent/spf/serialisation/ByteBuffer.h"

#include <utility>

namespace agent::spf::serialisation {

ByteBuffer::ByteBuffer(const void* data, std::size_t size) { append(data, size); }

void ByteBuffer::append(const void* data, std::size_t size) {
    if (size == 0) {
        return;  // data may be null then
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    bytes_.insert(bytes_.end(), bytes, bytes + size);
}

std::vector<std::uint8_t> ByteBuffer::release() noexcept {
    std::vector<std::uint8_t> released;
    released.swap(bytes_);
    return released;
}

}  // namespace agent::spf::serialisation
