#pragma once

#include <boost/functional/hash.hpp>
#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace agent::core::transport {

// Where a request goes on an exchange: a uuid. The nil uuid is not a valid address.
// A value type; thread-safe like an int.
class Address {
public:
    Address() noexcept = default;
    explicit Address(const boost::uuids::uuid& id) noexcept : id_(id) {}

    bool isValid() const noexcept { return !id_.is_nil(); }
    const boost::uuids::uuid& getUUID() const noexcept { return id_; }
    std::string toString() const;

    friend bool operator==(const Address& a, const Address& b) noexcept { return a.id_ == b.id_; }
    friend bool operator!=(const Address& a, const Address& b) noexcept { return a.id_ != b.id_; }
    friend bool operator<(const Address& a, const Address& b) noexcept { return a.id_ < b.id_; }

private:
    boost::uuids::uuid id_{};
};

// Names of the addresses every exchange reserves.
enum class WellKnownAddressName : std::uint32_t {
    Directory = 1,
};

// The reserved address for `name` (1 = the directory service). The same on every
// exchange and in every process; distinct, valid addresses for distinct names.
Address getWellKnowAddressFor(std::uint32_t name) noexcept;
inline Address getWellKnowAddressFor(WellKnownAddressName name) noexcept {
    return getWellKnowAddressFor(static_cast<std::uint32_t>(name));
}

}  // namespace agent::core::transport

template <>
struct std::hash<agent::core::transport::Address> {
    std::size_t operator()(const agent::core::transport::Address& a) const noexcept {
        return boost::hash<boost::uuids::uuid>()(a.getUUID());
    }
};
