#ifndef CPPMICROSERVICES_DS_CONFIG_COMPONENTCONFIGURATIONLISTENER_H
#define CPPMICROSERVICES_DS_CONFIG_COMPONENTCONFIGURATIONLISTENER_H

#include "cppmicroservices/cm/ConfigurationListener.hpp"

#include <memory>

namespace cppmicroservices::ds
{
    class ConfigurationBroker;

    /// The ConfigurationListener service the runtime registers: passes every
    /// event to the broker while it exists. Called on Configuration Admin's
    /// delivery thread; blocks while components are reconfigured.
    class ComponentConfigurationListener final : public service::cm::ConfigurationListener
    {
      public:
        explicit ComponentConfigurationListener(std::weak_ptr<ConfigurationBroker> broker);

        void configurationEvent(service::cm::ConfigurationEvent const& event) override;

      private:
        std::weak_ptr<ConfigurationBroker> const broker;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_CONFIG_COMPONENTCONFIGURATIONLISTENER_H
