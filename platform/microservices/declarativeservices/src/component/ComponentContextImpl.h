#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTCONTEXTIMPL_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTCONTEXTIMPL_H

#include "component/ComponentDescription.h"
#include "component/ServiceMatch.h"

#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/servicecomponent/ComponentContext.hpp"

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace cppmicroservices::ds
{
    /// The ComponentContext of one instance. The runtime fills its bound
    /// services before the constructor runs and changes them (dynamic
    /// references) around Bind/Unbind calls. Every member may be called from
    /// any thread; none calls user code or blocks on more than a short lock.
    class ComponentContextImpl final : public service::component::ComponentContext
    {
      public:
        /// ownReference yields the component's current service reference
        /// (invalid when none); it must not call user code.
        ComponentContextImpl(std::shared_ptr<ComponentDescription const> description,
                             ServiceProperties properties,
                             Bundle usingBundle,
                             std::function<ServiceReferenceU()> ownReference);

        std::unordered_map<std::string, Any> GetProperties() const override;
        BundleContext GetBundleContext() const override;
        Bundle GetUsingBundle() const override;
        void EnableComponent(std::string const& name) override;
        void DisableComponent(std::string const& name) override;
        ServiceReferenceBase GetServiceReference() const override;

        /// Replaces the services bound to reference index (one list per reference).
        void SetBound(std::vector<std::vector<BoundService>> bound);
        /// Adds a service to reference index, keeping best-first order.
        void AddBound(std::size_t index, BoundService service);
        /// Removes the service with serviceId from reference index and returns it.
        std::optional<BoundService> RemoveBound(std::size_t index, long serviceId);
        /// The bound service with serviceId of reference index, if any.
        std::optional<BoundService> FindBound(std::size_t index, long serviceId) const;
        void SetProperties(ServiceProperties properties);
        /// After deactivation: lookups throw from now on, and the bound services are released.
        void Invalidate();

      protected:
        std::shared_ptr<void> LocateService(std::string const& name, std::string const& type) const override;
        std::shared_ptr<void> LocateService(std::string const& refName, ServiceReferenceBase const& sRef) const override;
        std::vector<std::shared_ptr<void>> LocateServices(std::string const& name, std::string const& type) const override;

      private:
        // Requires stateMutex held. Throws ComponentException for an unknown
        // name or an invalidated context.
        std::size_t IndexOfLocked(std::string const& refName) const;

        std::shared_ptr<ComponentDescription const> const description;
        Bundle const usingBundle;
        std::function<ServiceReferenceU()> const ownReference;

        mutable std::mutex stateMutex; // guards the members below
        ServiceProperties properties;
        std::vector<std::vector<BoundService>> bound; // per reference, best first
        bool valid = true;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTCONTEXTIMPL_H
