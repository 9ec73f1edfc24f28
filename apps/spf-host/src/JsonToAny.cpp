#include "JsonToAny.h"

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace spfhost {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;

namespace {

Any toAny(const nlohmann::json& value) {
    switch (value.type()) {
        case nlohmann::json::value_t::object: {
            AnyMap map(AnyMap::UNORDERED_MAP);
            for (const auto& [key, item] : value.items()) {
                map.emplace(key, toAny(item));
            }
            return Any(std::move(map));
        }
        case nlohmann::json::value_t::array: {
            std::vector<Any> items;
            for (const auto& item : value) {
                items.push_back(toAny(item));
            }
            return Any(std::move(items));
        }
        case nlohmann::json::value_t::string:
            return Any(value.get<std::string>());
        case nlohmann::json::value_t::boolean:
            return Any(value.get<bool>());
        case nlohmann::json::value_t::number_integer:
        case nlohmann::json::value_t::number_unsigned: {
            if (value.is_number_unsigned() && value.get<unsigned long long>() >
                                                  static_cast<unsigned long long>(std::numeric_limits<long long>::max())) {
                throw std::invalid_argument("the number " + value.dump() + " is too large");
            }
            const auto number = value.get<long long>();
            if (number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max()) {
                return Any(static_cast<int>(number));
            }
            return Any(number);
        }
        case nlohmann::json::value_t::number_float:
            return Any(value.get<double>());
        default:
            throw std::invalid_argument("null is not a property value");
    }
}

}  // namespace

AnyMap jsonToProperties(const nlohmann::json& object) {
    if (!object.is_object()) {
        throw std::invalid_argument("a configuration must be a JSON object");
    }
    return cppmicroservices::any_cast<AnyMap>(toAny(object));
}

}  // namespace spfhost
