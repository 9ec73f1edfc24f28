#ifndef CPPMICROSERVICES_SERVICEREGISTRATIONBASE_H
#define CPPMICROSERVICES_SERVICEREGISTRATIONBASE_H

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReference.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace cppmicroservices
{
    class ServiceRegistrationBasePrivate;
    namespace detail
    {
        struct PrivateAccess;
    }

    /// The registering side of a service: update its properties or
    /// unregister it. Cheap to copy; all copies name the same registration.
    /// Every member may be called from any thread, including from a service
    /// listener. SetProperties and Unregister deliver service events
    /// synchronously on the calling thread, with no framework lock held.
    ///
    /// Converts to true unless default-constructed or assigned nullptr; it
    /// stays true after Unregister().
    class US_Framework_EXPORT ServiceRegistrationBase
    {
      public:
        ServiceRegistrationBase(ServiceRegistrationBase const& reg);
        ServiceRegistrationBase(ServiceRegistrationBase&& reg) noexcept;
        ServiceRegistrationBase& operator=(ServiceRegistrationBase const& registration);
        ServiceRegistrationBase& operator=(ServiceRegistrationBase&& registration) noexcept;
        ServiceRegistrationBase& operator=(std::nullptr_t);
        ~ServiceRegistrationBase();

        explicit operator bool() const;

        /// A reference bound to interfaceId (the first registered interface
        /// when empty). Throws std::logic_error if this registration is
        /// invalid or unregistered, std::invalid_argument if the service was
        /// not registered under interfaceId.
        ServiceReferenceBase GetReference(std::string const& interfaceId = std::string()) const;

        /// Replaces the service's properties. The framework keeps its own
        /// service.id, objectclass and service.scope. Fires SERVICE_MODIFIED to
        /// listeners that match the new properties and
        /// SERVICE_MODIFIED_ENDMATCH to those that matched only the old ones.
        /// Throws std::logic_error if invalid or unregistered,
        /// std::invalid_argument for a service.ranking that is not an int and
        /// std::runtime_error for keys that differ only in case.
        void SetProperties(ServiceProperties const& properties);
        void SetProperties(ServiceProperties&& properties);

        /// Removes the service: takes it out of the registry, fires
        /// SERVICE_UNREGISTERING (the service can still be obtained while the
        /// listeners run), then releases every object handed out by a
        /// factory. Throws std::logic_error("Service is unregistered") if
        /// invalid or already unregistered; returns at once if another thread
        /// is unregistering it at the same moment.
        void Unregister();

        /// Orders like the references of the two registrations.
        bool operator<(ServiceRegistrationBase const& o) const;
        bool operator==(ServiceRegistrationBase const& registration) const;
        bool
        operator!=(ServiceRegistrationBase const& registration) const
        {
            return !(*this == registration);
        }

        std::size_t Hash() const;

      private:
        template <class I1, class... Interfaces>
        friend class ServiceRegistration;
        friend struct detail::PrivateAccess;

        ServiceRegistrationBase();

        std::shared_ptr<ServiceRegistrationBasePrivate> d;
    };
} // namespace cppmicroservices

namespace std
{
    template <>
    struct hash<cppmicroservices::ServiceRegistrationBase>
    {
        std::size_t
        operator()(cppmicroservices::ServiceRegistrationBase const& reg) const
        {
            return reg.Hash();
        }
    };
} // namespace std

#endif // CPPMICROSERVICES_SERVICEREGISTRATIONBASE_H
