#pragma once

#include "InvokableFactoryRecord.h"

#include <atomic>
#include <memory>

namespace agent::spf::servicepublisher::detail {

// The deleter of every invokable pointer a publisher hands out: when the client's last copy goes
// it gives the invokable back through its factory, unless that happened before (giveBack) or the
// factory has been withdrawn. It holds the invokable the get-callback made, so the client's
// pointer stays valid until its last copy goes.
class InvokableLease {
public:
    InvokableLease(std::shared_ptr<InvokableFactoryRecord> record, std::shared_ptr<void> invokable);

    // Called once, on the thread that drops the last copy. Logs what the unget-callback throws.
    void operator()(void*) noexcept;

    // Gives the invokable back now, unless it was given back before (false). The caller holds a
    // copy of the pointer, so this never races with operator(). Throws what the unget-callback throws.
    bool giveBack();

private:
    std::shared_ptr<InvokableFactoryRecord> record_;
    std::shared_ptr<void> invokable_;
    // Behind a pointer so that the lease stays movable into the pointer's control block.
    std::unique_ptr<std::atomic<bool>> givenBack_;
};

}  // namespace agent::spf::servicepublisher::detail
