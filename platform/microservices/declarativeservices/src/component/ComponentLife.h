#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTLIFE_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTLIFE_H

#include "component/LiveInstance.h"
#include "component/ServiceMatch.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace cppmicroservices::ds
{
    /// One instance of the implementation class within a life. Guarded by
    /// the owning ComponentManager's stateMutex. While Creating, only the
    /// creator thread works on it; afterwards only the manager's drainer.
    struct InstanceRecord
    {
        enum class Phase
        {
            Creating,
            Active,
            Failed
        };

        Phase phase = Phase::Creating;
        std::thread::id creator;
        Bundle usingBundle;      ///< for bundle and prototype scope
        bool released = false;   ///< its user gave it back; to be deactivated
        bool modifiedFailed = false;
        std::uint64_t propertiesGeneration = 0;
        /// Per reference: the services chosen at creation (static) or bound now (dynamic).
        std::vector<std::vector<ServiceMatch>> bound;
        std::shared_ptr<LiveInstance> live; ///< set once Active
    };

    /// One satisfied period of a component: from registering its service (or,
    /// without a service, from creating its instance) until it is
    /// unregistered and deactivated. A component has at most one life at a
    /// time; the next starts only after the previous has ended. Guarded by
    /// the owning ComponentManager's stateMutex.
    struct ComponentLife
    {
        enum class Phase
        {
            Starting,   ///< being registered
            Registered, ///< registered, or running without a service
            Ending      ///< being unregistered and deactivated; refuses new instances
        };

        Phase phase = Phase::Starting;
        bool broken = false;             ///< registration failed; waits for a change
        bool immediateAttempted = false; ///< the immediate instance was tried once
        std::uint64_t propertiesGeneration = 0;
        ServiceProperties properties;
        ServiceRegistrationU registration;
        std::vector<std::shared_ptr<InstanceRecord>> instances;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTLIFE_H
