#ifndef CPPMICROSERVICES_SRC_UTIL_EQUALIGNORINGCASE_H
#define CPPMICROSERVICES_SRC_UTIL_EQUALIGNORINGCASE_H

#include <algorithm>
#include <cctype>
#include <string_view>

namespace cppmicroservices
{
    // ASCII case-insensitive equality, as service property keys and filter attributes compare.
    inline bool
    EqualIgnoringCase(std::string_view a, std::string_view b) noexcept
    {
        return a.size() == b.size()
               && std::equal(a.begin(),
                             a.end(),
                             b.begin(),
                             [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
    }
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_UTIL_EQUALIGNORINGCASE_H
