#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace agent::spf::serialisation {

// An owned, growable sequence of bytes: where serialisers write their output. A value type,
// not synchronised (like std::vector).
class ByteBuffer {
public:
    using value_type = std::uint8_t;
    using const_iterator = std::vector<std::uint8_t>::const_iterator;

    ByteBuffer() = default;
    explicit ByteBuffer(std::vector<std::uint8_t> bytes) noexcept : bytes_(std::move(bytes)) {}
    ByteBuffer(const void* data, std::size_t size);

    void append(const void* data, std::size_t size);
    void push_back(std::uint8_t byte) { bytes_.push_back(byte); }
    void reserve(std::size_t capacity) { bytes_.reserve(capacity); }
    void clear() noexcept { bytes_.clear(); }

    const std::uint8_t* data() const noexcept { return bytes_.data(); }
    std::size_t size() const noexcept { return bytes_.size(); }
    bool empty() const noexcept { return bytes_.empty(); }
    const_iterator begin() const noexcept { return bytes_.begin(); }
    const_iterator end() const noexcept { return bytes_.end(); }
    const std::vector<std::uint8_t>& bytes() const noexcept { return bytes_; }
    // Gives the bytes away, leaving the buffer empty.
    std::vector<std::uint8_t> release() noexcept;

    friend bool operator==(const ByteBuffer& a, const ByteBuffer& b) noexcept { return a.bytes_ == b.bytes_; }
    friend bool operator!=(const ByteBuffer& a, const ByteBuffer& b) noexcept { return !(a == b); }

private:
    std::vector<std::uint8_t> bytes_;
};

}  // namespace agent::spf::serialisation
