#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONIMPL_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONIMPL_H

#include "ConfigurationChange.h"

#include "cppmicroservices/cm/Configuration.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace cppmicroservices::cmimpl
{
    class ConfigurationAdminImpl;
    class NotificationDispatcher;

    // One configuration of ConfigurationAdminImpl; the contract is
    // Configuration's. A change and the posting of its delivery happen under
    // one lock, so that deliveries of one configuration are queued in the
    // order of its changes and the state read under that lock knows the
    // sequence of the last one. Owned by the admin's repository and by whoever
    // asked for it; holds the admin weakly.
    class ConfigurationImpl final : public service::cm::Configuration
    {
      public:
        ConfigurationImpl(std::string pid,
                          std::uint64_t generation,
                          std::shared_ptr<NotificationDispatcher> dispatcher,
                          std::weak_ptr<ConfigurationAdminImpl> admin);

        std::string GetPid() const override;
        std::string GetFactoryPid() const override;
        AnyMap GetProperties() const override;
        unsigned long GetChangeCount() const override;
        std::shared_future<void> Update(AnyMap properties) override;
        std::pair<bool, std::shared_future<void>> UpdateIfDifferent(AnyMap properties) override;
        std::shared_future<void> Remove() override;

        // The state to give a newly tracked service: none unless updated at
        // least once and not removed. Never throws except std::bad_alloc.
        std::optional<ConfigurationChange> CurrentState() const;

        // What ListConfigurations filters: a case-insensitive copy of the
        // properties with "pid" set to the PID; none unless updated at least
        // once and not removed.
        std::optional<AnyMap> ListedProperties() const;

        // The text before the first '~' of pid, or "".
        static std::string FactoryPidOf(std::string const& pid);

      private:
        // Requires stateMutex.
        void ThrowIfRemoved() const;
        // Requires stateMutex.
        std::shared_future<void> ApplyUpdate(AnyMap properties);

        std::string const pid;
        std::string const factoryPid;
        std::uint64_t const generation;
        std::shared_ptr<NotificationDispatcher> const dispatcher;
        std::weak_ptr<ConfigurationAdminImpl> const admin;

        mutable std::mutex stateMutex;
        AnyMap properties{ AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS }; // guarded by stateMutex
        unsigned long changeCount = 0;                                    // guarded by stateMutex
        std::uint64_t lastSequence = 0; ///< of the last update's delivery; guarded by stateMutex
        bool removed = false;                                             // guarded by stateMutex
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONIMPL_H
