#pragma once

#include <cppmicroservices/AnyMap.h>

#include <nlohmann/json.hpp>

namespace spfhost {

// A JSON object as the framework's properties: objects become AnyMap, arrays
// std::vector<Any>, integers int (long long beyond int's range), other numbers double,
// and strings, booleans as they are. Throws std::invalid_argument("null is not a property
// value") for a null anywhere, and "a configuration must be a JSON object" for a top level of
// another kind.
cppmicroservices::AnyMap jsonToProperties(const nlohmann::json& object);

}  // namespace spfhost
