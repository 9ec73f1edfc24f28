#include "InvokableLease.h"

#include "Logger.h"

namespace agent::spf::servicepublisher::detail {

InvokableLease::InvokableLease(std::shared_ptr<InvokableFactoryRecord> record, std::shared_ptr<void> invokable)
    : record_(std::move(record)),
      invokable_(std::move(invokable)),
      givenBack_(std::make_unique<std::atomic<bool>>(false)) {}

void InvokableLease::operator()(void*) noexcept {
    // Weak pointers may keep this lease alive long after; the invokable and the factory go now.
    const auto record = std::move(record_);
    auto invokable = std::move(invokable_);
    if (givenBack_->exchange(true)) {
        return;
    }
    try {
        record->unget(std::move(invokable));
    } catch (...) {
        try {
            logCaughtException("Giving back an invokable of factory " + record->description()->name + " failed");
        } catch (...) {
            // No memory for the explanation; the failure stays unlogged.
        }
    }
}

bool InvokableLease::giveBack() {
    if (givenBack_->exchange(true)) {
        return false;
    }
    return record_->unget(invokable_);
}

}  // namespace agent::spf::servicepublisher::detail
