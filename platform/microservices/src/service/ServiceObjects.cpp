#include "cppmicroservices/ServiceObjects.h"

#include "bundle/BundleContextPrivate.h"
#include "framework/PrivateAccess.h"
#include "service/ServiceHolder.h"
#include "service/ServiceRegistrationBasePrivate.h"

namespace cppmicroservices
{
    // The context a ServiceObjects was made from and the service it serves.
    class ServiceObjectsBasePrivate
    {
      public:
        ServiceObjectsBasePrivate(std::shared_ptr<BundleContextPrivate> context, ServiceReferenceBase reference)
            : context(std::move(context))
            , reference(std::move(reference))
        {
        }

        // A holder for a new object (prototype scope) or the bundle's object.
        std::shared_ptr<ServiceHolder>
        Obtain() const
        {
            auto pinned = context->Pin();
            auto const& reg = detail::PrivateAccess::Get(reference);
            if (!reg)
            {
                return nullptr;
            }
            return reg->prototype ? reg->usage.GetPrototypeService(*reg, pinned.bundle)
                                  : reg->usage.GetService(*reg, pinned.bundle);
        }

        std::shared_ptr<BundleContextPrivate> const context;
        ServiceReferenceBase const reference;
    };

    ServiceObjectsBase::ServiceObjectsBase(std::shared_ptr<BundleContextPrivate> const& context,
                                           ServiceReferenceBase const& reference)
        : d(std::make_shared<ServiceObjectsBasePrivate>(context, reference))
    {
    }

    ServiceObjectsBase::ServiceObjectsBase(ServiceObjectsBase const& other) = default;
    ServiceObjectsBase::ServiceObjectsBase(ServiceObjectsBase&& other) noexcept = default;
    ServiceObjectsBase& ServiceObjectsBase::operator=(ServiceObjectsBase const& other) = default;
    ServiceObjectsBase& ServiceObjectsBase::operator=(ServiceObjectsBase&& other) noexcept = default;
    ServiceObjectsBase::~ServiceObjectsBase() = default;

    std::shared_ptr<void>
    ServiceObjectsBase::GetService() const
    {
        return MakeServicePointer(d->Obtain(), d->reference.GetInterfaceId());
    }

    InterfaceMapConstPtr
    ServiceObjectsBase::GetServiceInterfaceMap() const
    {
        return MakeServiceMapPointer(d->Obtain());
    }

    ServiceReferenceBase
    ServiceObjectsBase::GetReference() const
    {
        return d->reference;
    }
} // namespace cppmicroservices
