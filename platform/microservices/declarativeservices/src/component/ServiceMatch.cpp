#include "component/ServiceMatch.h"

#include "cppmicroservices/Constants.h"

#include <algorithm>

namespace cppmicroservices::ds
{
    ServiceMatch
    ServiceMatch::From(ServiceReferenceU const& reference)
    {
        ServiceMatch match;
        match.reference = reference;
        auto const ranking = reference.GetProperty(Constants::SERVICE_RANKING);
        if (auto const* value = any_cast<int>(&ranking))
        {
            match.ranking = *value;
        }
        auto const id = reference.GetProperty(Constants::SERVICE_ID);
        if (auto const* value = any_cast<long>(&id))
        {
            match.id = *value;
        }
        return match;
    }

    bool
    ContainsService(std::vector<ServiceMatch> const& list, long id)
    {
        return std::any_of(list.begin(), list.end(), [id](ServiceMatch const& m) { return m.id == id; });
    }
} // namespace cppmicroservices::ds
