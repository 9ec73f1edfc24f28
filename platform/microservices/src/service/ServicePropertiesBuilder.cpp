#include "service/ServicePropertiesBuilder.h"

#include "cppmicroservices/Constants.h"

#include <stdexcept>

namespace cppmicroservices
{
    std::shared_ptr<AnyMap const>
    ServicePropertiesBuilder::Build(ServiceProperties properties,
                                    long serviceId,
                                    std::vector<std::string> const& classes,
                                    std::string const& scope,
                                    RankingCheck check,
                                    int& ranking)
    {
        auto map = std::make_shared<AnyMap>(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        for (auto& [key, value] : properties)
        {
            if (map->count(key) != 0)
            {
                throw std::runtime_error("Properties contain case variants of the key: " + key);
            }
            map->emplace(key, std::move(value));
        }

        ranking = 0;
        auto rankingIt = map->find(Constants::SERVICE_RANKING);
        if (rankingIt != map->end())
        {
            if (rankingIt->second.Type() == typeid(int))
            {
                ranking = any_cast<int>(rankingIt->second);
            }
            else if (check == RankingCheck::Strict)
            {
                throw std::invalid_argument("The service.ranking property must be of type int");
            }
        }

        // The case-insensitive map makes these replace any spelling of the keys.
        map->erase(Constants::SERVICE_ID);
        map->erase(Constants::OBJECTCLASS);
        map->erase(Constants::SERVICE_SCOPE);
        map->emplace(Constants::SERVICE_ID, Any(serviceId));
        map->emplace(Constants::OBJECTCLASS, Any(classes));
        map->emplace(Constants::SERVICE_SCOPE, Any(scope));
        return map;
    }
} // namespace cppmicroservices
