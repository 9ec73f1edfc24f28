#pragma once

#include "agent/spf/core/ExportedCallbackSharedState.h"
#include "agent/spf/core/MethodImplementation.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace agent::spf::core {

// A callable that a client passes as an argument of a call, so that the service can call
// back into the client. Before the call is sent, the bridge replaces it by something the
// service can address (the callback uuid) and serves the callback's invocations through the
// shared state.
//
// A cheap, copyable handle: copies share one ExportedCallbackSharedState. Thread-safe.
class ExportedCallback {
public:
    // A handle on an existing state. Null state: std::invalid_argument.
    explicit ExportedCallback(std::shared_ptr<ExportedCallbackSharedState> state);
    // A new callback under a fresh random (version 4) uuid; nullopt = no invoke limit.
    ExportedCallback(MethodImplementation implementation, std::optional<std::uint64_t> maximumInvokeCount);

    // From an ordinary callable, e.g. [](std::string progress) { ... }.
    template <class F>
    static ExportedCallback make(F&& callable, std::optional<std::uint64_t> maximumInvokeCount = std::nullopt) {
        return ExportedCallback(MethodImplementation::fromCallable(std::forward<F>(callable)), maximumInvokeCount);
    }

    const std::shared_ptr<ExportedCallbackSharedState>& getSharedState() const noexcept { return state_; }
    const boost::uuids::uuid& getCallbackUUID() const noexcept { return state_->getCallbackUUID(); }

    // The client no longer wants calls: see ExportedCallbackSharedState::clientSideHasRemovedCallback.
    void remove() { state_->clientSideHasRemovedCallback(); }

private:
    std::shared_ptr<ExportedCallbackSharedState> state_;
};

}  // namespace agent::spf::core
