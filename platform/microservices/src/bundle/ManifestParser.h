#ifndef CPPMICROSERVICES_SRC_BUNDLE_MANIFESTPARSER_H
#define CPPMICROSERVICES_SRC_BUNDLE_MANIFESTPARSER_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/BundleVersion.h"

#include <string>

namespace cppmicroservices
{
    // Turns a bundle manifest into the headers Bundle::GetHeaders returns and
    // checks the headers the framework relies on. Error texts start with
    // "Failed to install bundle library at location <location>: ".
    class ManifestParser
    {
      public:
        static constexpr int kMaxDepth = 64;

        // JSON to headers: objects become case-insensitive AnyMaps, arrays
        // std::vector<Any>, strings std::string (a leading '%' is dropped),
        // true/false bool, integers int when they fit, else long long (or
        // unsigned long long), other numbers double. A null member is left
        // out; a null array element stays as an empty Any. Throws
        // std::runtime_error for text that is not a JSON object, nests deeper
        // than kMaxDepth, or has keys that differ only in case.
        static AnyMap Parse(std::string const& json, std::string const& location);

        struct Identity
        {
            std::string symbolicName;
            BundleVersion version;
        };

        // Checks bundle.symbolic_name (a C identifier) and bundle.version
        // (optional; a valid version string). Throws std::invalid_argument.
        static Identity Validate(AnyMap const& headers, std::string const& location);
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_MANIFESTPARSER_H
