#ifndef CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTCONSTANTS_HPP
#define CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTCONSTANTS_HPP

#include <string>

namespace cppmicroservices::service::component::ComponentConstants
{
    /// The manifest key of the component section.
    inline std::string const SERVICE_COMPONENT = "scr";
    /// Component property holding the component's name (std::string).
    inline std::string const COMPONENT_NAME = "component.name";
    /// Component property holding the component's process-wide id (unsigned long).
    inline std::string const COMPONENT_ID = "component.id";
    /// Component property of a factory component's template.
    inline std::string const COMPONENT_FACTORY = "component.factory";
    /// Suffix of a configuration property "<reference>.target" that replaces a reference's target filter.
    inline std::string const REFERENCE_TARGET_SUFFIX = ".target";
    inline std::string const REFERENCE_SCOPE_PROTOTYPE_REQUIRED = "prototype_required";
    inline std::string const CONFIG_POLICY_IGNORE = "ignore";
    inline std::string const CONFIG_POLICY_REQUIRE = "require";
    inline std::string const CONFIG_POLICY_OPTIONAL = "optional";
} // namespace cppmicroservices::service::component::ComponentConstants

#endif // CPPMICROSERVICES_SERVICECOMPONENT_COMPONENTCONSTANTS_HPP
