#ifndef CPPMICROSERVICES_DS_COMPONENT_BINDINGRULES_H
#define CPPMICROSERVICES_DS_COMPONENT_BINDINGRULES_H

#include "component/ServiceMatch.h"
#include "metadata/ComponentMetadata.h"

#include <vector>

namespace cppmicroservices::ds
{
    /// Which services a reference binds, given the services that match it
    /// (best first). Pure functions.
    class BindingRules
    {
      public:
        /// For a new instance: the best match of a unary reference, every
        /// match of a multiple one.
        static std::vector<ServiceMatch> Initial(ReferenceMetadata const& reference,
                                                 std::vector<ServiceMatch> const& matches);

        /// Whether an instance created with chosen for a static reference
        /// must make way for a new one: a chosen service is gone, or (greedy)
        /// a better unary match or an additional multiple match arrived.
        static bool StaticBindingBroken(ReferenceMetadata const& reference,
                                        std::vector<ServiceMatch> const& chosen,
                                        std::vector<ServiceMatch> const& matches);

        /// What a dynamic reference bound to current should be bound to now.
        /// A reluctant unary reference keeps its service while it matches; a
        /// greedy one moves to the best match; a multiple one binds all.
        static std::vector<ServiceMatch> DynamicTarget(ReferenceMetadata const& reference,
                                                       std::vector<ServiceMatch> const& current,
                                                       std::vector<ServiceMatch> const& matches);
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_BINDINGRULES_H
