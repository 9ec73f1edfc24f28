#include "ConfigurationAdminImpl.h"

#include "ConfigurationImpl.h"
#include "NotificationDispatcher.h"

#include "cppmicroservices/LDAPFilter.h"

#include <optional>
#include <stdexcept>
#include <utility>

namespace cppmicroservices::cmimpl
{
    namespace
    {
        constexpr char kInstanceNameCharacters[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
        constexpr std::size_t kInstanceNameLength = 6;
    } // namespace

    ConfigurationAdminImpl::ConfigurationAdminImpl(std::shared_ptr<NotificationDispatcher> dispatcher)
        : dispatcher(std::move(dispatcher))
        , random(std::random_device()())
    {
    }

    std::shared_ptr<service::cm::Configuration>
    ConfigurationAdminImpl::GetConfiguration(std::string const& pid)
    {
        if (pid.empty())
        {
            throw std::invalid_argument("A configuration PID must not be empty");
        }
        std::lock_guard<std::mutex> lock(repositoryMutex);
        return FindOrCreate(pid);
    }

    std::shared_ptr<service::cm::Configuration>
    ConfigurationAdminImpl::CreateFactoryConfiguration(std::string const& factoryPid)
    {
        if (factoryPid.empty())
        {
            throw std::invalid_argument("A factory PID must not be empty");
        }
        std::uniform_int_distribution<std::size_t> pick(0, sizeof(kInstanceNameCharacters) - 2);
        std::lock_guard<std::mutex> lock(repositoryMutex);
        for (;;)
        {
            std::string pid = factoryPid + "~";
            for (std::size_t i = 0; i < kInstanceNameLength; ++i)
            {
                pid += kInstanceNameCharacters[pick(random)];
            }
            if (configurations.count(pid) == 0)
            {
                return FindOrCreate(pid);
            }
        }
    }

    std::shared_ptr<service::cm::Configuration>
    ConfigurationAdminImpl::GetFactoryConfiguration(std::string const& factoryPid, std::string const& instanceName)
    {
        if (factoryPid.empty() || instanceName.empty())
        {
            throw std::invalid_argument("A factory PID and an instance name must not be empty");
        }
        return GetConfiguration(factoryPid + "~" + instanceName);
    }

    std::vector<std::shared_ptr<service::cm::Configuration>>
    ConfigurationAdminImpl::ListConfigurations(std::string const& filter)
    {
        std::optional<LDAPFilter> const ldap = filter.empty() ? std::nullopt : std::optional<LDAPFilter>(filter);
        std::vector<std::shared_ptr<service::cm::Configuration>> listed;
        for (auto const& configuration : All())
        {
            auto const properties = configuration->ListedProperties();
            if (properties && (!ldap || ldap->Match(*properties)))
            {
                listed.push_back(configuration);
            }
        }
        return listed;
    }

    std::vector<ConfigurationChange>
    ConfigurationAdminImpl::CurrentState() const
    {
        std::vector<ConfigurationChange> states;
        for (auto const& configuration : All())
        {
            if (auto state = configuration->CurrentState())
            {
                states.push_back(std::move(*state));
            }
        }
        return states;
    }

    void
    ConfigurationAdminImpl::Forget(std::string const& pid, ConfigurationImpl const* configuration)
    {
        std::shared_ptr<ConfigurationImpl> forgotten;
        std::lock_guard<std::mutex> lock(repositoryMutex);
        auto const found = configurations.find(pid);
        if (found != configurations.end() && found->second.get() == configuration)
        {
            // Destroyed after the lock is released.
            forgotten = std::move(found->second);
            configurations.erase(found);
        }
    }

    std::shared_ptr<ConfigurationImpl>
    ConfigurationAdminImpl::FindOrCreate(std::string const& pid)
    {
        auto& slot = configurations[pid];
        if (!slot)
        {
            slot = std::make_shared<ConfigurationImpl>(pid, nextGeneration++, dispatcher, weak_from_this());
        }
        return slot;
    }

    std::vector<std::shared_ptr<ConfigurationImpl>>
    ConfigurationAdminImpl::All() const
    {
        std::lock_guard<std::mutex> lock(repositoryMutex);
        std::vector<std::shared_ptr<ConfigurationImpl>> all;
        all.reserve(configurations.size());
        for (auto const& entry : configurations)
        {
            all.push_back(entry.second);
        }
        return all;
    }
} // namespace cppmicroservices::cmimpl
