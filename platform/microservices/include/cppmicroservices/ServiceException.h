#ifndef CPPMICROSERVICES_SERVICEEXCEPTION_H
#define CPPMICROSERVICES_SERVICEEXCEPTION_H

#include "cppmicroservices/GlobalConfig.h"

#include <iosfwd>
#include <stdexcept>
#include <string>

namespace cppmicroservices
{
    // Thrown, or carried by a FRAMEWORK_ERROR event, when a service cannot be
    // registered or obtained. GetType() says which kind of problem it was.
    class US_Framework_EXPORT ServiceException : public std::runtime_error
    {
      public:
        enum Type
        {
            UNSPECIFIED = 0,       ///< no more specific kind applies
            UNREGISTERED = 1,      ///< the service was unregistered
            FACTORY_ERROR = 2,     ///< a factory returned nothing or an incomplete interface map
            FACTORY_EXCEPTION = 3, ///< a factory threw
            REMOTE = 5,            ///< reserved for remote services
            FACTORY_RECURSION = 6  ///< a factory asked for its own service while creating it
        };

        ServiceException(std::string const& msg, Type const& type = UNSPECIFIED);
        ServiceException(ServiceException const& o);
        ServiceException& operator=(ServiceException const& o);
        ~ServiceException() override;

        Type GetType() const;

      private:
        Type type;
    };
} // namespace cppmicroservices

US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, cppmicroservices::ServiceException const& exc);

#endif // CPPMICROSERVICES_SERVICEEXCEPTION_H
