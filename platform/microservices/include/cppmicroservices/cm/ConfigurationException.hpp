#ifndef CPPMICROSERVICES_CM_CONFIGURATIONEXCEPTION_HPP
#define CPPMICROSERVICES_CM_CONFIGURATIONEXCEPTION_HPP

#include <stdexcept>
#include <string>
#include <utility>

namespace cppmicroservices::service::cm
{
    /// Thrown by ManagedService::Updated or ManagedServiceFactory::Updated
    /// when the configuration they were given is unusable. Configuration
    /// Admin logs the reason and the property and goes on delivering.
    class ConfigurationException : public std::runtime_error
    {
      public:
        /// reason says what is wrong; property names the offending key, or
        /// is empty when the problem is not one key's.
        ConfigurationException(std::string reason, std::string property = "")
            : std::runtime_error(property.empty() ? reason : property + ": " + reason)
            , reason(std::move(reason))
            , property(std::move(property))
        {
        }

        std::string
        GetReason() const
        {
            return reason;
        }

        std::string
        GetProperty() const
        {
            return property;
        }

      private:
        std::string reason;
        std::string property;
    };
} // namespace cppmicroservices::service::cm

#endif // CPPMICROSERVICES_CM_CONFIGURATIONEXCEPTION_HPP
