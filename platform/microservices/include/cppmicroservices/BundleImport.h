#ifndef CPPMICROSERVICES_BUNDLEIMPORT_H
#define CPPMICROSERVICES_BUNDLEIMPORT_H

#include "cppmicroservices/GlobalConfig.h"

namespace cppmicroservices
{
    class BundleContextPrivate;
} // namespace cppmicroservices

// Bundles are always shared libraries loaded by the framework here. These
// macros keep a reference to a statically linked bundle's glue symbol so
// that a static linker does not drop it.
#define CPPMICROSERVICES_IMPORT_BUNDLE(_bundle_name)                                                               \
    extern "C" cppmicroservices::BundleContextPrivate* US_GET_CTX_FUNC(_bundle_name)();                            \
    [[maybe_unused]] static auto* const US_CONCAT(_us_import_bundle_, _bundle_name) = &US_GET_CTX_FUNC(_bundle_name);

#define CPPMICROSERVICES_INITIALIZE_STATIC_BUNDLE(_bundle_name) CPPMICROSERVICES_IMPORT_BUNDLE(_bundle_name)

#endif // CPPMICROSERVICES_BUNDLEIMPORT_H
