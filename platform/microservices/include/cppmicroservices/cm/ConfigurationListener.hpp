#ifndef CPPMICROSERVICES_CM_CONFIGURATIONLISTENER_HPP
#define CPPMICROSERVICES_CM_CONFIGURATIONLISTENER_HPP

#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/cm/ConfigurationAdmin.hpp"

#include <string>
#include <utility>

namespace cppmicroservices::service::cm
{
    enum class ConfigurationEventType
    {
        CM_UPDATED = 1, ///< a configuration was updated
        CM_DELETED = 2  ///< a configuration was removed
    };

    /// What changed. getPid() is always the full PID; getFactoryPid() is the
    /// text before its first '~' for a factory configuration, else "".
    class ConfigurationEvent
    {
      public:
        ConfigurationEvent(ServiceReference<ConfigurationAdmin> configAdmin,
                           ConfigurationEventType const type,
                           std::string factoryPid,
                           std::string pid)
            : configAdmin(std::move(configAdmin))
            , type(type)
            , factoryPid(std::move(factoryPid))
            , pid(std::move(pid))
        {
        }

        /// The Configuration Admin service the change was made in.
        ServiceReference<ConfigurationAdmin>
        getReference() const
        {
            return configAdmin;
        }

        std::string
        getPid() const
        {
            return pid;
        }

        std::string
        getFactoryPid() const
        {
            return factoryPid;
        }

        ConfigurationEventType
        getType() const
        {
            return type;
        }

      private:
        ServiceReference<ConfigurationAdmin> configAdmin;
        ConfigurationEventType type;
        std::string factoryPid;
        std::string pid;
    };

    /// Told of every change made after it registered, before managed
    /// services are, on Configuration Admin's delivery thread, one event at a
    /// time and in the order the changes were made. Only changes of
    /// configurations that were updated at least once produce events. An
    /// exception thrown is logged and delivery goes on.
    class ConfigurationListener
    {
      public:
        virtual ~ConfigurationListener() noexcept = default;
        virtual void configurationEvent(ConfigurationEvent const& event) = 0;
    };
} // namespace cppmicroservices::service::cm

#endif // CPPMICROSERVICES_CM_CONFIGURATIONLISTENER_HPP
