#ifndef CPPMICROSERVICES_SRC_UTIL_JSONNUMBER_H
#define CPPMICROSERVICES_SRC_UTIL_JSONNUMBER_H

#include "cppmicroservices/Any.h"

#include <cstdint>
#include <limits>

namespace cppmicroservices::detail
{
    // How a JSON number becomes a value wherever the runtime reads JSON (manifests, configuration
    // files): an integer is an int when it fits, else a long long (an unsigned long long above
    // that), so no value is lost; any other number is a double. Json is nlohmann::json; the
    // template keeps that library out of the headers that include this one.
    template <class Json>
    Any
    JsonNumberToAny(Json const& value)
    {
        if (value.is_number_unsigned())
        {
            auto const n = value.template get<std::uint64_t>();
            if (n <= static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
            {
                return Any(static_cast<int>(n));
            }
            if (n <= static_cast<std::uint64_t>(std::numeric_limits<long long>::max()))
            {
                return Any(static_cast<long long>(n));
            }
            return Any(static_cast<unsigned long long>(n));
        }
        if (value.is_number_integer())
        {
            auto const n = value.template get<std::int64_t>();
            if (n >= std::numeric_limits<int>::min() && n <= std::numeric_limits<int>::max())
            {
                return Any(static_cast<int>(n));
            }
            return Any(static_cast<long long>(n));
        }
        return Any(value.template get<double>());
    }
} // namespace cppmicroservices::detail

#endif // CPPMICROSERVICES_SRC_UTIL_JSONNUMBER_H
