#ifndef CPPMICROSERVICES_SRC_SERVICE_SERVICEHOLDER_H
#define CPPMICROSERVICES_SRC_SERVICE_SERVICEHOLDER_H

#include "cppmicroservices/ServiceInterface.h"

#include <memory>
#include <string>

namespace cppmicroservices
{
    class ServiceRegistrationBasePrivate;
    struct ServiceUseEntry;

    // One GetService result: counts as one use of the service by a bundle
    // until destroyed, which may unget a factory-made object. Owned by the
    // deleter of the pointers handed to the caller, so it dies with their last
    // copy, on whatever thread drops it.
    class ServiceHolder
    {
      public:
        ServiceHolder(std::shared_ptr<ServiceRegistrationBasePrivate> registration,
                      std::shared_ptr<ServiceUseEntry> entry,
                      InterfaceMapConstPtr service,
                      bool prototype);
        ~ServiceHolder();
        ServiceHolder(ServiceHolder const&) = delete;
        ServiceHolder& operator=(ServiceHolder const&) = delete;

        std::shared_ptr<ServiceRegistrationBasePrivate> const registration;
        std::shared_ptr<ServiceUseEntry> const entry;
        InterfaceMapConstPtr const service;
        bool const prototype;
    };

    // The deleter of every pointer GetService hands out;
    // ServiceReferenceFromService finds the registration through it.
    struct ServiceDeleter
    {
        std::shared_ptr<ServiceHolder> holder;

        void
        operator()(void const*) noexcept
        {
            holder.reset();
        }
    };

    // The object for interfaceId (the first entry when empty), owned by
    // holder; null when holder is null.
    std::shared_ptr<void> MakeServicePointer(std::shared_ptr<ServiceHolder> holder, std::string const& interfaceId);

    // The whole map, owned by holder; null when holder is null.
    InterfaceMapConstPtr MakeServiceMapPointer(std::shared_ptr<ServiceHolder> holder);
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_SERVICE_SERVICEHOLDER_H
