#ifndef CPPMICROSERVICES_DS_CONFIG_CONFIGURATIONBROKER_H
#define CPPMICROSERVICES_DS_CONFIG_CONFIGURATIONBROKER_H

#include "cppmicroservices/BundleContext.h"

#include <memory>

namespace cppmicroservices::ds
{
    class ComponentManager;

    /// Feeds configurations to the components whose configuration-policy is
    /// optional or require.
    class ConfigurationBroker final : public std::enable_shared_from_this<ConfigurationBroker>
    {
      public:
        explicit ConfigurationBroker(BundleContext context);

        void Start();
        void Stop();
        void Attach(std::shared_ptr<ComponentManager> const& manager);
        void Detach(std::shared_ptr<ComponentManager> const& manager);

      private:
        BundleContext const context;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_CONFIG_CONFIGURATIONBROKER_H
