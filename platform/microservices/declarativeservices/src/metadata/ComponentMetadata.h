#ifndef CPPMICROSERVICES_DS_METADATA_COMPONENTMETADATA_H
#define CPPMICROSERVICES_DS_METADATA_COMPONENTMETADATA_H

#include "cppmicroservices/AnyMap.h"

#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    /// One entry of a component's "references", with the defaults applied.
    struct ReferenceMetadata
    {
        std::string name;
        std::string interfaceName; ///< without a leading "::"
        bool optional = false;     ///< cardinality 0..1 or 0..n
        bool multiple = false;     ///< cardinality 0..n or 1..n
        bool dynamic = false;      ///< policy dynamic (else static)
        bool greedy = false;       ///< policy-option greedy (else reluctant)
        std::string target;        ///< LDAP filter, empty when none
        std::string scope = "bundle"; ///< bundle, prototype or prototype-required
    };

    /// One entry of "scr.components", with the defaults applied.
    struct ComponentMetadata
    {
        std::string name; ///< the name key, else the implementation class
        std::string implementationClass;
        bool enabled = true;
        bool immediate = true;
        std::vector<std::string> serviceInterfaces; ///< empty: the component provides no service
        std::string serviceScope = "singleton";     ///< singleton, bundle or prototype
        AnyMap properties{ AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS };
        std::vector<ReferenceMetadata> references;
        std::string configurationPolicy = "ignore"; ///< ignore, optional or require
        std::vector<std::string> configurationPids; ///< "$" already replaced by the name
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_METADATA_COMPONENTMETADATA_H
