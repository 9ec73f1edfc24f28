#ifndef CPPMICROSERVICES_SERVICEREFERENCEBASE_H
#define CPPMICROSERVICES_SERVICEREFERENCEBASE_H

#include "cppmicroservices/Any.h"
#include "cppmicroservices/GlobalConfig.h"

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices
{
    class Bundle;
    class ServiceRegistrationBasePrivate;
    namespace detail
    {
        struct PrivateAccess;
    }

    /// A handle on one registered service, bound to one of its interface ids.
    /// Cheap to copy; all copies name the same registration. Every member may
    /// be called from any thread and none blocks on user code.
    ///
    /// A reference converts to false when default-constructed and once its
    /// service has been unregistered; its properties stay readable after that.
    /// Use ServiceReference<S> or ServiceReferenceU to make one.
    class US_Framework_EXPORT ServiceReferenceBase
    {
      public:
        ServiceReferenceBase(ServiceReferenceBase const& ref);
        ServiceReferenceBase(ServiceReferenceBase&& ref) noexcept;
        ServiceReferenceBase& operator=(ServiceReferenceBase const& reference);
        ServiceReferenceBase& operator=(ServiceReferenceBase&& reference) noexcept;
        ServiceReferenceBase& operator=(std::nullptr_t);
        ~ServiceReferenceBase();

        /// False when default-constructed or once the service is unregistered.
        explicit operator bool() const;

        /// The property under key, compared without regard to case; an empty
        /// Any when absent. Works after unregistration.
        Any GetProperty(std::string const& key) const;

        /// The property keys, spelled as registered.
        void GetPropertyKeys(std::vector<std::string>& keys) const;
        std::vector<std::string> GetPropertyKeys() const;

        /// The bundle that registered the service; invalid once unregistered.
        Bundle GetBundle() const;

        /// The bundles whose use count of this service is above zero.
        std::vector<Bundle> GetUsingBundles() const;

        /// The interface id this reference is bound to; "" when unbound.
        std::string GetInterfaceId() const;

        /// True if the service was registered under interfaceid.
        bool IsConvertibleTo(std::string const& interfaceid) const;

        /// Service order: lower ranking is less; at equal ranking the higher
        /// service.id is less, so the maximum is the preferred service. An
        /// invalid reference is less than a valid one.
        bool operator<(ServiceReferenceBase const& reference) const;

        /// True if both name the same registration.
        bool operator==(ServiceReferenceBase const& reference) const;
        bool
        operator!=(ServiceReferenceBase const& reference) const
        {
            return !(*this == reference);
        }

        std::size_t Hash() const;

      private:
        template <class S>
        friend class ServiceReference;
        friend struct detail::PrivateAccess;

        ServiceReferenceBase();

        // Binds to interfaceId when the service provides it, else becomes
        // invalid.
        void SetInterfaceId(std::string const& interfaceId);

        std::shared_ptr<ServiceRegistrationBasePrivate> d;
        std::string const* interfaceId; ///< points into the registration's immutable class list, or null
    };

    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, ServiceReferenceBase const& serviceRef);
} // namespace cppmicroservices

namespace std
{
    template <>
    struct hash<cppmicroservices::ServiceReferenceBase>
    {
        std::size_t
        operator()(cppmicroservices::ServiceReferenceBase const& sr) const
        {
            return sr.Hash();
        }
    };
} // namespace std

#endif // CPPMICROSERVICES_SERVICEREFERENCEBASE_H
