#ifndef CPPMICROSERVICES_DS_COMPONENT_REFERENCETRACKER_H
#define CPPMICROSERVICES_DS_COMPONENT_REFERENCETRACKER_H

#include "component/ServiceMatch.h"
#include "metadata/ComponentMetadata.h"

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceTracker.h"

#include <cstddef>
#include <memory>
#include <string>

namespace cppmicroservices::ds
{
    class ComponentManager;

    /// Tracks the services that match one reference of a component,
    /// (&(objectclass=<interface>)<target>), and reports each arrival,
    /// change and departure to the component's manager on the thread that
    /// caused it. Services of the component itself (same component.id) are
    /// never offered, so a component cannot satisfy its own reference.
    class ReferenceTracker final : private ServiceTrackerCustomizer<void, ServiceMatch>
    {
      public:
        ReferenceTracker(BundleContext const& context,
                         ReferenceMetadata const& reference,
                         std::size_t index,
                         unsigned long ownComponentId,
                         std::weak_ptr<ComponentManager> manager);
        ~ReferenceTracker() override;

        /// Starts tracking; the services already registered are reported on
        /// this thread. Blocking. Throws std::runtime_error when the context
        /// is no longer valid.
        void Open();
        /// Stops tracking; waits for reports running on other threads. No
        /// report follows. Idempotent; never throws.
        void Close();

        /// The LDAP filter of a reference.
        static std::string FilterOf(ReferenceMetadata const& reference);

      private:
        std::shared_ptr<ServiceMatch> AddingService(ServiceReferenceU const& reference) override;
        void ModifiedService(ServiceReferenceU const& reference, std::shared_ptr<ServiceMatch> const& match) override;
        void RemovedService(ServiceReferenceU const& reference, std::shared_ptr<ServiceMatch> const& match) override;

        std::size_t const index;
        unsigned long const ownComponentId;
        std::weak_ptr<ComponentManager> const manager;
        std::unique_ptr<ServiceTracker<void, ServiceMatch>> tracker;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_REFERENCETRACKER_H
