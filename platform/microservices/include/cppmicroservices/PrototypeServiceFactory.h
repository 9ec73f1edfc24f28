#ifndef CPPMICROSERVICES_PROTOTYPESERVICEFACTORY_H
#define CPPMICROSERVICES_PROTOTYPESERVICEFACTORY_H

#include "cppmicroservices/ServiceFactory.h"

namespace cppmicroservices
{
    /// A factory that gives service.scope "prototype": ServiceObjects::GetService
    /// asks it for a new object on every call and UngetService runs when that
    /// object's last shared_ptr dies. BundleContext::GetService on such a
    /// service still gets one object per bundle.
    struct PrototypeServiceFactory : public ServiceFactory
    {
        InterfaceMapConstPtr GetService(Bundle const& bundle, ServiceRegistrationBase const& registration) override
            = 0;

        void UngetService(Bundle const& bundle,
                          ServiceRegistrationBase const& registration,
                          InterfaceMapConstPtr const& service) override
            = 0;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_PROTOTYPESERVICEFACTORY_H
