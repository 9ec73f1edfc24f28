#include "service/SimpleObjectClassFilter.h"

#include "util/EqualIgnoringCase.h"

namespace cppmicroservices
{
    std::optional<std::string>
    SimpleObjectClassFilter(std::string const& filter)
    {
        if (filter.size() < 3 || filter.front() != '(' || filter.back() != ')')
        {
            return std::nullopt;
        }
        auto const eq = filter.find('=');
        if (eq == std::string::npos || eq < 2)
        {
            return std::nullopt;
        }
        std::string const key = filter.substr(1, eq - 1);
        std::string const value = filter.substr(eq + 1, filter.size() - eq - 2);
        if (!EqualIgnoringCase(key, "objectclass") || value.empty())
        {
            return std::nullopt;
        }
        for (char c : value)
        {
            if (c == '*' || c == '\\' || c == '(' || c == ')' || c == '=' || std::isspace(static_cast<unsigned char>(c)))
            {
                return std::nullopt;
            }
        }
        return value;
    }
} // namespace cppmicroservices
