#include "ConfigurationImpl.h"

#include "ConfigurationAdminImpl.h"
#include "NotificationDispatcher.h"

#include <stdexcept>
#include <utility>

namespace cppmicroservices::cmimpl
{
    namespace
    {
        std::shared_future<void>
        ReadyFuture()
        {
            std::promise<void> done;
            done.set_value();
            return done.get_future().share();
        }
    } // namespace

    ConfigurationImpl::ConfigurationImpl(std::string pid,
                                         std::uint64_t generation,
                                         std::shared_ptr<NotificationDispatcher> dispatcher,
                                         std::weak_ptr<ConfigurationAdminImpl> admin)
        : pid(std::move(pid))
        , factoryPid(FactoryPidOf(this->pid))
        , generation(generation)
        , dispatcher(std::move(dispatcher))
        , admin(std::move(admin))
    {
    }

    std::string
    ConfigurationImpl::GetPid() const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        ThrowIfRemoved();
        return pid;
    }

    std::string
    ConfigurationImpl::GetFactoryPid() const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        ThrowIfRemoved();
        return factoryPid;
    }

    AnyMap
    ConfigurationImpl::GetProperties() const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        ThrowIfRemoved();
        return properties;
    }

    unsigned long
    ConfigurationImpl::GetChangeCount() const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        ThrowIfRemoved();
        return changeCount;
    }

    std::shared_future<void>
    ConfigurationImpl::Update(AnyMap newProperties)
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        ThrowIfRemoved();
        return ApplyUpdate(std::move(newProperties));
    }

    std::pair<bool, std::shared_future<void>>
    ConfigurationImpl::UpdateIfDifferent(AnyMap newProperties)
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        ThrowIfRemoved();
        if (newProperties == properties)
        {
            return { false, ReadyFuture() };
        }
        return { true, ApplyUpdate(std::move(newProperties)) };
    }

    std::shared_future<void>
    ConfigurationImpl::Remove()
    {
        std::shared_future<void> delivered;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            ThrowIfRemoved();
            removed = true;
            if (changeCount == 0)
            {
                // Nobody was ever told of it, so nobody is told it went.
                delivered = dispatcher->PostNothing();
            }
            else
            {
                ConfigurationChange change;
                change.kind = ConfigurationChange::Kind::Removed;
                change.pid = pid;
                change.factoryPid = factoryPid;
                change.generation = generation;
                change.changeCount = changeCount;
                delivered = dispatcher->Post(std::move(change)).done;
            }
        }
        if (auto owner = admin.lock())
        {
            owner->Forget(pid, this);
        }
        return delivered;
    }

    std::optional<ConfigurationChange>
    ConfigurationImpl::CurrentState() const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        if (removed || changeCount == 0)
        {
            return std::nullopt;
        }
        ConfigurationChange change;
        change.pid = pid;
        change.factoryPid = factoryPid;
        change.generation = generation;
        change.changeCount = changeCount;
        change.sequence = lastSequence;
        change.properties = properties;
        return change;
    }

    std::optional<AnyMap>
    ConfigurationImpl::ListedProperties() const
    {
        AnyMap listed(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (removed || changeCount == 0)
            {
                return std::nullopt;
            }
            // Keys of a case-sensitive map that differ only in case collapse
            // to the first one, so that matching never throws.
            for (auto const& entry : properties)
            {
                listed.insert(entry);
            }
        }
        listed["pid"] = pid;
        return listed;
    }

    std::string
    ConfigurationImpl::FactoryPidOf(std::string const& pid)
    {
        auto const separator = pid.find('~');
        return separator == std::string::npos ? std::string() : pid.substr(0, separator);
    }

    void
    ConfigurationImpl::ThrowIfRemoved() const
    {
        if (removed)
        {
            throw std::runtime_error("Configuration " + pid + " has been removed");
        }
    }

    std::shared_future<void>
    ConfigurationImpl::ApplyUpdate(AnyMap newProperties)
    {
        properties = std::move(newProperties);
        ++changeCount;
        ConfigurationChange change;
        change.pid = pid;
        change.factoryPid = factoryPid;
        change.generation = generation;
        change.changeCount = changeCount;
        change.properties = properties;
        auto ticket = dispatcher->Post(std::move(change));
        lastSequence = ticket.sequence;
        return ticket.done;
    }
} // namespace cppmicroservices::cmimpl
