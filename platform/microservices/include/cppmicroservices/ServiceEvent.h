#ifndef CPPMICROSERVICES_SERVICEEVENT_H
#define CPPMICROSERVICES_SERVICEEVENT_H

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceReference.h"

#include <cstdint>
#include <iosfwd>

namespace cppmicroservices
{
    /// A change in the life of a service, delivered to service listeners
    /// synchronously on the thread that made the change.
    class US_Framework_EXPORT ServiceEvent
    {
      public:
        enum Type : uint32_t
        {
            SERVICE_REGISTERED = 0x00000001,       ///< a service was registered
            SERVICE_MODIFIED = 0x00000002,         ///< its properties changed and the listener's filter matches them
            SERVICE_UNREGISTERING = 0x00000004,    ///< it is being unregistered and is still usable
            SERVICE_MODIFIED_ENDMATCH = 0x00000008 ///< its properties changed and no longer match the filter
        };

        /// An invalid event.
        ServiceEvent();
        ServiceEvent(Type type, ServiceReferenceBase const& reference);
        ServiceEvent(ServiceEvent const& other);
        ServiceEvent& operator=(ServiceEvent const& other);
        ~ServiceEvent();

        explicit operator bool() const;

        ServiceReferenceU GetServiceReference() const;

        /// The reference bound to S; invalid if the service does not
        /// provide S.
        template <class S>
        ServiceReference<S>
        GetServiceReference() const
        {
            return ServiceReference<S>(reference);
        }

        Type GetType() const;

      private:
        ServiceReferenceU reference;
        Type type;
        bool valid;
    };

    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, ServiceEvent::Type const& type);
    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, ServiceEvent const& event);
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SERVICEEVENT_H
