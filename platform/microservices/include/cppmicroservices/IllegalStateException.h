#ifndef CPPMICROSERVICES_ILLEGALSTATEEXCEPTION_H
#define CPPMICROSERVICES_ILLEGALSTATEEXCEPTION_H

#include "cppmicroservices/GlobalConfig.h"

#include <stdexcept>
#include <string>

namespace cppmicroservices
{
    // Thrown when an operation is called on an object in a state that does
    // not allow it, e.g. GetService on a context whose bundle has stopped.
    class US_Framework_EXPORT IllegalStateException final : public std::runtime_error
    {
      public:
        using std::runtime_error::runtime_error;
        ~IllegalStateException() override;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_ILLEGALSTATEEXCEPTION_H
