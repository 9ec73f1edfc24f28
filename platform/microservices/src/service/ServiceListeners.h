#ifndef CPPMICROSERVICES_SRC_SERVICE_SERVICELISTENERS_H
#define CPPMICROSERVICES_SRC_SERVICE_SERVICELISTENERS_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/ListenerFunctors.h"
#include "cppmicroservices/ListenerToken.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices
{
    class BundleContextPrivate;
    class BundleEvent;
    class CoreBundleContext;
    class FrameworkEvent;
    class ServiceEvent;

    // The service, bundle and framework listeners of one framework.
    //
    // Listener lists are copy-on-write: adding or removing one publishes a new
    // snapshot, and delivery walks a snapshot with no lock held, so listeners
    // may add or remove listeners, register services or start bundles. Events
    // are delivered synchronously on the calling thread. A listener removed
    // while an event is being delivered on another thread is not called for
    // any event that starts after the removal.
    class ServiceListeners
    {
      public:
        explicit ServiceListeners(CoreBundleContext& core);

        // Throws std::invalid_argument for a malformed filter.
        ListenerTokenId AddServiceListener(std::shared_ptr<BundleContextPrivate> const& context,
                                           ServiceListener listener,
                                           std::string const& filter);
        ListenerTokenId AddBundleListener(std::shared_ptr<BundleContextPrivate> const& context, BundleListener listener);
        ListenerTokenId AddFrameworkListener(std::shared_ptr<BundleContextPrivate> const& context,
                                             FrameworkListener listener);

        // Removes the listener id if context added it.
        void RemoveListener(BundleContextPrivate const* context, ListenerTokenId id);
        // Removes every listener context added.
        void RemoveAllListeners(BundleContextPrivate const* context);

        // Delivers a service event. For SERVICE_MODIFIED, oldProperties are
        // the properties before the change: listeners that matched only those
        // get SERVICE_MODIFIED_ENDMATCH instead.
        void ServiceChanged(ServiceEvent const& event,
                            std::vector<std::string> const& classes,
                            AnyMap const& properties,
                            AnyMap const* oldProperties = nullptr);
        void BundleChanged(BundleEvent const& event);
        void FrameworkChanged(FrameworkEvent const& event);

        // Number of service listeners, for tests and diagnostics.
        std::size_t ServiceListenerCount() const;

      private:
        struct Entry
        {
            ListenerTokenId id = 0;
            std::shared_ptr<BundleContextPrivate> context;
            std::atomic<bool> removed{ false };
        };
        struct ServiceEntry : Entry
        {
            ServiceListener listener;
            std::optional<LDAPFilter> filter;
            std::string objectClass; ///< set when the filter is only "(objectclass=X)"
        };
        struct BundleEntry : Entry
        {
            BundleListener listener;
        };
        struct FrameworkEntry : Entry
        {
            FrameworkListener listener;
        };

        struct ServiceSnapshot
        {
            std::vector<std::shared_ptr<ServiceEntry>> general;
            std::unordered_map<std::string, std::vector<std::shared_ptr<ServiceEntry>>> byClass;
        };
        using BundleSnapshot = std::vector<std::shared_ptr<BundleEntry>>;
        using FrameworkSnapshot = std::vector<std::shared_ptr<FrameworkEntry>>;

        // Removes the entries pred selects from all lists. Needs
        // listenersMutex held.
        template <class Pred>
        void RemoveLocked(Pred pred);

        CoreBundleContext& core;
        std::atomic<ListenerTokenId> nextId{ 1 };

        mutable std::mutex listenersMutex; // guards the three snapshots
        std::shared_ptr<ServiceSnapshot const> serviceListeners;
        std::shared_ptr<BundleSnapshot const> bundleListeners;
        std::shared_ptr<FrameworkSnapshot const> frameworkListeners;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SERVICELISTENERS_H
