#include "service/ServiceHolder.h"

#include "service/ServiceRegistrationBasePrivate.h"

namespace cppmicroservices
{
    ServiceHolder::ServiceHolder(std::shared_ptr<ServiceRegistrationBasePrivate> registration,
                                 std::shared_ptr<ServiceUseEntry> entry,
                                 InterfaceMapConstPtr service,
                                 bool prototype)
        : registration(std::move(registration))
        , entry(std::move(entry))
        , service(std::move(service))
        , prototype(prototype)
    {
    }

    ServiceHolder::~ServiceHolder() { registration->usage.Release(*registration, entry, service, prototype); }

    std::shared_ptr<void>
    MakeServicePointer(std::shared_ptr<ServiceHolder> holder, std::string const& interfaceId)
    {
        if (!holder)
        {
            return nullptr;
        }
        std::shared_ptr<void> object = ExtractInterface(holder->service, interfaceId);
        if (!object)
        {
            return nullptr;
        }
        return std::shared_ptr<void>(object.get(), ServiceDeleter{ std::move(holder) });
    }

    InterfaceMapConstPtr
    MakeServiceMapPointer(std::shared_ptr<ServiceHolder> holder)
    {
        if (!holder)
        {
            return nullptr;
        }
        InterfaceMap const* map = holder->service.get();
        return InterfaceMapConstPtr(map, ServiceDeleter{ std::move(holder) });
    }
} // namespace cppmicroservices
