#include "ServicePids.h"

#include "cppmicroservices/Any.h"
#include "cppmicroservices/Constants.h"

namespace cppmicroservices::cmimpl
{
    namespace
    {
        void
        AppendStrings(Any const& value, std::vector<std::string>& pids)
        {
            if (auto const* text = any_cast<std::string>(&value))
            {
                if (!text->empty())
                {
                    pids.push_back(*text);
                }
            }
            else if (auto const* texts = any_cast<std::vector<std::string>>(&value))
            {
                for (auto const& item : *texts)
                {
                    AppendStrings(Any(item), pids);
                }
            }
            else if (auto const* items = any_cast<std::vector<Any>>(&value))
            {
                for (auto const& item : *items)
                {
                    if (item.Type() == typeid(std::string))
                    {
                        AppendStrings(item, pids);
                    }
                }
            }
        }
    } // namespace

    std::vector<std::string>
    ServicePids(ServiceReferenceBase const& reference)
    {
        std::vector<std::string> pids;
        Any const servicePid = reference.GetProperty(Constants::SERVICE_PID);
        if (!servicePid.Empty())
        {
            AppendStrings(servicePid, pids);
            return pids;
        }
        Any const componentName = reference.GetProperty("component.name");
        if (componentName.Type() == typeid(std::string))
        {
            AppendStrings(componentName, pids);
        }
        return pids;
    }
} // namespace cppmicroservices::cmimpl
