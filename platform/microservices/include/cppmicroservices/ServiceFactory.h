#ifndef CPPMICROSERVICES_SERVICEFACTORY_H
#define CPPMICROSERVICES_SERVICEFACTORY_H

#include "cppmicroservices/ServiceInterface.h"

namespace cppmicroservices
{
    class Bundle;
    class ServiceRegistrationBase;

    /// Makes service objects per using bundle (service.scope "bundle"). The
    /// framework calls GetService the first time a bundle gets the service
    /// and caches the result for that bundle; it calls UngetService when the
    /// bundle's last shared_ptr to it dies, when the bundle stops, or when the
    /// service is unregistered. Both are called with no framework lock held,
    /// possibly from several threads at once for different bundles.
    ///
    /// GetService must return a map that holds every interface id the service
    /// was registered under; returning null or throwing makes the caller's
    /// GetService return null and fires a FRAMEWORK_ERROR event.
    class ServiceFactory
    {
      public:
        virtual ~ServiceFactory() = default;

        virtual InterfaceMapConstPtr GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) = 0;

        virtual void UngetService(Bundle const& bundle,
                                  ServiceRegistrationBase const& registration,
                                  InterfaceMapConstPtr const& service)
            = 0;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SERVICEFACTORY_H
