#ifndef CPPMICROSERVICES_CM_MANAGEDSERVICE_HPP
#define CPPMICROSERVICES_CM_MANAGEDSERVICE_HPP

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices::service::cm
{
    /// A service configured by one configuration, named by its service.pid
    /// property (a std::string, or a std::vector<std::string> for several;
    /// without one, its component.name).
    class ManagedService
    {
      public:
        virtual ~ManagedService() noexcept = default;

        /// Called with the configuration's properties when it is updated,
        /// once at registration for a configuration that was already updated,
        /// and with an empty map when it is removed. Calls come one at a time
        /// on Configuration Admin's delivery thread, in the order the changes
        /// were made, never on the thread that made the change. May throw
        /// ConfigurationException (or anything else): the exception is
        /// logged and delivery goes on.
        virtual void Updated(AnyMap const& properties) = 0;
    };
} // namespace cppmicroservices::service::cm

#endif // CPPMICROSERVICES_CM_MANAGEDSERVICE_HPP
