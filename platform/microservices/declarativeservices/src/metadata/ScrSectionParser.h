#ifndef CPPMICROSERVICES_DS_METADATA_SCRSECTIONPARSER_H
#define CPPMICROSERVICES_DS_METADATA_SCRSECTIONPARSER_H

#include "metadata/ComponentMetadata.h"

#include "cppmicroservices/Any.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    /// A component entry that was refused or needs a remark.
    struct ComponentIssue
    {
        std::size_t index = 0; ///< position in scr.components
        std::string name;      ///< as far as it could be read; may be empty
        std::string message;
    };

    /// What a bundle's "scr" section declares: the components that parsed,
    /// and the reasons the others were skipped.
    struct ScrSection
    {
        std::vector<std::shared_ptr<ComponentMetadata const>> components;
        std::vector<ComponentIssue> errors;   ///< components not loaded
        std::vector<ComponentIssue> warnings; ///< components loaded with a remark
    };

    /// Reads the "scr" manifest section: {"version": 1, "components": [...]}.
    class ScrSectionParser
    {
      public:
        /// Throws std::invalid_argument with a fixed text when the section
        /// itself is unusable (not an object, no or unsupported version, no
        /// components). A bad component does not throw: it is listed in
        /// errors and the others are read.
        static ScrSection Parse(Any const& scr);
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_METADATA_SCRSECTIONPARSER_H
