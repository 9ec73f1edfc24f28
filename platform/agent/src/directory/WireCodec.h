#pragma once

#include "agent/core/transport/Message.h"

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>

namespace agent::directory::protocol {

// Every malformed directory message is refused with one of these; the text is fixed.
class DirectoryProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Appends big-endian integers, length-prefixed strings and uuids to a Message.
class WireWriter {
public:
    explicit WireWriter(core::transport::Message& out) : out_(out) {}

    void u8(std::uint8_t v) { out_.append(&v, 1); }
    void u32(std::uint32_t v) {
        const std::uint8_t bytes[4] = {std::uint8_t(v >> 24), std::uint8_t(v >> 16), std::uint8_t(v >> 8),
                                       std::uint8_t(v)};
        out_.append(bytes, 4);
    }
    void u64(std::uint64_t v) {
        u32(std::uint32_t(v >> 32));
        u32(std::uint32_t(v));
    }
    void uuid(const boost::uuids::uuid& id) { out_.append(id.data, 16); }
    void string(const std::string& s) {
        u32(static_cast<std::uint32_t>(s.size()));
        out_.append(s.data(), s.size());
    }
    void stringMap(const std::map<std::string, std::string>& map) {
        u32(static_cast<std::uint32_t>(map.size()));
        for (const auto& [key, value] : map) {
            string(key);
            string(value);
        }
    }

private:
    core::transport::Message& out_;
};

// Reads what WireWriter wrote, checking every length against the bytes left before it
// allocates, so a hostile message can at most cost its own size.
class WireReader {
public:
    // Each string costs at least its 4-byte length; no count may exceed this either.
    static constexpr std::uint32_t kMaxCount = 1u << 20;

    WireReader(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    std::size_t left() const noexcept { return left_; }

    std::uint8_t u8() {
        need(1);
        return take(1)[0];
    }
    std::uint32_t u32() {
        need(4);
        const auto* b = take(4);
        return (std::uint32_t(b[0]) << 24) | (std::uint32_t(b[1]) << 16) | (std::uint32_t(b[2]) << 8) | b[3];
    }
    std::uint64_t u64() {
        const std::uint64_t high = u32();
        return (high << 32) | u32();
    }
    boost::uuids::uuid uuid() {
        need(16);
        boost::uuids::uuid id;
        std::memcpy(id.data, take(16), 16);
        return id;
    }
    bool flag() {
        const auto v = u8();
        if (v > 1) {
            throw DirectoryProtocolError("Directory message has a flag byte of " + std::to_string(v));
        }
        return v == 1;
    }
    std::string string() {
        const auto size = u32();
        need(size);
        const auto* b = take(size);
        return std::string(reinterpret_cast<const char*>(b), size);
    }
    // A count of entries each at least `minimumEntrySize` bytes long.
    std::uint32_t count(std::size_t minimumEntrySize) {
        const auto n = u32();
        if (n > kMaxCount || std::uint64_t(n) * minimumEntrySize > left_) {
            throw DirectoryProtocolError("Directory message claims " + std::to_string(n) +
                                         " entries, more than its bytes can hold");
        }
        return n;
    }
    std::map<std::string, std::string> stringMap() {
        std::map<std::string, std::string> map;
        for (auto n = count(8); n > 0; --n) {
            auto key = string();
            map[std::move(key)] = string();
        }
        return map;
    }
    void expectEnd() const {
        if (left_ != 0) {
            throw DirectoryProtocolError("Directory message has " + std::to_string(left_) + " bytes after its end");
        }
    }

private:
    void need(std::size_t n) const {
        if (n > left_) {
            throw DirectoryProtocolError("Directory message is truncated");
        }
    }
    const std::uint8_t* take(std::size_t n) {
        const auto* at = data_;
        data_ += n;
        left_ -= n;
        return at;
    }

    const std::uint8_t* data_;
    std::size_t left_;
};

}  // namespace agent::directory::protocol
