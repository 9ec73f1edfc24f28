#include "cppmicroservices/Any.h"

#include <utility>

namespace cppmicroservices
{
    namespace
    {
        constexpr char const* genericMessage
            = "cppmicroservices::BadAnyCastException: failed conversion using cppmicroservices::any_cast";
    }

    BadAnyCastException::BadAnyCastException(std::string msg) : _msg(std::move(msg)) {}

    BadAnyCastException::~BadAnyCastException() = default;

    char const*
    BadAnyCastException::what() const noexcept
    {
        return _msg.empty() ? genericMessage : _msg.c_str();
    }
} // namespace cppmicroservices
