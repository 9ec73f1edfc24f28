#include "cppmicroservices/ServiceEvent.h"

#include "cppmicroservices/Constants.h"

#include <ostream>

namespace cppmicroservices
{
    ServiceEvent::ServiceEvent() : type(SERVICE_REGISTERED), valid(false) {}

    ServiceEvent::ServiceEvent(Type type, ServiceReferenceBase const& reference)
        : reference(reference)
        , type(type)
        , valid(true)
    {
    }

    ServiceEvent::ServiceEvent(ServiceEvent const& other) = default;
    ServiceEvent& ServiceEvent::operator=(ServiceEvent const& other) = default;
    ServiceEvent::~ServiceEvent() = default;

    ServiceEvent::operator bool() const { return valid; }

    ServiceReferenceU
    ServiceEvent::GetServiceReference() const
    {
        return reference;
    }

    ServiceEvent::Type
    ServiceEvent::GetType() const
    {
        return type;
    }

    std::ostream&
    operator<<(std::ostream& os, ServiceEvent::Type const& type)
    {
        switch (type)
        {
            case ServiceEvent::SERVICE_REGISTERED:
                return os << "REGISTERED";
            case ServiceEvent::SERVICE_MODIFIED:
                return os << "MODIFIED";
            case ServiceEvent::SERVICE_UNREGISTERING:
                return os << "UNREGISTERING";
            case ServiceEvent::SERVICE_MODIFIED_ENDMATCH:
                return os << "MODIFIED_ENDMATCH";
        }
        return os << "unknown service event type (" << static_cast<uint32_t>(type) << ")";
    }

    std::ostream&
    operator<<(std::ostream& os, ServiceEvent const& event)
    {
        if (!event)
        {
            return os << "NONE";
        }
        ServiceReferenceU ref = event.GetServiceReference();
        os << event.GetType() << " " << ref.GetProperty(Constants::SERVICE_ID).ToStringNoExcept() << " "
           << ref.GetProperty(Constants::OBJECTCLASS).ToStringNoExcept();
        return os;
    }
} // namespace cppmicroservices
