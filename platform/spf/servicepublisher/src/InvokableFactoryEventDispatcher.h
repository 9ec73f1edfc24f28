#pragma once

#include "agent/spf/servicepublisher/InvokableFactoryListener.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace agent::spf::servicepublisher::detail {

// Delivers factory events to listeners in the order they were queued, one at a time, with no
// lock held while a listener runs. Whichever thread calls deliver() while nobody else delivers
// becomes the deliverer and empties the queue, including events queued meanwhile by others; so
// a listener that registers or withdraws factories does not recurse into listeners.
// Thread safety: all members may be called from any thread at once.
class InvokableFactoryEventDispatcher {
public:
    using Description = std::shared_ptr<const InvokableFactoryDescription>;

    // Queues an event for every listener added before this call. Non-blocking; delivers nothing.
    void enqueue(InvokableFactoryEventKind kind, Description factory);

    // Adds a listener and queues an Added event for it alone for each of existing. Non-blocking;
    // delivers nothing.
    InvokableFactoryListenerToken add(InvokableFactoryListener listener, const std::vector<Description>& existing);

    // See InvokablePublisherCommon::removeInvokableFactoryListener.
    bool remove(const InvokableFactoryListenerToken& token);

    // Delivers queued events unless another thread is already doing so. Call with no lock held.
    void deliver() noexcept;

    // Blocks until no thread delivers and nothing is queued (another thread may be delivering).
    void waitUntilIdle();

private:
    struct Event {
        InvokableFactoryEventKind kind;
        Description factory;
        // The listeners, by id, that are told: those in [firstListener, lastListener].
        std::uint64_t firstListener;
        std::uint64_t lastListener;
    };

    // Runs the listeners of one event, each with the lock released. Needs eventsMutex_ held.
    void deliverOne(const Event& event, std::unique_lock<std::mutex>& lock);

    std::mutex eventsMutex_;  // guards the members below
    std::condition_variable listenerReturned_;
    std::deque<Event> pending_;
    std::map<std::uint64_t, std::shared_ptr<const InvokableFactoryListener>> listeners_;
    std::uint64_t lastListenerId_ = 0;
    bool delivering_ = false;
    std::thread::id deliverer_;
    std::uint64_t runningListener_ = 0;  // the listener the deliverer is calling, 0 for none
};

}  // namespace agent::spf::servicepublisher::detail
