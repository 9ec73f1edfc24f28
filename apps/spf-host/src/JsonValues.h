#pragma once

#include "agent/spf/core/GenericPayload.h"

#include <nlohmann/json.hpp>

#include <string>
#include <typeindex>

namespace spfhost {

// The console's values: JSON on the user's side, the C++ types of the serialisation catalogue on
// the call's side, by the names method signatures give them: boolean, int, long, float, double,
// string, bytes (a JSON array of byte values, or a string taken as its bytes), uuid (its text),
// array<T>, map<T> (a JSON object), optional<T> (null or T) of those scalars, array<map<string>>,
// and void (results only).
class JsonValues {
public:
    // Whether `typeName` is one of the names above.
    static bool knows(const std::string& typeName);
    // The C++ type of `typeName`; typeid(void) for "void". Throws std::invalid_argument
    // ("Unknown type '<name>'") for others.
    static std::type_index typeOf(const std::string& typeName);
    // Appends `value` to `payload` as `typeName`. Throws std::invalid_argument
    // ("expected <name>, got <JSON kind>", "<n> is out of the range of int", ...).
    static void append(agent::spf::core::GenericPayload& payload, const std::string& typeName,
                       const nlohmann::json& value);
    // Slot `index` of `payload`, which holds a `typeName`, as JSON.
    static nlohmann::json read(const agent::spf::core::GenericPayload& payload, std::size_t index,
                               const std::string& typeName);
};

}  // namespace spfhost
