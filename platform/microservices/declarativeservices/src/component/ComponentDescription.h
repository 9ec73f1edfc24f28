#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTDESCRIPTION_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTDESCRIPTION_H

#include "metadata/ComponentMetadata.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"

#include <functional>
#include <memory>
#include <string>

namespace cppmicroservices::ds
{
    /// Who a component is, fixed when its bundle's components are loaded and
    /// shared by everything that acts for it. Immutable.
    struct ComponentDescription
    {
        std::shared_ptr<ComponentMetadata const> metadata;
        Bundle bundle;
        BundleContext bundleContext; ///< of the component's bundle; invalid once it stopped
        std::string bundleName;      ///< symbolic name
        unsigned long id = 0;        ///< component.id
        /// Enables (true) or disables the named component of the same bundle,
        /// asynchronously; every component of the bundle for an empty name.
        std::function<void(std::string const& name, bool enable)> enabler;

        /// "component 'x' of bundle 'y'", for log lines.
        std::string
        Describe() const
        {
            return "component '" + metadata->name + "' of bundle '" + bundleName + "'";
        }
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTDESCRIPTION_H
