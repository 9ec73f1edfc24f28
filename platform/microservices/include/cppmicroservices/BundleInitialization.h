#ifndef CPPMICROSERVICES_BUNDLEINITIALIZATION_H
#define CPPMICROSERVICES_BUNDLEINITIALIZATION_H

#include "cppmicroservices/GlobalConfig.h"

#include <atomic>

namespace cppmicroservices
{
    class BundleContextPrivate;
} // namespace cppmicroservices

/// Defines the bundle library's context slot and its getter and setter.
/// add_bundle() generates a source file holding only this macro. The
/// framework calls the exported setter when it loads the library (and with
/// null when the bundle stops); GetBundleContext() reads the slot. Both are
/// exported: a host may read a bundle's context through the getter.
#define CPPMICROSERVICES_INITIALIZE_BUNDLE                                                                         \
    US_ABI_LOCAL std::atomic<cppmicroservices::BundleContextPrivate*> US_CTX_INS(US_BUNDLE_NAME) { nullptr };     \
    extern "C" US_ABI_EXPORT cppmicroservices::BundleContextPrivate* US_GET_CTX_FUNC(US_BUNDLE_NAME)()             \
    {                                                                                                              \
        return US_CTX_INS(US_BUNDLE_NAME).load();                                                                  \
    }                                                                                                              \
    extern "C" US_ABI_EXPORT void US_SET_CTX_FUNC(US_BUNDLE_NAME)(cppmicroservices::BundleContextPrivate * ctx)   \
    {                                                                                                              \
        US_CTX_INS(US_BUNDLE_NAME).store(ctx);                                                                     \
    }

#endif // CPPMICROSERVICES_BUNDLEINITIALIZATION_H
