#ifndef CPPMICROSERVICES_DS_METADATA_REFERENCEMETADATAPARSER_H
#define CPPMICROSERVICES_DS_METADATA_REFERENCEMETADATAPARSER_H

#include "metadata/ComponentMetadata.h"

#include "cppmicroservices/Any.h"

#include <cstddef>

namespace cppmicroservices::ds
{
    /// Reads one entry of a component's "references" array.
    class ReferenceMetadataParser
    {
      public:
        /// index is the entry's position, used in error texts
        /// ("references[2].policy must be static or dynamic"). Throws
        /// std::invalid_argument naming the offending key.
        static ReferenceMetadata Parse(Any const& reference, std::size_t index);
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_METADATA_REFERENCEMETADATAPARSER_H
