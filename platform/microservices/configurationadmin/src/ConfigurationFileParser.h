#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONFILEPARSER_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONFILEPARSER_H

#include "cppmicroservices/AnyMap.h"

#include <cstddef>
#include <string>

namespace cppmicroservices::cmimpl
{
    // Turns the text of a configuration file into configuration properties.
    //
    // The text must be one JSON object. Objects become case-insensitive
    // AnyMaps at every level, arrays std::vector<Any>, strings std::string,
    // true/false bool. An integer becomes int when it fits in 32 bits, else
    // long long (unsigned long long above the long long range); other numbers
    // double. A null member is left out; a null array element stays as an
    // empty Any, so that the other elements keep their index.
    //
    // Throws std::runtime_error, its text being one of (exact):
    //   "not valid JSON: <the JSON parser's message>"
    //   "the top-level value is not a JSON object"
    //   "nesting deeper than 64 levels"
    //   "keys that differ only in case: '<key>'"
    // Stateless; any thread.
    class ConfigurationFileParser
    {
      public:
        static constexpr int kMaxDepth = 64;

        static AnyMap Parse(std::string const& text);
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONFILEPARSER_H
