#include "JsonValues.h"

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <vector>

namespace spfhost {

using agent::spf::core::GenericPayload;
using nlohmann::json;

namespace {

[[noreturn]] void refuse(const std::string& expected, const json& value) {
    throw std::invalid_argument("expected " + expected + ", got " + value.dump());
}

template <class T>
struct Convert;

template <>
struct Convert<bool> {
    static bool from(const json& v, const std::string& name) {
        if (!v.is_boolean()) refuse(name, v);
        return v.get<bool>();
    }
    static json to(bool v) { return v; }
};

template <class Integer>
struct ConvertInteger {
    static Integer from(const json& v, const std::string& name) {
        if (!v.is_number_integer()) refuse(name, v);
        if (v.is_number_unsigned() ? v.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<Integer>::max())
                                   : (v.get<std::int64_t>() < std::numeric_limits<Integer>::min() ||
                                      v.get<std::int64_t>() > std::numeric_limits<Integer>::max())) {
            throw std::invalid_argument(v.dump() + " is out of the range of " + name);
        }
        return static_cast<Integer>(v.get<std::int64_t>());
    }
    static json to(Integer v) { return v; }
};
template <>
struct Convert<std::int32_t> : ConvertInteger<std::int32_t> {};
template <>
struct Convert<std::int64_t> : ConvertInteger<std::int64_t> {};

template <class Real>
struct ConvertReal {
    static Real from(const json& v, const std::string& name) {
        if (!v.is_number()) refuse(name, v);
        return static_cast<Real>(v.get<double>());
    }
    // JSON has no NaN or infinities: they are shown as their names.
    static json to(Real v) { return std::isfinite(v) ? json(v) : json(std::to_string(v)); }
};
template <>
struct Convert<float> : ConvertReal<float> {};
template <>
struct Convert<double> : ConvertReal<double> {};

template <>
struct Convert<std::string> {
    static std::string from(const json& v, const std::string& name) {
        if (!v.is_string()) refuse(name, v);
        return v.get<std::string>();
    }
    static json to(const std::string& v) { return v; }
};

template <>
struct Convert<std::vector<std::uint8_t>> {
    static std::vector<std::uint8_t> from(const json& v, const std::string& name) {
        if (v.is_string()) {
            const auto text = v.get<std::string>();
            return {text.begin(), text.end()};
        }
        if (!v.is_array()) refuse(name, v);
        std::vector<std::uint8_t> bytes;
        for (const auto& item : v) {
            if (!item.is_number_unsigned() || item.get<std::uint64_t>() > 255) refuse("a byte value", item);
            bytes.push_back(static_cast<std::uint8_t>(item.get<std::uint64_t>()));
        }
        return bytes;
    }
    static json to(const std::vector<std::uint8_t>& v) { return json(v); }
};

template <>
struct Convert<boost::uuids::uuid> {
    static boost::uuids::uuid from(const json& v, const std::string& name) {
        if (!v.is_string()) refuse(name, v);
        try {
            return boost::uuids::string_generator()(v.get<std::string>());
        } catch (const std::exception&) {
            refuse(name, v);
        }
    }
    static json to(const boost::uuids::uuid& v) { return boost::uuids::to_string(v); }
};

template <class T>
struct Convert<std::vector<T>> {
    static std::vector<T> from(const json& v, const std::string& name) {
        if (!v.is_array()) refuse(name, v);
        std::vector<T> items;
        for (const auto& item : v) {
            items.push_back(Convert<T>::from(item, name.substr(6, name.size() - 7)));
        }
        return items;
    }
    static json to(const std::vector<T>& v) {
        json items = json::array();
        for (const auto& item : v) {
            items.push_back(Convert<T>::to(item));
        }
        return items;
    }
};

template <class T>
struct Convert<std::map<std::string, T>> {
    static std::map<std::string, T> from(const json& v, const std::string& name) {
        if (!v.is_object()) refuse(name, v);
        std::map<std::string, T> items;
        for (const auto& [key, item] : v.items()) {
            items.emplace(key, Convert<T>::from(item, name.substr(4, name.size() - 5)));
        }
        return items;
    }
    static json to(const std::map<std::string, T>& v) {
        json items = json::object();
        for (const auto& [key, item] : v) {
            items[key] = Convert<T>::to(item);
        }
        return items;
    }
};

template <class T>
struct Convert<std::optional<T>> {
    static std::optional<T> from(const json& v, const std::string& name) {
        if (v.is_null()) return std::nullopt;
        return Convert<T>::from(v, name.substr(9, name.size() - 10));
    }
    static json to(const std::optional<T>& v) { return v ? Convert<T>::to(*v) : json(nullptr); }
};

struct Entry {
    std::type_index type;
    std::function<void(GenericPayload&, const json&, const std::string&)> append;
    std::function<json(const GenericPayload&, std::size_t)> read;
};

template <class T>
Entry entry() {
    return {typeid(T), [](GenericPayload& p, const json& v, const std::string& name) { p.push_back(Convert<T>::from(v, name)); },
            [](const GenericPayload& p, std::size_t i) { return Convert<T>::to(p.get<T>(i)); }};
}

template <class S>
void addWithCollections(std::map<std::string, Entry>& table, const std::string& name) {
    table.emplace(name, entry<S>());
    table.emplace("array<" + name + ">", entry<std::vector<S>>());
    table.emplace("map<" + name + ">", entry<std::map<std::string, S>>());
    table.emplace("optional<" + name + ">", entry<std::optional<S>>());
}

const std::map<std::string, Entry>& table() {
    static const auto* entries = [] {
        auto* t = new std::map<std::string, Entry>();
        addWithCollections<bool>(*t, "boolean");
        addWithCollections<std::int32_t>(*t, "int");
        addWithCollections<std::int64_t>(*t, "long");
        addWithCollections<float>(*t, "float");
        addWithCollections<double>(*t, "double");
        addWithCollections<std::string>(*t, "string");
        addWithCollections<std::vector<std::uint8_t>>(*t, "bytes");
        addWithCollections<boost::uuids::uuid>(*t, "uuid");
        t->emplace("array<map<string>>", entry<std::vector<std::map<std::string, std::string>>>());
        return t;
    }();
    return *entries;
}

const Entry& entryNamed(const std::string& typeName) {
    const auto found = table().find(typeName);
    if (found == table().end()) {
        throw std::invalid_argument("Unknown type '" + typeName + "'");
    }
    return found->second;
}

}  // namespace

bool JsonValues::knows(const std::string& typeName) {
    return typeName == "void" || table().count(typeName) != 0;
}

std::type_index JsonValues::typeOf(const std::string& typeName) {
    return typeName == "void" ? std::type_index(typeid(void)) : entryNamed(typeName).type;
}

void JsonValues::append(GenericPayload& payload, const std::string& typeName, const json& value) {
    entryNamed(typeName).append(payload, value, typeName);
}

json JsonValues::read(const GenericPayload& payload, std::size_t index, const std::string& typeName) {
    return entryNamed(typeName).read(payload, index);
}

}  // namespace spfhost
