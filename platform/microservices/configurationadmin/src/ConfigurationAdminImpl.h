#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONADMINIMPL_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONADMINIMPL_H

#include "ConfigurationChange.h"

#include "cppmicroservices/cm/ConfigurationAdmin.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices::cmimpl
{
    class ConfigurationImpl;
    class NotificationDispatcher;

    // The repository of configurations behind the ConfigurationAdmin
    // service; the contract is ConfigurationAdmin's. Besides, GetConfiguration,
    // CreateFactoryConfiguration and GetFactoryConfiguration throw
    // std::invalid_argument for an empty PID, factory PID or instance name.
    // Must be owned by a shared_ptr (configurations hold it weakly).
    //
    // Lock order: a configuration's lock may be held while taking
    // repositoryMutex, never the other way round.
    class ConfigurationAdminImpl final
        : public service::cm::ConfigurationAdmin
        , public std::enable_shared_from_this<ConfigurationAdminImpl>
    {
      public:
        explicit ConfigurationAdminImpl(std::shared_ptr<NotificationDispatcher> dispatcher);

        std::shared_ptr<service::cm::Configuration> GetConfiguration(std::string const& pid) override;
        std::shared_ptr<service::cm::Configuration> CreateFactoryConfiguration(std::string const& factoryPid) override;
        std::shared_ptr<service::cm::Configuration> GetFactoryConfiguration(std::string const& factoryPid,
                                                                            std::string const& instanceName) override;
        std::vector<std::shared_ptr<service::cm::Configuration>> ListConfigurations(
            std::string const& filter = {}) override;

        // The state of every configuration updated at least once, for a
        // newly tracked managed service. Any thread; never calls out.
        std::vector<ConfigurationChange> CurrentState() const;

        // Called by a configuration being removed: drops it from the
        // repository unless the PID already belongs to another one.
        void Forget(std::string const& pid, ConfigurationImpl const* configuration);

      private:
        // Requires repositoryMutex.
        std::shared_ptr<ConfigurationImpl> FindOrCreate(std::string const& pid);
        // Copies the repository's configurations.
        std::vector<std::shared_ptr<ConfigurationImpl>> All() const;

        std::shared_ptr<NotificationDispatcher> const dispatcher;

        mutable std::mutex repositoryMutex;
        std::unordered_map<std::string, std::shared_ptr<ConfigurationImpl>> configurations; // guarded by repositoryMutex
        std::uint64_t nextGeneration = 1; // guarded by repositoryMutex
        std::mt19937 random;              // guarded by repositoryMutex
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONADMINIMPL_H
