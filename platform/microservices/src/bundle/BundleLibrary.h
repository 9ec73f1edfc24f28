#ifndef CPPMICROSERVICES_SRC_BUNDLE_BUNDLELIBRARY_H
#define CPPMICROSERVICES_SRC_BUNDLE_BUNDLELIBRARY_H

#include "storage/sharedlib/SharedLibrary.h"

#include <memory>

namespace cppmicroservices
{
    class Bundle;
    class BundleContextPrivate;
    class BundlePrivate;
    class CoreBundleContext;

    // Loading of bundle libraries.
    //
    // A bundle's library is loaded at most once per bundle and never
    // unloaded (objects it made may outlive the bundle's activation). After
    // loading, the library's glue setter _us_set_bundle_context_instance_<bsn>
    // receives the bundle's current context, once per activation; it receives
    // null when the bundle stops.
    class BundleLibrary
    {
      public:
        // For components of bundles that have no activator (Declarative
        // Services): the library of a started bundle, loaded on first call,
        // its glue setter called with the bundle's context. Use the result's
        // findSymbol / getFunction to reach entry points. Thread-safe; blocks
        // while the library loads (its static initialisers run). Throws
        // std::logic_error if bundle is invalid or not STARTING, ACTIVE or
        // STOPPING, SharedLibraryException if the library cannot be loaded or
        // the framework's bundle validation function refuses it.
        static storage::sharedlib::SharedLibrary Load(Bundle const& bundle);

        // Load for the framework's own use (activators). Same contract.
        static storage::sharedlib::SharedLibrary Load(std::shared_ptr<BundlePrivate> const& bundle,
                                                      std::shared_ptr<CoreBundleContext> const& core);

        // Tells the library its bundle has stopped (glue setter with null).
        static void Unbind(BundlePrivate& bundle);
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_BUNDLELIBRARY_H
