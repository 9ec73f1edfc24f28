#include "NotificationDispatcher.h"

#include "CmLogger.h"

#include "cppmicroservices/cm/ConfigurationException.hpp"

#include "foundation/log/Severity.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

namespace cppmicroservices::cmimpl
{
    namespace
    {
        using service::cm::ConfigurationEvent;
        using service::cm::ConfigurationEventType;
        using service::cm::ConfigurationException;

        // Runs one callback; whatever it throws is logged.
        template <class Call>
        void
        Guarded(DeliveryTarget const& target, char const* what, std::string const& pid, Call&& call) noexcept
        {
            auto const& logger = CmLogger();
            try
            {
                call();
            }
            catch (ConfigurationException const& e)
            {
                FOUNDATION_LOG(logger, foundation::log::severity::error)
                    << target.description << " rejected " << what << " of configuration " << pid << ": "
                    << e.GetReason()
                    << (e.GetProperty().empty() ? std::string() : " (property " + e.GetProperty() + ")");
            }
            catch (std::exception const& e)
            {
                FOUNDATION_LOG(logger, foundation::log::severity::error)
                    << target.description << " threw during " << what << " of configuration " << pid << ": "
                    << e.what();
            }
            catch (...)
            {
                FOUNDATION_LOG(logger, foundation::log::severity::error)
                    << target.description << " threw an unknown exception during " << what
                    << " of configuration " << pid;
            }
        }
    } // namespace

    void
    NotificationDispatcher::SetAdminReference(ServiceReference<service::cm::ConfigurationAdmin> const& reference)
    {
        std::lock_guard<std::mutex> lock(targetsMutex);
        adminReference = reference;
    }

    DeliveryThread::Ticket
    NotificationDispatcher::Post(ConfigurationChange change)
    {
        return thread.Post(
            [weak = weak_from_this(), change = std::move(change)](std::uint64_t)
            {
                if (auto self = weak.lock())
                {
                    self->Deliver(change);
                }
            });
    }

    std::shared_future<void>
    NotificationDispatcher::PostNothing()
    {
        return thread.Post([](std::uint64_t) {}).done;
    }

    std::shared_ptr<DeliveryTarget>
    NotificationDispatcher::AddListener(std::shared_ptr<service::cm::ConfigurationListener> listener,
                                        std::string description)
    {
        auto target = std::make_shared<DeliveryTarget>();
        target->listener = std::move(listener);
        target->description = std::move(description);
        return Add(std::move(target), {}, nullptr);
    }

    std::shared_ptr<DeliveryTarget>
    NotificationDispatcher::AddManagedService(std::shared_ptr<service::cm::ManagedService> service,
                                              std::vector<std::string> pids,
                                              std::string description,
                                              CurrentState currentState)
    {
        auto target = std::make_shared<DeliveryTarget>();
        target->managedService = std::move(service);
        target->description = std::move(description);
        return Add(std::move(target), std::move(pids), std::move(currentState));
    }

    std::shared_ptr<DeliveryTarget>
    NotificationDispatcher::AddFactory(std::shared_ptr<service::cm::ManagedServiceFactory> factory,
                                       std::vector<std::string> pids,
                                       std::string description,
                                       CurrentState currentState)
    {
        auto target = std::make_shared<DeliveryTarget>();
        target->factory = std::move(factory);
        target->description = std::move(description);
        return Add(std::move(target), std::move(pids), std::move(currentState));
    }

    std::shared_ptr<DeliveryTarget>
    NotificationDispatcher::Add(std::shared_ptr<DeliveryTarget> target,
                                std::vector<std::string> pids,
                                CurrentState currentState)
    {
        // The target is visible to every change queued from now on before
        // its current state is read, so no change falls between the two.
        {
            std::lock_guard<std::mutex> lock(targetsMutex);
            targets.push_back(Entry{ target, std::move(pids) });
        }
        if (currentState)
        {
            QueueCurrentState(target, std::move(currentState));
        }
        return target;
    }

    void
    NotificationDispatcher::ChangePids(std::shared_ptr<DeliveryTarget> const& target,
                                       std::vector<std::string> pids,
                                       CurrentState currentState)
    {
        {
            std::lock_guard<std::mutex> lock(targetsMutex);
            auto found = std::find_if(targets.begin(), targets.end(),
                                      [&](Entry const& entry) { return entry.target == target; });
            if (found == targets.end())
            {
                return;
            }
            found->pids = std::move(pids);
        }
        QueueCurrentState(target, std::move(currentState));
    }

    void
    NotificationDispatcher::Remove(std::shared_ptr<DeliveryTarget> const& target)
    {
        target->active = false;
        std::vector<Entry> removed; // released after the lock: that may give a service back
        std::lock_guard<std::mutex> lock(targetsMutex);
        auto const end = std::stable_partition(targets.begin(), targets.end(),
                                               [&](Entry const& entry) { return entry.target != target; });
        std::move(end, targets.end(), std::back_inserter(removed));
        targets.erase(end, targets.end());
    }

    void
    NotificationDispatcher::Stop()
    {
        thread.Stop();
        // The reference keeps the registration, and with it the admin that
        // owns this dispatcher, alive.
        ServiceReference<service::cm::ConfigurationAdmin> released;
        std::lock_guard<std::mutex> lock(targetsMutex);
        released = adminReference;
        adminReference = nullptr;
    }

    void
    NotificationDispatcher::QueueCurrentState(std::shared_ptr<DeliveryTarget> const& target, CurrentState currentState)
    {
        thread.Post(
            [weak = weak_from_this(), target, currentState = std::move(currentState)](std::uint64_t sequence)
            {
                if (auto self = weak.lock())
                {
                    self->DeliverCurrentState(target, currentState, sequence);
                }
            });
    }

    void
    NotificationDispatcher::Deliver(ConfigurationChange const& change)
    {
        std::vector<Entry> snapshot;
        ServiceReference<service::cm::ConfigurationAdmin> reference;
        {
            std::lock_guard<std::mutex> lock(targetsMutex);
            snapshot = targets;
            reference = adminReference;
        }

        auto const type = change.kind == ConfigurationChange::Kind::Updated ? ConfigurationEventType::CM_UPDATED
                                                                             : ConfigurationEventType::CM_DELETED;
        ConfigurationEvent const event(reference, type, change.factoryPid, change.pid);
        for (auto const& entry : snapshot)
        {
            if (entry.target->listener && entry.target->active)
            {
                Guarded(*entry.target, "the event", change.pid,
                        [&] { entry.target->listener->configurationEvent(event); });
            }
        }
        for (auto const& entry : snapshot)
        {
            if (entry.target->managedService && Matches(*entry.target, entry.pids, change))
            {
                DeliverTo(*entry.target, change);
            }
        }
        for (auto const& entry : snapshot)
        {
            if (entry.target->factory && Matches(*entry.target, entry.pids, change))
            {
                DeliverTo(*entry.target, change);
            }
        }
    }

    void
    NotificationDispatcher::DeliverCurrentState(std::shared_ptr<DeliveryTarget> const& target,
                                                CurrentState const& currentState,
                                                std::uint64_t sequence)
    {
        std::vector<std::string> pids;
        {
            std::lock_guard<std::mutex> lock(targetsMutex);
            auto found = std::find_if(targets.begin(), targets.end(),
                                      [&](Entry const& entry) { return entry.target == target; });
            if (found == targets.end())
            {
                return;
            }
            pids = found->pids;
        }
        for (auto const& change : currentState())
        {
            // A configuration changed after this task was queued is
            // delivered by that change's own task, which comes later; its
            // state now would run ahead of the changes in between.
            if (change.sequence < sequence && Matches(*target, pids, change))
            {
                DeliverTo(*target, change);
            }
        }
    }

    void
    NotificationDispatcher::DeliverTo(DeliveryTarget& target, ConfigurationChange const& change)
    {
        if (!target.active)
        {
            return;
        }
        auto const version = std::make_pair(change.generation, change.changeCount);
        auto const last = target.delivered.find(change.pid);
        if (change.kind == ConfigurationChange::Kind::Updated)
        {
            if (last != target.delivered.end() && version <= last->second)
            {
                return;
            }
            target.delivered[change.pid] = version;
            if (target.managedService)
            {
                Guarded(target, "the update", change.pid,
                        [&] { target.managedService->Updated(change.properties); });
            }
            else
            {
                Guarded(target, "the update", change.pid,
                        [&] { target.factory->Updated(change.pid, change.properties); });
            }
            return;
        }

        if (last == target.delivered.end() || last->second.first > change.generation)
        {
            return;
        }
        target.delivered.erase(last);
        if (target.managedService)
        {
            AnyMap const none(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
            Guarded(target, "the removal", change.pid, [&] { target.managedService->Updated(none); });
        }
        else
        {
            Guarded(target, "the removal", change.pid, [&] { target.factory->Removed(change.pid); });
        }
    }

    bool
    NotificationDispatcher::Matches(DeliveryTarget const& target,
                                    std::vector<std::string> const& pids,
                                    ConfigurationChange const& change)
    {
        std::string const& key = target.factory ? change.factoryPid : change.pid;
        return !key.empty() && std::find(pids.begin(), pids.end(), key) != pids.end();
    }
} // namespace cppmicroservices::cmimpl
