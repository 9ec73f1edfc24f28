#ifndef CPPMICROSERVICES_BUNDLEACTIVATOR_H
#define CPPMICROSERVICES_BUNDLEACTIVATOR_H

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices
{
    /// Started and stopped with its bundle when the manifest has
    /// "bundle.activator": true. Start and Stop run on the thread that
    /// started or stopped the bundle, with no framework lock held. If Start
    /// throws, the bundle does not start; if Stop throws, the bundle stops
    /// anyway and Bundle::Stop reports the error.
    struct BundleActivator
    {
        virtual ~BundleActivator() = default;
        virtual void Start(BundleContext context) = 0;
        virtual void Stop(BundleContext context) = 0;
    };
} // namespace cppmicroservices

/// Exports the factory functions through which the framework creates and
/// destroys the bundle's activator. Use once per bundle, at global scope.
#define CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(_activator_type)                                                  \
    extern "C" US_ABI_EXPORT cppmicroservices::BundleActivator* US_CREATE_ACTIVATOR_FUNC(US_BUNDLE_NAME)()       \
    {                                                                                                              \
        return new _activator_type();                                                                              \
    }                                                                                                              \
    extern "C" US_ABI_EXPORT void US_DESTROY_ACTIVATOR_FUNC(US_BUNDLE_NAME)(cppmicroservices::BundleActivator * \
                                                                             activator)                            \
    {                                                                                                              \
        delete activator;                                                                                          \
    }

#endif // CPPMICROSERVICES_BUNDLEACTIVATOR_H
