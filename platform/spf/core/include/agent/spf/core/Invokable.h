#pragma once

#include "agent/spf/core/CompletionHandler.h"
#include "agent/spf/core/GenericPayload.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace agent::spf::core {

// Something SPF clients call by method name. Implementations are shared between client
// threads, so every member must be thread-safe. The order of the virtual members is part
// of the binary interface: keep it.
class Invokable {
public:
    // The method names this invokable answers. May throw (a remote invokable that has
    // gone away throws std::runtime_error).
    virtual std::vector<std::string> getSupportedNames() const = 0;

    virtual ~Invokable();

    // True when calls run inside this process without crossing a transport. Remote
    // bridges answer false.
    virtual bool isInProcess() const;

    // Starts a call and returns without waiting for it. The outcome reaches `handler`
    // exactly once, on a thread of the implementation's choosing, as a result payload or
    // a failure; nothing is thrown out of this function. `timeout`, when given, bounds the
    // wait for the result ("Timeout").
    virtual void invokeAsync(std::optional<std::chrono::milliseconds> timeout, std::string name,
                             CompletionHandler handler, GenericPayload args) = 0;

protected:
    Invokable() = default;
    Invokable(const Invokable&) = default;
    Invokable& operator=(const Invokable&) = default;
};

}  // namespace agent::spf::core
