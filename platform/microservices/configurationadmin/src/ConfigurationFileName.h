#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONFILENAME_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONFILENAME_H

#include <optional>
#include <string>

namespace cppmicroservices::cmimpl
{
    // Which file of a watched folder holds which configuration.
    class ConfigurationFileName
    {
      public:
        // "<factoryPid>~<name>.json" holds the factory configuration
        // "<factoryPid>~<name>"; factoryPid and name must not be empty, and
        // name may itself contain '~'. Names starting with '.' (editors'
        // temporary files) and every other name hold none. Never throws
        // except std::bad_alloc.
        static std::optional<std::string> ToPid(std::string const& fileName);
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONFILENAME_H
