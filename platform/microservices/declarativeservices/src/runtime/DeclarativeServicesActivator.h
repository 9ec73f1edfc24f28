#ifndef CPPMICROSERVICES_DS_RUNTIME_DECLARATIVESERVICESACTIVATOR_H
#define CPPMICROSERVICES_DS_RUNTIME_DECLARATIVESERVICESACTIVATOR_H

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"

#include <memory>

namespace cppmicroservices::ds
{
    class ComponentRuntime;

    /// Starts the component runtime with the bundle and stops it -- every
    /// component deactivated -- when the bundle stops.
    class DeclarativeServicesActivator final : public BundleActivator
    {
      public:
        void Start(BundleContext context) override;
        void Stop(BundleContext context) override;

      private:
        std::shared_ptr<ComponentRuntime> runtime;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_RUNTIME_DECLARATIVESERVICESACTIVATOR_H
