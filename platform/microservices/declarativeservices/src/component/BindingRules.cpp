#include "component/BindingRules.h"

namespace cppmicroservices::ds
{
    std::vector<ServiceMatch>
    BindingRules::Initial(ReferenceMetadata const& reference, std::vector<ServiceMatch> const& matches)
    {
        if (reference.multiple || matches.empty())
        {
            return matches;
        }
        return { matches.front() };
    }

    bool
    BindingRules::StaticBindingBroken(ReferenceMetadata const& reference,
                                      std::vector<ServiceMatch> const& chosen,
                                      std::vector<ServiceMatch> const& matches)
    {
        for (auto const& service : chosen)
        {
            if (!ContainsService(matches, service.id))
            {
                return true;
            }
        }
        if (!reference.greedy || matches.empty())
        {
            return false;
        }
        if (reference.multiple)
        {
            for (auto const& service : matches)
            {
                if (!ContainsService(chosen, service.id))
                {
                    return true;
                }
            }
            return false;
        }
        return chosen.empty()
               || (matches.front().id != chosen.front().id && matches.front().IsBetterThan(chosen.front()));
    }

    std::vector<ServiceMatch>
    BindingRules::DynamicTarget(ReferenceMetadata const& reference,
                                std::vector<ServiceMatch> const& current,
                                std::vector<ServiceMatch> const& matches)
    {
        if (reference.multiple || matches.empty())
        {
            return matches;
        }
        if (!reference.greedy && !current.empty() && ContainsService(matches, current.front().id))
        {
            return current;
        }
        return { matches.front() };
    }
} // namespace cppmicroservices::ds
