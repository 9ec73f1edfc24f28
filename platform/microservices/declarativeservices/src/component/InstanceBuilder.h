#ifndef CPPMICROSERVICES_DS_COMPONENT_INSTANCEBUILDER_H
#define CPPMICROSERVICES_DS_COMPONENT_INSTANCEBUILDER_H

#include "component/ComponentDescription.h"
#include "component/LiveInstance.h"
#include "component/ServiceMatch.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceProperties.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace cppmicroservices::ds
{
    /// Makes, activates and destroys instances of one component. Every
    /// member calls user code (factories of referenced services, the
    /// component's constructor, Activate, Deactivate, Bind methods), blocks
    /// on it, and must be called with no DS lock held. Failures are logged on
    /// "cppmicroservices::ds" naming the bundle and the component; nothing
    /// throws.
    class InstanceBuilder
    {
      public:
        InstanceBuilder(std::shared_ptr<ComponentDescription const> description,
                        std::function<ServiceReferenceU()> ownReference);

        /// Obtains the bound services (bindings: per reference, the chosen
        /// services), creates the instance through the bundle's entry points,
        /// constructs it, calls its dynamic Bind methods and Activate. Returns
        /// null after logging when any step but a Bind method fails; a
        /// mandatory reference whose services are all gone fails the build
        /// before the constructor runs.
        std::shared_ptr<LiveInstance> Build(ServiceProperties const& properties,
                                            std::vector<std::vector<ServiceMatch>> const& bindings,
                                            Bundle const& usingBundle) const;

        /// Deactivate, unbind, invalidate the context, delete. Exceptions of
        /// the user's class are logged and destruction goes on.
        void Destroy(LiveInstance& instance) const;

        /// The objects of one service for reference index, obtained through
        /// the component bundle's context (per call for prototype scope).
        /// objects and service are null when the service is gone.
        BoundService Acquire(std::size_t index, ServiceMatch const& match) const;

        /// Calls Bind<name> for service (when it has an object), logging failures.
        void InvokeBind(LiveInstance& instance, std::size_t index, BoundService const& service) const;
        void InvokeUnbind(LiveInstance& instance, std::size_t index, BoundService const& service) const;
        /// Calls Modified; returns false after logging when it threw.
        bool InvokeModified(LiveInstance& instance) const;

      private:
        void LogError(std::string const& what) const;

        std::shared_ptr<ComponentDescription const> const description;
        std::function<ServiceReferenceU()> const ownReference;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_INSTANCEBUILDER_H
