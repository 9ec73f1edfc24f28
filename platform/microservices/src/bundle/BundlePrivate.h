#ifndef CPPMICROSERVICES_SRC_BUNDLE_BUNDLEPRIVATE_H
#define CPPMICROSERVICES_SRC_BUNDLE_BUNDLEPRIVATE_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleVersion.h"

#include "storage/sharedlib/SharedLibrary.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cppmicroservices
{
    class BundleContextPrivate;
    class CoreBundleContext;

    // What the framework knows about one installed bundle. Identity and
    // manifest are fixed at install; state, context and library change as
    // the bundle starts and stops (see BundleLifecycle and BundleLibrary).
    class BundlePrivate : public std::enable_shared_from_this<BundlePrivate>
    {
      public:
        BundlePrivate(std::weak_ptr<CoreBundleContext> core,
                      long id,
                      std::string location,
                      std::string symbolicName,
                      BundleVersion version,
                      AnyMap headers);
        ~BundlePrivate();
        BundlePrivate(BundlePrivate const&) = delete;
        BundlePrivate& operator=(BundlePrivate const&) = delete;

        bool
        IsSystemBundle() const
        {
            return id == 0;
        }

        // "Bundle <bsn> (location=<location>)", the prefix of error texts.
        std::string Describe() const;

        Bundle::State
        GetState() const
        {
            return state.load();
        }
        void
        SetState(Bundle::State s)
        {
            state.store(s);
        }

        // The context of the current activation, or null when not started.
        std::shared_ptr<BundleContextPrivate> CurrentContext() const;
        // Starts a new activation with a fresh context and returns it.
        std::shared_ptr<BundleContextPrivate> NewContext();
        // Invalidates the current context; handles to it turn invalid.
        void RetireContext();

        // Serialises Start, Stop and Uninstall of this bundle: blocks while
        // another thread runs one, and throws std::logic_error when the
        // calling thread is already inside one (an activator or a listener
        // starting or stopping its own bundle).
        class Operation
        {
          public:
            explicit Operation(BundlePrivate& bundle);
            ~Operation();
            Operation(Operation const&) = delete;
            Operation& operator=(Operation const&) = delete;

          private:
            BundlePrivate& bundle;
        };

        std::weak_ptr<CoreBundleContext> const core;
        long const id;
        std::string const location;
        std::string const symbolicName;
        BundleVersion const version;
        AnyMap const headers;
        Bundle::TimeStamp const installTime;

        // Position in the framework's start order; 0 while not started.
        std::atomic<std::uint64_t> startOrder{ 0 };

        // Guards the loaded library and the activator of this bundle.
        std::mutex libraryMutex;
        storage::sharedlib::SharedLibrary library;
        BundleContextPrivate* boundContext = nullptr; ///< what the glue setter was last given
        BundleActivator* activator = nullptr;
        std::function<void(BundleActivator*)> destroyActivator;

      private:
        std::atomic<Bundle::State> state;

        // Guards operationOwner.
        std::mutex operationMutex;
        std::condition_variable operationDone;
        std::thread::id operationOwner;

        // Guards the contexts of this bundle.
        mutable std::mutex contextMutex;
        std::shared_ptr<BundleContextPrivate> context;
        // Contexts of earlier activations stay alive with the bundle: bundle
        // code may still hold the raw pointer its glue setter was given.
        std::vector<std::shared_ptr<BundleContextPrivate>> retiredContexts;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_BUNDLEPRIVATE_H
