#include "agent/core/transport/Address.h"

#include <boost/uuid/uuid_io.hpp>

namespace agent::core::transport {

std::string Address::toString() const {
    return boost::uuids::to_string(id_);
}

Address getWellKnowAddressFor(std::uint32_t name) noexcept {
    // A fixed prefix no random (version 4) uuid has: its version nibble is 0.
    boost::uuids::uuid id{{0x5e, 0x11, 0x4e, 0x0a, 0x77, 0x4b, 0x00, 0x00,
                           0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}};
    id.data[12] = static_cast<std::uint8_t>(name >> 24);
    id.data[13] = static_cast<std::uint8_t>(name >> 16);
    id.data[14] = static_cast<std::uint8_t>(name >> 8);
    id.data[15] = static_cast<std::uint8_t>(name);
    return Address(id);
}

}  // namespace agent::core::transport
