#ifndef CPPMICROSERVICES_SRC_SERVICE_SERVICEREGISTRATIONBASEPRIVATE_H
#define CPPMICROSERVICES_SRC_SERVICE_SERVICEREGISTRATIONBASEPRIVATE_H

#include "service/ServiceUsage.h"

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceFactory.h"
#include "cppmicroservices/ServiceInterface.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cppmicroservices
{
    class BundlePrivate;
    class CoreBundleContext;

    // One registered service. Identity, interfaces and service object are
    // fixed at registration; the properties are replaced as a whole by
    // SetProperties, so readers take a snapshot and read it without a lock.
    class ServiceRegistrationBasePrivate : public std::enable_shared_from_this<ServiceRegistrationBasePrivate>
    {
      public:
        enum class Life
        {
            Registered,
            Unregistering,
            Unregistered
        };

        ServiceRegistrationBasePrivate(long id,
                                       std::vector<std::string> classes,
                                       InterfaceMapConstPtr service,
                                       std::shared_ptr<ServiceFactory> factory,
                                       bool prototype,
                                       std::string const& scope,
                                       std::shared_ptr<BundlePrivate> const& owner,
                                       std::weak_ptr<CoreBundleContext> core,
                                       std::shared_ptr<AnyMap const> properties,
                                       int ranking);

        std::shared_ptr<AnyMap const> Properties() const;
        // Installs new properties and returns the old ones.
        std::shared_ptr<AnyMap const> ExchangeProperties(std::shared_ptr<AnyMap const> properties);

        // The entry of classes equal to interfaceId, or null.
        std::string const* FindClass(std::string const& interfaceId) const;

        // True until unregistration has finished delivering UNREGISTERING.
        bool
        IsAvailable() const
        {
            return usage.IsAvailable();
        }

        // "singleton", "bundle" or "prototype".
        std::string const& Scope() const;

        long const id;
        std::vector<std::string> const classes; ///< sorted; never changes, references point into it
        InterfaceMapConstPtr const service;     ///< the objects, or the factory entries
        std::shared_ptr<ServiceFactory> const factory;
        bool const prototype;
        std::string const scope; ///< the service.scope value the registration was made with
        std::weak_ptr<BundlePrivate> const owner;
        BundlePrivate const* const ownerKey; ///< for comparisons only, never dereferenced
        std::weak_ptr<CoreBundleContext> const core;

        std::atomic<Life> life{ Life::Registered };

        // Position in the registry's order; guarded by
        // ServiceRegistry::registryMutex.
        int ranking;

        ServiceUsage usage;

      private:
        mutable std::mutex propertiesMutex; // guards properties
        std::shared_ptr<AnyMap const> properties;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SERVICEREGISTRATIONBASEPRIVATE_H
