#ifndef CPPMICROSERVICES_SRC_SERVICE_SERVICEPROPERTIESBUILDER_H
#define CPPMICROSERVICES_SRC_SERVICE_SERVICEPROPERTIESBUILDER_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceProperties.h"

#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices
{
    // Turns user-supplied properties into the registry's stored form: a
    // case-insensitive AnyMap in which the framework's own service.id,
    // objectclass and service.scope replace whatever the user supplied.
    class ServicePropertiesBuilder
    {
      public:
        enum class RankingCheck
        {
            Lenient, ///< a service.ranking that is not an int orders as 0
            Strict   ///< a service.ranking that is not an int throws std::invalid_argument
        };

        // Throws std::runtime_error("Properties contain case variants of the
        // key: <key>") and, with Strict, std::invalid_argument for a bad
        // service.ranking. Sets ranking to the service's ranking.
        static std::shared_ptr<AnyMap const> Build(ServiceProperties properties,
                                                   long serviceId,
                                                   std::vector<std::string> const& classes,
                                                   std::string const& scope,
                                                   RankingCheck check,
                                                   int& ranking);
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SERVICEPROPERTIESBUILDER_H
