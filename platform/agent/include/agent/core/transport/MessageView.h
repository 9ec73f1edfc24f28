#pragma once

#include "agent/core/transport/MessageIterator.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace agent::core::transport {

class Message;

// A non-owning, read-only window on a Message: contiguous, so data() can back a
// std::streambuf without copying. It refers to the message, not to its bytes, so it
// stays valid across appends to the message, but not beyond the message's lifetime.
// Iterators of a view belong to its message: views of one message are compatible.
class MessageView {
public:
    using value_type = std::uint8_t;
    using const_iterator = ConstMessageIterator;

    // An empty view of no message.
    MessageView() noexcept = default;

    const std::uint8_t* data() const noexcept;
    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    // Offset of this view in its message.
    std::size_t offset() const noexcept { return offset_; }

    const_iterator begin() const noexcept { return const_iterator(message_, data()); }
    const_iterator end() const noexcept { return const_iterator(message_, data() + size_); }

    // A view of `size` bytes from `offset` within this view; size 0 means "to the end".
    // Throws std::out_of_range("MessageView outside of its message") if it does not fit.
    MessageView makeView(std::size_t offset, std::size_t size) const;

    std::string_view asStringView() const noexcept {
        return {reinterpret_cast<const char*>(data()), size_};
    }

private:
    friend class Message;
    MessageView(const Message* message, std::size_t offset, std::size_t size) noexcept
        : message_(message), offset_(offset), size_(size) {}

    const Message* message_ = nullptr;
    std::size_t offset_ = 0;
    std::size_t size_ = 0;
};

}  // namespace agent::core::transport
