#include "InvokableFactoryEventDispatcher.h"

#include "Logger.h"

namespace agent::spf::servicepublisher::detail {

void InvokableFactoryEventDispatcher::enqueue(InvokableFactoryEventKind kind, Description factory) {
    std::lock_guard<std::mutex> lock(eventsMutex_);
    pending_.push_back(Event{kind, std::move(factory), 1, lastListenerId_});
}

InvokableFactoryListenerToken InvokableFactoryEventDispatcher::add(InvokableFactoryListener listener,
                                                                   const std::vector<Description>& existing) {
    auto shared = std::make_shared<const InvokableFactoryListener>(std::move(listener));
    std::lock_guard<std::mutex> lock(eventsMutex_);
    const auto id = ++lastListenerId_;
    listeners_.emplace(id, std::move(shared));
    for (const auto& factory : existing) {
        pending_.push_back(Event{InvokableFactoryEventKind::Added, factory, id, id});
    }
    return InvokableFactoryListenerToken(id);
}

bool InvokableFactoryEventDispatcher::remove(const InvokableFactoryListenerToken& token) {
    std::shared_ptr<const InvokableFactoryListener> removed;
    {
        std::unique_lock<std::mutex> lock(eventsMutex_);
        const auto found = listeners_.find(token.id());
        if (found == listeners_.end()) {
            return false;
        }
        removed = std::move(found->second);
        listeners_.erase(found);
        const auto self = std::this_thread::get_id();
        listenerReturned_.wait(lock, [&] { return runningListener_ != token.id() || deliverer_ == self; });
    }
    // The listener's captures may go here, outside the lock.
    return true;
}

void InvokableFactoryEventDispatcher::deliver() noexcept {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    if (delivering_) {
        return;
    }
    delivering_ = true;
    deliverer_ = std::this_thread::get_id();
    while (!pending_.empty()) {
        auto event = std::move(pending_.front());
        pending_.pop_front();
        deliverOne(event, lock);
        lock.unlock();
        event.factory.reset();  // a withdrawn factory's description may go here, outside the lock
        lock.lock();
    }
    delivering_ = false;
    deliverer_ = std::thread::id();
    listenerReturned_.notify_all();
}

void InvokableFactoryEventDispatcher::deliverOne(const Event& event, std::unique_lock<std::mutex>& lock) {
    auto next = listeners_.lower_bound(event.firstListener);
    while (next != listeners_.end() && next->first <= event.lastListener) {
        const auto id = next->first;
        auto listener = next->second;
        runningListener_ = id;
        lock.unlock();
        try {
            (*listener)(event.kind, *event.factory);
        } catch (...) {
            logCaughtException("An invokable factory listener failed");
        }
        listener.reset();
        lock.lock();
        runningListener_ = 0;
        listenerReturned_.notify_all();
        // The listener may have added or removed listeners meanwhile.
        next = listeners_.upper_bound(id);
    }
}

void InvokableFactoryEventDispatcher::waitUntilIdle() {
    std::unique_lock<std::mutex> lock(eventsMutex_);
    listenerReturned_.wait(lock, [&] { return !delivering_ && pending_.empty(); });
}

}  // namespace agent::spf::servicepublisher::detail
