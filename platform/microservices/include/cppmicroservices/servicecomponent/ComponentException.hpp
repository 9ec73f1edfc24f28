#ifndef CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTEXCEPTION_HPP
#define CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTEXCEPTION_HPP

#include <stdexcept>
#include <string>

namespace cppmicroservices::service::component
{
    /// Thrown by ComponentContext when a reference cannot be resolved: an
    /// unknown reference name, a mandatory reference with no bound service, or
    /// a context whose component instance has been deactivated.
    class ComponentException final : public std::runtime_error
    {
      public:
        explicit ComponentException(std::string const& message) : std::runtime_error(message) {}
        explicit ComponentException(char const* message) : std::runtime_error(message) {}
    };
} // namespace cppmicroservices::service::component

#endif // CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTEXCEPTION_HPP
