#include "runtime/DeclarativeServicesActivator.h"

#include "runtime/ComponentRuntime.h"

namespace cppmicroservices::ds
{
    void
    DeclarativeServicesActivator::Start(BundleContext context)
    {
        runtime = std::make_shared<ComponentRuntime>(context);
        runtime->Start();
    }

    void
    DeclarativeServicesActivator::Stop(BundleContext)
    {
        if (runtime)
        {
            runtime->Stop();
            runtime.reset();
        }
    }
} // namespace cppmicroservices::ds

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(cppmicroservices::ds::DeclarativeServicesActivator)
