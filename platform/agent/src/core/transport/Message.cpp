#include "agent/core/transport/Message.h"

#include "agent/core/transport/MessageView.h"

#include <stdexcept>

namespace agent::core::transport {

Message::Message(const void* data, std::size_t size) {
    append(data, size);
}

Message::Message(std::vector<std::uint8_t> bytes) noexcept : bytes_(std::move(bytes)) {}

Message::Message(std::string_view text) {
    append(text);
}

void Message::append(const void* data, std::size_t size) {
    if (size == 0) {
        return;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    bytes_.insert(bytes_.end(), bytes, bytes + size);
}

void Message::append(std::string_view text) {
    append(text.data(), text.size());
}

void Message::append(const Message& other) {
    if (&other == this) {
        // insert from our own range would read what it reallocates
        bytes_.reserve(bytes_.size() * 2);
        bytes_.insert(bytes_.end(), bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(bytes_.size()));
        return;
    }
    append(other.data(), other.size());
}

void Message::append(const MessageView& view) {
    if (view.size() == 0) {
        return;
    }
    // The view may be of this very message: copy out before growing.
    std::vector<std::uint8_t> copy(view.data(), view.data() + view.size());
    bytes_.insert(bytes_.end(), copy.begin(), copy.end());
}

MessageView Message::makeView(std::size_t offset, std::size_t size) const {
    if (offset > bytes_.size() || size > bytes_.size() - offset) {
        throw std::out_of_range("MessageView outside of its message");
    }
    return MessageView(this, offset, size == 0 ? bytes_.size() - offset : size);
}

std::vector<std::uint8_t> Message::release() noexcept {
    std::vector<std::uint8_t> bytes;
    bytes.swap(bytes_);
    return bytes;
}

}  // namespace agent::core::transport
