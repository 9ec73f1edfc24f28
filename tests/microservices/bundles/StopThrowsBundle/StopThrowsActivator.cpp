// Starts cleanly and throws from Stop: the bundle must stop anyway.

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"

#include <stdexcept>

namespace
{
    class StopThrowsActivator : public cppmicroservices::BundleActivator
    {
      public:
        void
        Start(cppmicroservices::BundleContext) override
        {
        }

        void
        Stop(cppmicroservices::BundleContext) override
        {
            throw std::runtime_error("activator refused to stop");
        }
    };
} // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(StopThrowsActivator)
