#ifndef CPPMICROSERVICES_DS_COMPONENT_LIVEINSTANCE_H
#define CPPMICROSERVICES_DS_COMPONENT_LIVEINSTANCE_H

#include "component/ComponentContextImpl.h"

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstance.hpp"

#include <memory>

namespace cppmicroservices::ds
{
    /// A constructed and activated instance: the bundle's instance handle,
    /// the function that deletes it, and its context. InstanceBuilder makes
    /// and destroys it.
    struct LiveInstance
    {
        service::component::detail::ComponentInstance* instance = nullptr;
        void (*deleter)(service::component::detail::ComponentInstance*) = nullptr;
        std::shared_ptr<ComponentContextImpl> context;
        InterfaceMapConstPtr interfaces; ///< null for a component without a service
        bool hasModified = false;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_LIVEINSTANCE_H
