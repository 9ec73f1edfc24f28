#ifndef CPPMICROSERVICES_CM_CONFIGURATIONADMIN_HPP
#define CPPMICROSERVICES_CM_CONFIGURATIONADMIN_HPP

#include "cppmicroservices/cm/Configuration.hpp"

#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices::service::cm
{
    /// The service through which configurations are created, found and
    /// listed. Every member may be called from any thread, never blocks on
    /// delivery and never calls out to other code.
    class ConfigurationAdmin
    {
      public:
        virtual ~ConfigurationAdmin() noexcept = default;

        /// The configuration of pid, created with empty properties and change
        /// count 0 when there is none. Creating one notifies nobody.
        virtual std::shared_ptr<Configuration> GetConfiguration(std::string const& pid) = 0;

        /// A new factory configuration "<factoryPid>~<name>", where name is
        /// six random characters of [0-9A-Za-z] chosen so that the PID is new.
        virtual std::shared_ptr<Configuration> CreateFactoryConfiguration(std::string const& factoryPid) = 0;

        /// GetConfiguration(factoryPid + "~" + instanceName).
        virtual std::shared_ptr<Configuration> GetFactoryConfiguration(std::string const& factoryPid,
                                                                       std::string const& instanceName)
            = 0;

        /// Every configuration updated at least once whose properties, plus
        /// a "pid" key holding its PID, match the LDAP filter (keys
        /// case-insensitive); all of them for an empty filter. Throws
        /// std::invalid_argument for a malformed filter.
        virtual std::vector<std::shared_ptr<Configuration>> ListConfigurations(std::string const& filter = {}) = 0;
    };
} // namespace cppmicroservices::service::cm

#endif // CPPMICROSERVICES_CM_CONFIGURATIONADMIN_HPP
