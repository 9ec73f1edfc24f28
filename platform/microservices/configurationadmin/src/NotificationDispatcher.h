#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_NOTIFICATIONDISPATCHER_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_NOTIFICATIONDISPATCHER_H

#include "ConfigurationChange.h"
#include "DeliveryTarget.h"
#include "DeliveryThread.h"

#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/cm/ConfigurationAdmin.hpp"

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cppmicroservices::cmimpl
{
    // Delivers configuration changes to the tracked listeners, managed
    // services and managed service factories, all on its one DeliveryThread,
    // in the order they were posted: for each change the listeners first,
    // then the managed services whose PID it is, then the factories whose
    // factory PID it has.
    //
    // A new managed service or factory gets the state each configuration
    // had when its registration was queued, unless a change queued later
    // will tell it anyway; from then on it gets every change. Per target and
    // PID the dispatcher remembers the (generation, change count) it last
    // delivered and skips anything not newer, so no state is delivered twice
    // and a stale one never follows a newer one. A removal is delivered only
    // to targets that were given that configuration. Exceptions from the
    // callbacks are logged, never propagated.
    //
    // Every member may be called from any thread, the delivery thread
    // included; none calls out while holding a lock.
    class NotificationDispatcher : public std::enable_shared_from_this<NotificationDispatcher>
    {
      public:
        // The current state of every configuration updated at least once,
        // each with the sequence of its last change. Called on the delivery
        // thread; must not block on delivery.
        using CurrentState = std::function<std::vector<ConfigurationChange>()>;

        NotificationDispatcher() = default;
        NotificationDispatcher(NotificationDispatcher const&) = delete;
        NotificationDispatcher& operator=(NotificationDispatcher const&) = delete;

        // The reference ConfigurationEvents carry; set once registered.
        void SetAdminReference(ServiceReference<service::cm::ConfigurationAdmin> const& reference);

        // Queues delivery of change; see DeliveryThread::Post for the
        // ticket. Non-blocking and takes only leaf locks, so callers post
        // while holding the lock that orders their changes, and keep the
        // ticket's sequence as the state's (ConfigurationChange::sequence).
        DeliveryThread::Ticket Post(ConfigurationChange change);

        // A future that is ready once everything queued so far was delivered.
        std::shared_future<void> PostNothing();

        // Start delivering to a new service. Managed services and factories
        // also get, soon after on the delivery thread, the current state of
        // the configurations of pids. Return the target to pass to
        // ChangePids and Remove. Non-blocking.
        std::shared_ptr<DeliveryTarget> AddListener(std::shared_ptr<service::cm::ConfigurationListener> listener,
                                                    std::string description);
        std::shared_ptr<DeliveryTarget> AddManagedService(std::shared_ptr<service::cm::ManagedService> service,
                                                          std::vector<std::string> pids,
                                                          std::string description,
                                                          CurrentState currentState);
        std::shared_ptr<DeliveryTarget> AddFactory(std::shared_ptr<service::cm::ManagedServiceFactory> factory,
                                                   std::vector<std::string> pids,
                                                   std::string description,
                                                   CurrentState currentState);

        // The target's service changed its PIDs: later changes are matched
        // against pids, and the current state of their configurations is
        // delivered. Non-blocking.
        void ChangePids(std::shared_ptr<DeliveryTarget> const& target,
                        std::vector<std::string> pids,
                        CurrentState currentState);

        // Stops delivering to target. A callback already under way on the
        // delivery thread may still be running. Non-blocking.
        void Remove(std::shared_ptr<DeliveryTarget> const& target);

        // Drops queued deliveries and waits for the one under way, except
        // when called from a callback, and forgets the admin reference.
        // Idempotent; blocks.
        void Stop();

      private:
        struct Entry
        {
            std::shared_ptr<DeliveryTarget> target;
            std::vector<std::string> pids;
        };

        std::shared_ptr<DeliveryTarget> Add(std::shared_ptr<DeliveryTarget> target,
                                            std::vector<std::string> pids,
                                            CurrentState currentState);
        void QueueCurrentState(std::shared_ptr<DeliveryTarget> const& target, CurrentState currentState);

        // Delivery thread only.
        void Deliver(ConfigurationChange const& change);
        void DeliverCurrentState(std::shared_ptr<DeliveryTarget> const& target,
                                 CurrentState const& currentState,
                                 std::uint64_t sequence);
        void DeliverTo(DeliveryTarget& target, ConfigurationChange const& change);
        static bool Matches(DeliveryTarget const& target, std::vector<std::string> const& pids,
                            ConfigurationChange const& change);

        std::mutex targetsMutex;
        std::vector<Entry> targets; // guarded by targetsMutex
        ServiceReference<service::cm::ConfigurationAdmin> adminReference; // guarded by targetsMutex

        // Declared last: destroyed (stopped) first, while the rest is alive.
        // Tasks hold the dispatcher weakly, so the last owner may be a task;
        // the thread then ends after that task instead of waiting for itself.
        DeliveryThread thread;
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_NOTIFICATIONDISPATCHER_H
