#ifndef CPPMICROSERVICES_SERVICEREGISTRATION_H
#define CPPMICROSERVICES_SERVICEREGISTRATION_H

#include "cppmicroservices/ServiceRegistrationBase.h"

#include <type_traits>

namespace cppmicroservices
{
    class BundleContext;

    /// A registration of a service provided under I1 and Interfaces...,
    /// returned by the templated BundleContext::RegisterService.
    template <class I1, class... Interfaces>
    class ServiceRegistration : public ServiceRegistrationBase
    {
      public:
        ServiceRegistration() : ServiceRegistrationBase() {}

        /// A reference bound to Interface, one of the registered interfaces.
        /// Throws std::logic_error if invalid or unregistered.
        template <class Interface>
        ServiceReference<Interface>
        GetReference() const
        {
            static_assert(std::is_same_v<Interface, I1> || (std::is_same_v<Interface, Interfaces> || ...),
                          "The requested interface was not registered with this registration");
            return ServiceReference<Interface>(
                ServiceRegistrationBase::GetReference(us_service_interface_iid<Interface>()));
        }

        /// A reference bound to I1.
        ServiceReference<I1>
        GetReference() const
        {
            return this->template GetReference<I1>();
        }

        using ServiceRegistrationBase::operator=;

      private:
        friend class BundleContext;

        ServiceRegistration(ServiceRegistrationBase const& base) : ServiceRegistrationBase(base) {}
    };

    /// A registration made from an InterfaceMap.
    template <>
    class ServiceRegistration<void> : public ServiceRegistrationBase
    {
      public:
        ServiceRegistration() : ServiceRegistrationBase() {}
        ServiceRegistration(ServiceRegistrationBase const& base) : ServiceRegistrationBase(base) {}

        using ServiceRegistrationBase::operator=;
    };

    using ServiceRegistrationU = ServiceRegistration<void>;
} // namespace cppmicroservices

namespace std
{
    template <class I1, class... Interfaces>
    struct hash<cppmicroservices::ServiceRegistration<I1, Interfaces...>>
    {
        std::size_t
        operator()(cppmicroservices::ServiceRegistration<I1, Interfaces...> const& reg) const
        {
            return reg.Hash();
        }
    };
} // namespace std

#endif // CPPMICROSERVICES_SERVICEREGISTRATION_H
