#ifndef CPPMICROSERVICES_SRC_BUNDLE_BUNDLELIFECYCLE_H
#define CPPMICROSERVICES_SRC_BUNDLE_BUNDLELIFECYCLE_H

#include "cppmicroservices/BundleEvent.h"

#include <memory>

namespace cppmicroservices
{
    class BundlePrivate;
    class CoreBundleContext;

    // Start, stop and uninstall of ordinary bundles (the system bundle is
    // FrameworkLifecycle's). Each runs on the calling thread, serialised per
    // bundle, and delivers bundle events with no lock held. Contracts and
    // exceptions are those of Bundle::Start, Stop and Uninstall.
    class BundleLifecycle
    {
      public:
        static void Start(std::shared_ptr<BundlePrivate> const& bundle, std::shared_ptr<CoreBundleContext> const& core);
        static void Stop(std::shared_ptr<BundlePrivate> const& bundle, std::shared_ptr<CoreBundleContext> const& core);
        static void Uninstall(std::shared_ptr<BundlePrivate> const& bundle,
                              std::shared_ptr<CoreBundleContext> const& core);

        // What every stop ends with: unregisters the bundle's services,
        // removes its listeners, releases the services it uses, invalidates
        // its context and tells its library. Never throws.
        static void ReleaseResources(BundlePrivate& bundle, CoreBundleContext& core) noexcept;

        static void FireBundleEvent(CoreBundleContext& core,
                                    BundleEvent::Type type,
                                    std::shared_ptr<BundlePrivate> const& bundle);
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_BUNDLELIFECYCLE_H
