#ifndef CPPMICROSERVICES_SRC_SERVICE_SERVICEREGISTRY_H
#define CPPMICROSERVICES_SRC_SERVICE_SERVICEREGISTRY_H

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistrationBase.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices
{
    class BundlePrivate;
    class CoreBundleContext;
    class ServiceRegistrationBasePrivate;

    // The services of one framework, indexed by id (registration order) and
    // by interface id (best first: highest ranking, then lowest id). Every
    // member may be called from any thread; none calls out to user code or
    // fires events: callers do that after the registry has changed.
    class ServiceRegistry
    {
      public:
        // Adds a service. Throws std::invalid_argument for a null or empty
        // map or an empty interface id, std::runtime_error for property keys
        // that differ only in case.
        std::shared_ptr<ServiceRegistrationBasePrivate> Add(std::shared_ptr<CoreBundleContext> const& core,
                                                            std::shared_ptr<BundlePrivate> const& bundle,
                                                            InterfaceMapConstPtr const& service,
                                                            ServiceProperties const& properties);

        // References to the services under clazz (all when empty) matching
        // filter (all when empty). Throws std::invalid_argument for a bad
        // filter.
        std::vector<ServiceReferenceU> Find(std::string const& clazz, std::string const& filter) const;

        // The best service under clazz, or an invalid reference.
        ServiceReferenceU FindBest(std::string const& clazz) const;

        // Takes reg out of the indexes; false if it was not there.
        bool Remove(ServiceRegistrationBasePrivate const& reg);

        // Moves reg to its place for a new ranking.
        void UpdateRanking(std::shared_ptr<ServiceRegistrationBasePrivate> const& reg, int ranking);

        std::vector<std::shared_ptr<ServiceRegistrationBasePrivate>> RegisteredBy(BundlePrivate const* bundle) const;
        std::vector<std::shared_ptr<ServiceRegistrationBasePrivate>> All() const;

      private:
        using Registrations = std::vector<std::shared_ptr<ServiceRegistrationBasePrivate>>;

        // Needs registryMutex held.
        void InsertSortedLocked(Registrations& list, std::shared_ptr<ServiceRegistrationBasePrivate> const& reg);

        mutable std::mutex registryMutex; // guards the indexes and every registration's ranking
        std::map<long, std::shared_ptr<ServiceRegistrationBasePrivate>> servicesById;
        std::unordered_map<std::string, Registrations> servicesByClass;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SERVICEREGISTRY_H
