#include "ConfigurationFileName.h"

namespace cppmicroservices::cmimpl
{
    std::optional<std::string>
    ConfigurationFileName::ToPid(std::string const& fileName)
    {
        static std::string const extension = ".json";
        if (fileName.size() <= extension.size() || fileName.front() == '.'
            || fileName.compare(fileName.size() - extension.size(), extension.size(), extension) != 0)
        {
            return std::nullopt;
        }
        std::string pid = fileName.substr(0, fileName.size() - extension.size());
        auto const separator = pid.find('~');
        if (separator == std::string::npos || separator == 0 || separator + 1 == pid.size())
        {
            return std::nullopt;
        }
        return pid;
    }
} // namespace cppmicroservices::cmimpl
