#ifndef CPPMICROSERVICES_SERVICEOBJECTS_H
#define CPPMICROSERVICES_SERVICEOBJECTS_H

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"

#include <memory>

namespace cppmicroservices
{
    class BundleContext;
    class BundleContextPrivate;
    class ServiceObjectsBasePrivate;

    /// Shared part of ServiceObjects<S>; not used directly.
    class US_Framework_EXPORT ServiceObjectsBase
    {
      protected:
        ServiceObjectsBase(std::shared_ptr<BundleContextPrivate> const& context, ServiceReferenceBase const& reference);
        ServiceObjectsBase(ServiceObjectsBase const& other);
        ServiceObjectsBase(ServiceObjectsBase&& other) noexcept;
        ServiceObjectsBase& operator=(ServiceObjectsBase const& other);
        ServiceObjectsBase& operator=(ServiceObjectsBase&& other) noexcept;
        ~ServiceObjectsBase();

        /// The object for the reference's bound interface (see GetService).
        std::shared_ptr<void> GetService() const;
        /// The whole interface map.
        InterfaceMapConstPtr GetServiceInterfaceMap() const;
        ServiceReferenceBase GetReference() const;

      private:
        std::shared_ptr<ServiceObjectsBasePrivate> d;
    };

    /// Service objects of one service for one bundle's context, from
    /// BundleContext::GetServiceObjects. For a prototype-scope service every
    /// GetService() makes a new object through the factory, released (and
    /// UngetService called) when that object's last shared_ptr dies. For
    /// other scopes GetService() behaves like BundleContext::GetService.
    /// Thread-safe; GetService may call a factory and so blocks on user code.
    template <class S>
    class ServiceObjects : private ServiceObjectsBase
    {
      public:
        ServiceObjects(ServiceObjects const&) = default;
        ServiceObjects(ServiceObjects&&) noexcept = default;
        ServiceObjects& operator=(ServiceObjects const&) = default;
        ServiceObjects& operator=(ServiceObjects&&) noexcept = default;

        /// A service object; null if the service is unregistered or the
        /// factory failed. Throws std::runtime_error if the context that made
        /// this object is no longer valid.
        std::shared_ptr<S>
        GetService() const
        {
            return std::static_pointer_cast<S>(ServiceObjectsBase::GetService());
        }

        ServiceReference<S>
        GetServiceReference() const
        {
            return ServiceReference<S>(ServiceObjectsBase::GetReference());
        }

      private:
        friend class BundleContext;

        ServiceObjects(std::shared_ptr<BundleContextPrivate> const& context, ServiceReference<S> const& reference)
            : ServiceObjectsBase(context, reference)
        {
        }
    };

    /// ServiceObjects for a reference that is not bound to one interface.
    template <>
    class US_Framework_EXPORT ServiceObjects<void> : private ServiceObjectsBase
    {
      public:
        ServiceObjects(ServiceObjects const&) = default;
        ServiceObjects(ServiceObjects&&) noexcept = default;
        ServiceObjects& operator=(ServiceObjects const&) = default;
        ServiceObjects& operator=(ServiceObjects&&) noexcept = default;

        InterfaceMapConstPtr
        GetService() const
        {
            return ServiceObjectsBase::GetServiceInterfaceMap();
        }

        ServiceReferenceU
        GetServiceReference() const
        {
            return ServiceReferenceU(ServiceObjectsBase::GetReference());
        }

      private:
        friend class BundleContext;

        ServiceObjects(std::shared_ptr<BundleContextPrivate> const& context, ServiceReferenceU const& reference)
            : ServiceObjectsBase(context, reference)
        {
        }
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SERVICEOBJECTS_H
