#include "config/ConfigurationBroker.h"

namespace cppmicroservices::ds
{
    ConfigurationBroker::ConfigurationBroker(BundleContext context) : context(std::move(context)) {}

    void
    ConfigurationBroker::Start()
    {
    }

    void
    ConfigurationBroker::Stop()
    {
    }

    void
    ConfigurationBroker::Attach(std::shared_ptr<ComponentManager> const&)
    {
    }

    void
    ConfigurationBroker::Detach(std::shared_ptr<ComponentManager> const&)
    {
    }
} // namespace cppmicroservices::ds
