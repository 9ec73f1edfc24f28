#ifndef CPPMICROSERVICES_SERVICEREFERENCE_H
#define CPPMICROSERVICES_SERVICEREFERENCE_H

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReferenceBase.h"

#include <functional>
#include <memory>

namespace cppmicroservices
{
    /// A ServiceReferenceBase bound to the interface S. Converting from a
    /// reference whose service was not registered under S's id gives an
    /// invalid reference.
    template <class S>
    class ServiceReference : public ServiceReferenceBase
    {
      public:
        using ServiceType = S;

        ServiceReference() : ServiceReferenceBase() {}

        ServiceReference(ServiceReferenceBase const& base) : ServiceReferenceBase(base)
        {
            SetInterfaceId(us_service_interface_iid<S>());
        }

        using ServiceReferenceBase::operator=;

        ServiceReference&
        operator=(ServiceReferenceBase const& base)
        {
            ServiceReferenceBase::operator=(base);
            SetInterfaceId(us_service_interface_iid<S>());
            return *this;
        }

        using ServiceReferenceBase::operator==;
    };

    /// A reference that is not bound to a single interface; GetService with it
    /// returns the whole InterfaceMap.
    template <>
    class ServiceReference<void> : public ServiceReferenceBase
    {
      public:
        using ServiceType = void;

        ServiceReference() : ServiceReferenceBase() {}
        ServiceReference(ServiceReferenceBase const& base) : ServiceReferenceBase(base) {}

        using ServiceReferenceBase::operator=;
        using ServiceReferenceBase::operator==;
    };

    using ServiceReferenceU = ServiceReference<void>;

    /// The reference of a service object returned by BundleContext::GetService
    /// (or ServiceObjects::GetService); invalid for any other pointer.
    US_Framework_EXPORT ServiceReferenceU ServiceReferenceFromService(std::shared_ptr<void> const& s);

    template <class S>
    ServiceReference<S>
    ServiceReferenceFromService(std::shared_ptr<S> const& s)
    {
        return ServiceReference<S>(ServiceReferenceFromService(std::static_pointer_cast<void>(s)));
    }
} // namespace cppmicroservices

namespace std
{
    template <class S>
    struct hash<cppmicroservices::ServiceReference<S>>
    {
        std::size_t
        operator()(cppmicroservices::ServiceReference<S> const& sr) const
        {
            return sr.Hash();
        }
    };
} // namespace std

#endif // CPPMICROSERVICES_SERVICEREFERENCE_H
