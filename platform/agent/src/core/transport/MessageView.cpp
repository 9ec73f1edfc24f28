#include "agent/core/transport/MessageView.h"

#include "agent/core/transport/Message.h"

#include <stdexcept>

namespace agent::core::transport {

const std::uint8_t* MessageView::data() const noexcept {
    return message_ == nullptr ? nullptr : message_->data() + offset_;
}

MessageView MessageView::makeView(std::size_t offset, std::size_t size) const {
    if (offset > size_ || size > size_ - offset) {
        throw std::out_of_range("MessageView outside of its message");
    }
    return MessageView(message_, offset_ + offset, size == 0 ? size_ - offset : size);
}

}  // namespace agent::core::transport
