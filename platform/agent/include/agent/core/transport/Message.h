#pragma once

#include "agent/core/transport/MessageIterator.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace agent::core::transport {

class MessageView;

// An owned, growable byte sequence: the payload of a request or reply.
// A value type (copyable, cheap to move); not synchronised, like std::vector.
class Message {
public:
    using value_type = std::uint8_t;
    using iterator = MessageIterator;
    using const_iterator = ConstMessageIterator;

    Message() = default;
    Message(const void* data, std::size_t size);
    explicit Message(std::vector<std::uint8_t> bytes) noexcept;
    explicit Message(std::string_view text);

    // Copies the bytes in; invalidates iterators, views' data pointers and data().
    void append(const void* data, std::size_t size);
    void append(std::string_view text);
    void append(const Message& other);
    void append(const MessageView& view);

    std::size_t size() const noexcept { return bytes_.size(); }
    bool empty() const noexcept { return bytes_.empty(); }
    std::uint8_t* data() noexcept { return bytes_.data(); }
    const std::uint8_t* data() const noexcept { return bytes_.data(); }

    // Writable iteration: callers fill in bytes reserved earlier (a length prefix, say).
    iterator begin() noexcept { return iterator(this, bytes_.data()); }
    iterator end() noexcept { return iterator(this, bytes_.data() + bytes_.size()); }
    const_iterator begin() const noexcept { return const_iterator(this, bytes_.data()); }
    const_iterator end() const noexcept { return const_iterator(this, bytes_.data() + bytes_.size()); }
    const_iterator cbegin() const noexcept { return begin(); }
    const_iterator cend() const noexcept { return end(); }

    // A view of `size` bytes from `offset`; size 0 means "to the end", so makeView(0, 0)
    // is the whole message. Throws std::out_of_range("MessageView outside of its message")
    // if the range does not fit. The view must not outlive this message.
    MessageView makeView(std::size_t offset, std::size_t size) const;

    // The bytes as text (no validation).
    std::string_view asStringView() const noexcept {
        return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
    }
    void reserve(std::size_t capacity) { bytes_.reserve(capacity); }
    void clear() noexcept { bytes_.clear(); }
    // Gives the bytes away, leaving the message empty.
    std::vector<std::uint8_t> release() noexcept;

    friend bool operator==(const Message& a, const Message& b) noexcept { return a.bytes_ == b.bytes_; }
    friend bool operator!=(const Message& a, const Message& b) noexcept { return !(a == b); }

private:
    std::vector<std::uint8_t> bytes_;
};

}  // namespace agent::core::transport
