#ifndef CPPMICROSERVICES_SHAREDLIBRARYEXCEPTION_H
#define CPPMICROSERVICES_SHAREDLIBRARYEXCEPTION_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GlobalConfig.h"

#include <string>
#include <system_error>

namespace cppmicroservices
{
    /// Thrown by Bundle::Start when the bundle's shared library cannot be
    /// loaded; what() holds the loader's message.
    class US_Framework_EXPORT SharedLibraryException final : public std::system_error
    {
      public:
        explicit SharedLibraryException(std::error_code ec, std::string const& what, Bundle origin);
        ~SharedLibraryException() override;

        /// The bundle whose library failed to load.
        Bundle GetBundle() const;

      private:
        Bundle origin;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SHAREDLIBRARYEXCEPTION_H
