#include "InvokableFactoryRecord.h"

#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <stdexcept>

namespace agent::spf::servicepublisher::detail {

class InvokableFactoryRecord::CallbackScope {
public:
    explicit CallbackScope(InvokableFactoryRecord& record) : record_(record), entered_(record.enterCallback()) {}
    ~CallbackScope() {
        if (entered_) {
            record_.leaveCallback();
        }
    }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    bool entered() const noexcept { return entered_; }

private:
    InvokableFactoryRecord& record_;
    const bool entered_;
};

InvokableFactoryRecord::InvokableFactoryRecord(std::shared_ptr<const InvokableFactoryDescription> description,
                                               cppmicroservices::AnyMap matchProperties, std::uint64_t sequence,
                                               GetCallback getCallback, UngetCallback ungetCallback)
    : description_(std::move(description)),
      matchProperties_(std::move(matchProperties)),
      sequence_(sequence),
      getCallback_(std::move(getCallback)),
      ungetCallback_(std::move(ungetCallback)) {}

std::shared_ptr<void> InvokableFactoryRecord::get() {
    const CallbackScope scope(*this);
    if (!scope.entered()) {
        throw std::runtime_error("Invokable factory withdrawn: " + boost::uuids::to_string(description_->handle));
    }
    auto invokable = getCallback_();
    if (!invokable) {
        throw std::runtime_error("Invokable factory returned no invokable: " + description_->name);
    }
    return invokable;
}

bool InvokableFactoryRecord::unget(std::shared_ptr<void> invokable) {
    const CallbackScope scope(*this);
    if (!scope.entered()) {
        return false;
    }
    ungetCallback_(std::move(invokable));
    return true;
}

void InvokableFactoryRecord::withdraw() {
    GetCallback releasedGet;
    UngetCallback releasedUnget;
    {
        std::unique_lock<std::mutex> lock(callbacksMutex_);
        withdrawn_ = true;
        const auto self = std::this_thread::get_id();
        callbackReturned_.wait(lock, [&] {
            return std::all_of(runningOn_.begin(), runningOn_.end(), [&](auto id) { return id == self; });
        });
        if (runningOn_.empty()) {
            releasedGet = std::move(getCallback_);
            releasedUnget = std::move(ungetCallback_);
            getCallback_ = nullptr;
            ungetCallback_ = nullptr;
        }
    }
    // The callbacks' captures are destroyed here, outside the lock.
}

bool InvokableFactoryRecord::enterCallback() {
    std::lock_guard<std::mutex> lock(callbacksMutex_);
    if (withdrawn_) {
        return false;
    }
    runningOn_.push_back(std::this_thread::get_id());
    return true;
}

void InvokableFactoryRecord::leaveCallback() noexcept {
    GetCallback releasedGet;
    UngetCallback releasedUnget;
    {
        std::lock_guard<std::mutex> lock(callbacksMutex_);
        runningOn_.erase(std::find(runningOn_.begin(), runningOn_.end(), std::this_thread::get_id()));
        if (withdrawn_) {
            callbackReturned_.notify_all();
            if (runningOn_.empty()) {
                // A callback withdrew its own factory: the last one out releases the callbacks.
                releasedGet = std::move(getCallback_);
                releasedUnget = std::move(ungetCallback_);
                getCallback_ = nullptr;
                ungetCallback_ = nullptr;
            }
        }
    }
}

}  // namespace agent::spf::servicepublisher::detail
