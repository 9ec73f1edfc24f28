// Evaluates a parsed filter against a property map.
#ifndef CPPMICROSERVICES_SRC_UTIL_LDAPMATCHER_H
#define CPPMICROSERVICES_SRC_UTIL_LDAPMATCHER_H

#include "LDAPFilterData.h"

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices
{
    class LDAPMatcher
    {
      public:
        // Evaluates `node` against `properties`. With `caseSensitiveKeys` false, a key matches
        // whatever its case (a map that is not case-insensitive is assumed to hold no two keys
        // differing only in case). Never throws, never allocates.
        static bool Evaluate(LDAPNode const& node, AnyMap const& properties, bool caseSensitiveKeys) noexcept;

        // Throws std::runtime_error("Properties contain case variants of the key: <key>") when
        // a map whose kind is not case-insensitive holds two keys differing only in case.
        static void RejectCaseVariants(AnyMap const& properties);

        // Compares one property value with the value of a leaf node (not And/Or/Not).
        static bool Compare(LDAPNode const& leaf, Any const& value) noexcept;
    };
} // namespace cppmicroservices

#endif
