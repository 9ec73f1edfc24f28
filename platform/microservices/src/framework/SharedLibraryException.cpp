#include "cppmicroservices/SharedLibraryException.h"

namespace cppmicroservices
{
    SharedLibraryException::SharedLibraryException(std::error_code ec, std::string const& what, Bundle origin)
        : std::system_error(ec, what)
        , origin(std::move(origin))
    {
    }

    SharedLibraryException::~SharedLibraryException() = default;

    Bundle
    SharedLibraryException::GetBundle() const
    {
        return origin;
    }
} // namespace cppmicroservices
