#ifndef CPPMICROSERVICES_DS_COMPONENT_SERVICEMATCH_H
#define CPPMICROSERVICES_DS_COMPONENT_SERVICEMATCH_H

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <vector>

namespace cppmicroservices::ds
{
    /// A service that matches a reference. Ranking and id are read once, so
    /// that sorting never consults a reference whose service is going away.
    struct ServiceMatch
    {
        ServiceReferenceU reference;
        int ranking = 0;
        long id = 0;

        /// Made from a live reference's service.ranking (0 unless an int) and service.id.
        static ServiceMatch From(ServiceReferenceU const& reference);

        /// Preferred: higher ranking, then lower id.
        bool
        IsBetterThan(ServiceMatch const& other) const
        {
            return ranking != other.ranking ? ranking > other.ranking : id < other.id;
        }
    };

    /// Whether list holds the service with id.
    bool ContainsService(std::vector<ServiceMatch> const& list, long id);

    /// A service bound to an instance, with the objects obtained for it (null
    /// when the service went away before they could be obtained).
    struct BoundService
    {
        ServiceMatch match;
        InterfaceMapConstPtr objects;
        std::shared_ptr<void> service; ///< the object under the reference's interface
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_SERVICEMATCH_H
