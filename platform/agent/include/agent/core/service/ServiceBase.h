#pragma once

#include "agent/core/service/StartupConfiguration.h"

#include <string>

namespace agent::core::service {

// A service a container runs. The container calls start once, then stop once if start
// succeeded, from one thread at a time; name() may be called from any thread.
class ServiceBase {
public:
    virtual ~ServiceBase() = default;

    // Brings the service up (registers its handlers and its directory entry). Returns false
    // when it could not start; it then holds nothing. May block on the exchange.
    virtual bool start(const StartupConfiguration& configuration) = 0;
    // Withdraws what start set up. Blocks until the service's own work is done. Never throws.
    virtual void stop() = 0;
    // The service's name, as it appears in the directory.
    virtual std::string name() const = 0;
};

}  // namespace agent::core::service
