#pragma once

#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/core/MethodImplementation.h"

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

namespace agent::spf::core {

// What the client that exports a callback and the bridge that serves it share: the
// callback's uuid (the transport address the service calls), its typed implementation,
// how often it may be invoked, and who to tell when it ends.
//
// A callback is active until it has been invoked its maximum number of times, or either
// side removes it. Thread-safe: every member may be called from any thread. Handlers run on
// the thread that caused them, without any lock held, at most once each; their exceptions
// propagate to that thread's call.
class ExportedCallbackSharedState {
public:
    // maximumInvokeCount: nullopt = unlimited; 0 = never invocable.
    ExportedCallbackSharedState(boost::uuids::uuid callbackUUID, MethodImplementation implementation,
                                std::optional<std::uint64_t> maximumInvokeCount);

    const boost::uuids::uuid& getCallbackUUID() const noexcept { return callbackUUID_; }
    // The maximum given at construction, whatever has happened since.
    std::optional<std::uint64_t> getMaximumInvokeCount() const noexcept { return maximumInvokeCount_; }
    const MethodImplementation& getImplementation() const noexcept { return implementation_; }
    std::uint64_t getInvokeCount() const;
    bool isActive() const;

    // Called (once) after the invoke that used up the maximum count has returned.
    void setLastInvokeHandler(std::function<void()> handler);
    // Called (once) when the client removes the callback (clientSideHasRemovedCallback).
    void setClientSideRemovedHandler(std::function<void()> handler);

    // Runs the callback on the caller's thread. Fails with std::runtime_error
    // "Exported callback is no longer active" once used up or removed, and with the
    // implementation's failures (a failed invoke still counts).
    GenericPayload invoke(GenericPayload&& args);

    // The service has dropped the callback: it becomes inactive; no handler runs.
    void serviceSideHasRemovedCallback();
    // The client has dropped the callback: it becomes inactive and, unless either side
    // had removed it already, the client-side-removed handler runs.
    void clientSideHasRemovedCallback();

private:
    void runLastInvokeHandler();

    const boost::uuids::uuid callbackUUID_;
    const MethodImplementation implementation_;
    const std::optional<std::uint64_t> maximumInvokeCount_;

    mutable std::mutex stateMutex_;  // guards the members below
    std::uint64_t invokeCount_ = 0;
    bool removed_ = false;
    std::function<void()> lastInvokeHandler_;
    std::function<void()> clientSideRemovedHandler_;
};

}  // namespace agent::spf::core
