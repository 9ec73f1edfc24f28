#ifndef CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTCONTEXT_HPP
#define CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTCONTEXT_HPP

#include "cppmicroservices/Any.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/servicecomponent/ComponentException.hpp"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices::service::component
{
    /// What the runtime tells one component instance about itself: its
    /// properties, its bundle, and the services bound to its references.
    /// One context per instance, made by the runtime before the instance is
    /// constructed and handed to its constructor (through the generated glue),
    /// Activate, Deactivate and Modified.
    ///
    /// Every member may be called from any thread and none calls user code.
    /// The bound services are those the runtime chose for this instance: for a
    /// static reference the ones it was created with, for a dynamic one the
    /// ones bound at the moment of the call.
    class ComponentContext
    {
      public:
        virtual ~ComponentContext() = default;

        /// The component properties: the manifest's properties, overlaid by
        /// configuration properties where a configuration policy applies,
        /// plus component.name and component.id.
        virtual std::unordered_map<std::string, cppmicroservices::Any> GetProperties() const = 0;

        /// The context of the bundle that declares the component.
        virtual cppmicroservices::BundleContext GetBundleContext() const = 0;

        /// The bundle this instance was made for; valid only for components
        /// whose service scope is bundle or prototype, invalid otherwise.
        virtual cppmicroservices::Bundle GetUsingBundle() const = 0;

        /// Enables the component called name of the same bundle (every
        /// component of the bundle when name is empty). Returns at once; the
        /// component is enabled later on a runtime thread. Never throws for an
        /// unknown name (nothing happens).
        virtual void EnableComponent(std::string const& name) = 0;

        /// As EnableComponent, but disables: an active component is
        /// deactivated and its service unregistered.
        virtual void DisableComponent(std::string const& name) = 0;

        /// The reference of the service the component provides, or an invalid
        /// reference when it provides none or it is not registered.
        virtual cppmicroservices::ServiceReferenceBase GetServiceReference() const = 0;

        /// The service bound to the reference refName (for a multiple
        /// reference the best one: highest service.ranking, then lowest
        /// service.id); nullptr if the reference is optional and unbound, or
        /// the bound service does not provide T. Throws ComponentException for
        /// an unknown reference name, a mandatory reference without a bound
        /// service, or a context whose instance was deactivated.
        template <class T>
        std::shared_ptr<T>
        LocateService(std::string const& refName) const
        {
            return std::static_pointer_cast<T>(LocateService(refName, us_service_interface_iid<T>()));
        }

        /// The bound service of refName whose reference is sRef; nullptr if
        /// that service is not bound to it. Throws as LocateService(refName).
        template <class T>
        std::shared_ptr<T>
        LocateService(std::string const& refName, cppmicroservices::ServiceReference<T> const& sRef) const
        {
            return std::static_pointer_cast<T>(
                LocateService(refName, static_cast<cppmicroservices::ServiceReferenceBase const&>(sRef)));
        }

        /// Every service bound to refName, best first; empty when none is.
        /// Throws as LocateService(refName), except that an empty mandatory
        /// reference gives an empty vector.
        template <class T>
        std::vector<std::shared_ptr<T>>
        LocateServices(std::string const& refName) const
        {
            std::vector<std::shared_ptr<T>> services;
            for (auto const& service : LocateServices(refName, us_service_interface_iid<T>()))
            {
                services.push_back(std::static_pointer_cast<T>(service));
            }
            return services;
        }

      protected:
        /// The object registered under the interface id type of the best
        /// service bound to name.
        virtual std::shared_ptr<void> LocateService(std::string const& name, std::string const& type) const = 0;

        /// The object of the bound service sRef, for the interface sRef is bound to.
        virtual std::shared_ptr<void> LocateService(std::string const& refName,
                                                    cppmicroservices::ServiceReferenceBase const& sRef) const
            = 0;

        /// The objects registered under type of every service bound to name.
        virtual std::vector<std::shared_ptr<void>> LocateServices(std::string const& name,
                                                                  std::string const& type) const
            = 0;
    };
} // namespace cppmicroservices::service::component

#endif // CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTCONTEXT_HPP
