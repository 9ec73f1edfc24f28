#include "config/ComponentConfigurationListener.h"

#include "config/ConfigurationBroker.h"

namespace cppmicroservices::ds
{
    ComponentConfigurationListener::ComponentConfigurationListener(std::weak_ptr<ConfigurationBroker> broker)
        : broker(std::move(broker))
    {
    }

    void
    ComponentConfigurationListener::configurationEvent(service::cm::ConfigurationEvent const& event)
    {
        if (auto target = broker.lock())
        {
            target->ConfigurationChanged(event);
        }
    }
} // namespace cppmicroservices::ds
