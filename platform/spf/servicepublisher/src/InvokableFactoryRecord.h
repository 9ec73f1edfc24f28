#pragma once

#include "agent/spf/servicepublisher/InvokableFactoryDescription.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace agent::spf::servicepublisher::detail {

// One registered factory: what clients see of it, and its two callbacks with the bookkeeping
// that lets withdraw() wait for them. Shared by the publisher's registry and by every invokable
// lease made from it, so a lease may outlive both the registration and the publisher.
// Thread safety: all members may be called from any thread at once.
class InvokableFactoryRecord {
public:
    using GetCallback = std::function<std::shared_ptr<void>()>;
    using UngetCallback = std::function<void(std::shared_ptr<void>)>;

    InvokableFactoryRecord(std::shared_ptr<const InvokableFactoryDescription> description,
                           cppmicroservices::AnyMap matchProperties, std::uint64_t sequence, GetCallback getCallback,
                           UngetCallback ungetCallback);

    const std::shared_ptr<const InvokableFactoryDescription>& description() const noexcept { return description_; }
    // The service and endpoint properties merged, for filters.
    const cppmicroservices::AnyMap& matchProperties() const noexcept { return matchProperties_; }
    // Registration order.
    std::uint64_t sequence() const noexcept { return sequence_; }

    // Calls the get-callback on this thread. Throws std::runtime_error("Invokable factory
    // withdrawn: <handle>") once withdrawn, "Invokable factory returned no invokable: <name>" for
    // a null result, or what the callback throws.
    std::shared_ptr<void> get();

    // Calls the unget-callback on this thread, unless withdrawn (then false). Throws what the
    // callback throws.
    bool unget(std::shared_ptr<void> invokable);

    // Stops all further callback calls and waits until those running on other threads have
    // returned. Idempotent. Blocking.
    void withdraw();

private:
    class CallbackScope;

    // False once withdrawn; otherwise counts this thread as running a callback.
    bool enterCallback();
    void leaveCallback() noexcept;

    const std::shared_ptr<const InvokableFactoryDescription> description_;
    const cppmicroservices::AnyMap matchProperties_;
    const std::uint64_t sequence_;

    std::mutex callbacksMutex_;  // guards the members below
    std::condition_variable callbackReturned_;
    bool withdrawn_ = false;
    // One element per callback call in progress. While it is not empty the callbacks below are
    // only read (called); they are released once withdrawn and empty.
    std::vector<std::thread::id> runningOn_;
    GetCallback getCallback_;
    UngetCallback ungetCallback_;
};

}  // namespace agent::spf::servicepublisher::detail
