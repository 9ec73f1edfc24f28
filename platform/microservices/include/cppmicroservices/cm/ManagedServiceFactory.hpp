#ifndef CPPMICROSERVICES_CM_MANAGEDSERVICEFACTORY_HPP
#define CPPMICROSERVICES_CM_MANAGEDSERVICEFACTORY_HPP

#include "cppmicroservices/AnyMap.h"

#include <string>

namespace cppmicroservices::service::cm
{
    /// A service that makes one instance per factory configuration
    /// "<factoryPid>~<name>". Its factory PID is its service.pid property (a
    /// std::string, or a std::vector<std::string> for several; without one,
    /// its component.name).
    class ManagedServiceFactory
    {
      public:
        virtual ~ManagedServiceFactory() noexcept = default;

        /// Called with the full PID and the properties when a factory
        /// configuration is updated, and at registration for every one that
        /// was already updated. Calls come one at a time on Configuration
        /// Admin's delivery thread, in the order the changes were made. May
        /// throw; the exception is logged and delivery goes on.
        virtual void Updated(std::string const& pid, AnyMap const& properties) = 0;

        /// Called with the full PID when a factory configuration that this
        /// factory was given is removed. Same thread and error rules.
        virtual void Removed(std::string const& pid) = 0;
    };
} // namespace cppmicroservices::service::cm

#endif // CPPMICROSERVICES_CM_MANAGEDSERVICEFACTORY_HPP
