#pragma once

#include "agent/spf/servicepublisher/InvokableFactoryDescription.h"

#include <cstdint>
#include <functional>

namespace agent::spf::servicepublisher {

enum class InvokableFactoryEventKind { Added, Removed };

// Told of a factory that was registered or withdrawn. Called with no lock of the publisher held,
// on the thread of some registration, withdrawal or listener addition (not necessarily the one
// that made the change), one event at a time per publisher, in the order the changes happened.
// An exception it throws is logged and dropped. Events may arrive late: a factory may already be
// withdrawn when its Added event is heard (getInvokable then fails).
using InvokableFactoryListener =
    std::function<void(InvokableFactoryEventKind kind, const InvokableFactoryDescription& factory)>;

// Names one added listener; the default token names none.
class InvokableFactoryListenerToken {
public:
    InvokableFactoryListenerToken() noexcept = default;
    explicit InvokableFactoryListenerToken(std::uint64_t id) noexcept : id_(id) {}

    std::uint64_t id() const noexcept { return id_; }
    explicit operator bool() const noexcept { return id_ != 0; }

private:
    std::uint64_t id_ = 0;
};

}  // namespace agent::spf::servicepublisher
