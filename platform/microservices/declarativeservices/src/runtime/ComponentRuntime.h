#ifndef CPPMICROSERVICES_DS_RUNTIME_COMPONENTRUNTIME_H
#define CPPMICROSERVICES_DS_RUNTIME_COMPONENTRUNTIME_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/ListenerToken.h"

#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    class ComponentManager;
    class ConfigurationBroker;

    /// The components of every started bundle whose manifest has an "scr"
    /// section. Components are loaded when their bundle has started (or, for
    /// bundles already active, when the runtime starts) and disposed --
    /// deactivated, their services unregistered -- when it begins to stop,
    /// before the framework unregisters the bundle's services; all of them
    /// when the runtime stops or the framework begins to stop.
    class ComponentRuntime final : public std::enable_shared_from_this<ComponentRuntime>
    {
      public:
        /// context: the runtime bundle's own context.
        explicit ComponentRuntime(BundleContext context);
        ~ComponentRuntime();

        ComponentRuntime(ComponentRuntime const&) = delete;
        ComponentRuntime& operator=(ComponentRuntime const&) = delete;

        /// Listens for bundle events and loads the components of the bundles
        /// already active. Blocks on user code (immediate components are
        /// activated on this thread). Call once, from the activator.
        void Start();

        /// Stops listening and disposes every component. Blocks on user code.
        /// Idempotent; call from the activator.
        void Stop();

      private:
        void BundleChanged(BundleEvent const& event);
        // Blocks on user code; call with no lock held.
        void LoadComponents(Bundle const& bundle);
        // Blocks on user code; call with no lock held.
        void UnloadComponents(long bundleId);
        // Blocks on user code; call with no lock held.
        void UnloadAll();
        // Enables or disables components of a bundle on the runtime's thread.
        void PostEnable(long bundleId, std::string const& name, bool enable);

        BundleContext context;
        std::shared_ptr<ConfigurationBroker> const configurations;
        foundation::concurrent::threadpool::ThreadPool enablerPool; // one thread; FIFO

        std::mutex componentsMutex; // guards the members below
        bool stopped = false;
        ListenerToken bundleListener;
        std::map<long, std::vector<std::shared_ptr<ComponentManager>>> components; // by bundle id
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_RUNTIME_COMPONENTRUNTIME_H
