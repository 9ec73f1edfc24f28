#ifndef CPPMICROSERVICES_SRC_FRAMEWORK_COREBUNDLECONTEXT_H
#define CPPMICROSERVICES_SRC_FRAMEWORK_COREBUNDLECONTEXT_H

#include "bundle/BundleRegistry.h"
#include "framework/FrameworkLifecycle.h"
#include "framework/FrameworkLog.h"
#include "service/ServiceListeners.h"
#include "service/ServiceRegistry.h"

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/FrameworkFactory.h"

#include "storage/sharedlib/Loader.h"

#include <atomic>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

namespace cppmicroservices
{
    class Bundle;
    class BundlePrivate;

    // Everything one framework instance owns: its properties, bundles,
    // service registry and listeners. Owned through shared_ptr by every Bundle
    // handle; bundles, contexts and registrations refer back to it weakly, so
    // it lives exactly as long as the application holds a Bundle or Framework.
    class CoreBundleContext : public std::enable_shared_from_this<CoreBundleContext>
    {
      public:
        // Use Create: the system bundle needs a weak pointer to the core.
        static std::shared_ptr<CoreBundleContext> Create(FrameworkConfiguration const& configuration,
                                                         std::ostream* logStream);

        CoreBundleContext(FrameworkConfiguration const& configuration, std::ostream* logStream);
        ~CoreBundleContext();
        CoreBundleContext(CoreBundleContext const&) = delete;
        CoreBundleContext& operator=(CoreBundleContext const&) = delete;

        // A handle on bundle that keeps this framework alive.
        Bundle MakeBundle(std::shared_ptr<BundlePrivate> const& bundle);

        // True while the framework is STARTING, ACTIVE or STOPPING.
        bool IsRunning() const;

        // Delivers a FRAMEWORK_ERROR / WARNING event about bundle and logs it.
        void ReportError(std::shared_ptr<BundlePrivate> const& bundle,
                         std::string const& message,
                         std::exception_ptr exception);
        void ReportWarning(std::shared_ptr<BundlePrivate> const& bundle, std::string const& message);

        // Properties given to NewFramework plus the framework's own, read-only.
        AnyMap const properties;
        FrameworkLog const log;
        std::string const storagePath;
        // Opens bundle libraries with the configured dlopen flags.
        std::shared_ptr<storage::sharedlib::Loader> const libraryLoader;
        // FRAMEWORK_BUNDLE_VALIDATION_FUNC, or empty.
        std::function<bool(Bundle const&)> const validationFunc;

        ServiceRegistry services;
        ServiceListeners listeners;
        BundleRegistry bundles;
        FrameworkLifecycle lifecycle;

        // Set once by Create, before anybody else sees the core.
        std::shared_ptr<BundlePrivate> systemBundle;

        // Orders started bundles so that the framework stops them in reverse.
        std::atomic<std::uint64_t> startCounter{ 0 };
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_FRAMEWORK_COREBUNDLECONTEXT_H
