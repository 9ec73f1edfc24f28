#include "agent/core/transport/Transport.h"

#include <stdexcept>

namespace agent::core::transport {

Transport::Transport(std::unique_ptr<ITransport> implementation) : implementation_(std::move(implementation)) {
    if (!implementation_) {
        throw std::invalid_argument("Transport needs an implementation");
    }
}

Transport::~Transport() = default;

}  // namespace agent::core::transport
