#ifndef CPPMICROSERVICES_SRC_SERVICE_SERVICEUSAGE_H
#define CPPMICROSERVICES_SRC_SERVICE_SERVICEUSAGE_H

#include "cppmicroservices/ServiceInterface.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace cppmicroservices
{
    class BundlePrivate;
    class ServiceHolder;
    class ServiceRegistrationBasePrivate;

    // One bundle's use of one service.
    struct ServiceUseEntry
    {
        std::weak_ptr<BundlePrivate> bundle;
        BundlePrivate const* key = nullptr;             ///< the bundle, for lookups only
        int useCount = 0;                               ///< live pointers from GetService
        InterfaceMapConstPtr service;                   ///< the bundle's object, null until made
        bool creating = false;                          ///< a factory call for it is running
        std::thread::id creator;                        ///< the thread running that call
        std::vector<InterfaceMapConstPtr> prototypes;   ///< live prototype objects
        bool released = false;                          ///< cut off by unregistration or bundle stop
    };

    // Who uses a service and which factory-made objects they hold; calls the
    // registration's factory (never with usageMutex held) and ungets what it
    // made when the last pointer dies, the using bundle stops or the service
    // is unregistered. Every member may be called from any thread.
    class ServiceUsage
    {
      public:
        // The bundle-scope object of reg for bundle, made by the factory on
        // first use; null when the service is unavailable or the factory
        // failed (reported as a FRAMEWORK_ERROR event). Blocks while another
        // thread makes the same bundle's object.
        std::shared_ptr<ServiceHolder> GetService(ServiceRegistrationBasePrivate& reg,
                                                  std::shared_ptr<BundlePrivate> const& bundle);

        // A new prototype object of reg for bundle; null as above.
        std::shared_ptr<ServiceHolder> GetPrototypeService(ServiceRegistrationBasePrivate& reg,
                                                           std::shared_ptr<BundlePrivate> const& bundle);

        // Called when a ServiceHolder dies. Never throws.
        void Release(ServiceRegistrationBasePrivate& reg,
                     std::shared_ptr<ServiceUseEntry> const& entry,
                     InterfaceMapConstPtr const& service,
                     bool prototype) noexcept;

        // Drops everything bundle holds (it is stopping), ungetting
        // factory-made objects.
        void ReleaseBundle(ServiceRegistrationBasePrivate& reg, BundlePrivate const* bundle);

        // Makes the service unavailable and ungets every factory-made object.
        // Part of unregistration.
        void MarkUnavailable(ServiceRegistrationBasePrivate& reg);

        bool IsAvailable() const;
        bool IsUsedBy(BundlePrivate const* bundle) const;
        std::vector<std::shared_ptr<BundlePrivate>> UsingBundles() const;

      private:
        struct Unget
        {
            std::weak_ptr<BundlePrivate> bundle;
            InterfaceMapConstPtr service;
        };

        // Calls the factory; null and a reported error when it fails.
        static InterfaceMapConstPtr CallFactory(ServiceRegistrationBasePrivate& reg,
                                                std::shared_ptr<BundlePrivate> const& bundle);
        static void CallUnget(ServiceRegistrationBasePrivate& reg, std::vector<Unget> const& ungets) noexcept;
        // Needs usageMutex held.
        void CollectLocked(ServiceRegistrationBasePrivate const& reg, ServiceUseEntry& entry, std::vector<Unget>& out);
        // Needs usageMutex held.
        void EraseIfIdleLocked(std::shared_ptr<ServiceUseEntry> const& entry, BundlePrivate const* key);

        mutable std::mutex usageMutex; // guards everything below
        std::condition_variable creationDone;
        bool available = true;
        std::unordered_map<BundlePrivate const*, std::shared_ptr<ServiceUseEntry>> entries;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SERVICEUSAGE_H
