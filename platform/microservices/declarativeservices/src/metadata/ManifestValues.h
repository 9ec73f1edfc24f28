#ifndef CPPMICROSERVICES_DS_METADATA_MANIFESTVALUES_H
#define CPPMICROSERVICES_DS_METADATA_MANIFESTVALUES_H

#include "cppmicroservices/Any.h"
#include "cppmicroservices/AnyMap.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    /// Typed reads of manifest values, which arrive as Any holding the JSON
    /// types (AnyMap, std::vector<Any>, std::string, bool, int, double). Every
    /// function that refuses a value throws std::invalid_argument(error).
    class ManifestValues
    {
      public:
        /// The value under key, or null when absent.
        static Any const* Find(AnyMap const& map, std::string const& key);

        static bool Bool(Any const& value, std::string const& error);
        static std::string NonEmptyString(Any const& value, std::string const& error);
        static AnyMap const& Map(Any const& value, std::string const& error);
        static std::vector<Any> const& Array(Any const& value, std::string const& error);
        /// Every element a non-empty string; an empty array is refused when !allowEmpty.
        static std::vector<std::string> StringArray(Any const& value, bool allowEmpty, std::string const& error);
        /// One of choices, compared without regard to case; returns the choice as listed.
        static std::string Choice(Any const& value,
                                  std::initializer_list<char const*> choices,
                                  std::string const& error);

        /// "::a::B" -> "a::B".
        static std::string WithoutLeadingScope(std::string const& name);
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_METADATA_MANIFESTVALUES_H
