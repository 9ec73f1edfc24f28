#ifndef CPPMICROSERVICES_DS_METADATA_COMPONENTMETADATAPARSER_H
#define CPPMICROSERVICES_DS_METADATA_COMPONENTMETADATAPARSER_H

#include "metadata/ComponentMetadata.h"

#include "cppmicroservices/Any.h"

#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    /// Reads one entry of "scr.components" and applies the defaults: a
    /// reference is 1..1, static and reluctant; a component is enabled, and
    /// immediate unless it provides a service.
    class ComponentMetadataParser
    {
      public:
        /// Throws std::invalid_argument with a fixed text naming the offending
        /// key. Problems that leave the component usable are appended to
        /// warnings instead.
        static ComponentMetadata Parse(Any const& component, std::vector<std::string>& warnings);

        /// The component's name as far as it can be read (name, else
        /// implementation-class), or "" -- for error messages about a
        /// component that failed to parse.
        static std::string NameHint(Any const& component);
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_METADATA_COMPONENTMETADATAPARSER_H
