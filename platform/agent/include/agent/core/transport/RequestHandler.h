#pragma once

#include "agent/core/transport/Message.h"

#include <functional>

namespace agent::core::transport {

// Serves the requests sent to one address. It runs on the container's thread pool,
// possibly on several threads at once, never on the transport's own threads. Its
// return value is the reply; an exception it throws becomes a failure reply that
// carries the exception's what() (other exceptions: "Request handler failed").
using RequestHandler = std::function<Message(const Message& request)>;

}  // namespace agent::core::transport
