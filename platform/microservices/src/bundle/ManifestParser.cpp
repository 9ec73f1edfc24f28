#include "bundle/ManifestParser.h"

#include "cppmicroservices/Constants.h"

#include "util/JsonNumber.h"

#include <nlohmann/json.hpp>

#include <cctype>
#include <stdexcept>
#include <vector>

namespace cppmicroservices
{
    namespace
    {
        std::string
        Prefix(std::string const& location)
        {
            return "Failed to install bundle library at location " + location + ": ";
        }

        // Rejects deep nesting before the parser and the conversion below
        // recurse into it.
        bool
        NestsTooDeep(std::string const& json)
        {
            int depth = 0;
            bool inString = false;
            bool escaped = false;
            for (char c : json)
            {
                if (inString)
                {
                    if (escaped)
                    {
                        escaped = false;
                    }
                    else if (c == '\\')
                    {
                        escaped = true;
                    }
                    else if (c == '"')
                    {
                        inString = false;
                    }
                    continue;
                }
                if (c == '"')
                {
                    inString = true;
                }
                else if (c == '{' || c == '[')
                {
                    if (++depth > ManifestParser::kMaxDepth)
                    {
                        return true;
                    }
                }
                else if (c == '}' || c == ']')
                {
                    --depth;
                }
            }
            return false;
        }

        Any ToAny(nlohmann::json const& value, std::string const& location);

        AnyMap
        ToAnyMap(nlohmann::json const& object, std::string const& location)
        {
            AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
            for (auto it = object.begin(); it != object.end(); ++it)
            {
                if (it.value().is_null())
                {
                    continue;
                }
                if (map.count(it.key()) != 0)
                {
                    throw std::runtime_error(Prefix(location) + "the manifest has keys that differ only in case: '"
                                             + it.key() + "'");
                }
                map.emplace(it.key(), ToAny(it.value(), location));
            }
            return map;
        }

        Any
        ToAny(nlohmann::json const& value, std::string const& location)
        {
            using json = nlohmann::json;
            switch (value.type())
            {
                case json::value_t::object:
                    return Any(ToAnyMap(value, location));
                case json::value_t::array:
                {
                    std::vector<Any> items;
                    items.reserve(value.size());
                    for (auto const& item : value)
                    {
                        items.push_back(item.is_null() ? Any() : ToAny(item, location));
                    }
                    return Any(std::move(items));
                }
                case json::value_t::string:
                {
                    std::string text = value.get<std::string>();
                    if (!text.empty() && text.front() == '%')
                    {
                        text.erase(0, 1); // a localisation placeholder marker
                    }
                    return Any(std::move(text));
                }
                case json::value_t::boolean:
                    return Any(value.get<bool>());
                case json::value_t::number_integer:
                case json::value_t::number_unsigned:
                case json::value_t::number_float:
                    return cppmicroservices::detail::JsonNumberToAny(value);
                default:
                    return Any();
            }
        }

        bool
        IsIdentifier(std::string const& name)
        {
            if (name.empty() || !(std::isalpha(static_cast<unsigned char>(name[0])) || name[0] == '_'))
            {
                return false;
            }
            for (char c : name)
            {
                if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_'))
                {
                    return false;
                }
            }
            return true;
        }
    } // namespace

    AnyMap
    ManifestParser::Parse(std::string const& json, std::string const& location)
    {
        if (NestsTooDeep(json))
        {
            throw std::runtime_error(Prefix(location) + "the manifest nests deeper than "
                                     + std::to_string(kMaxDepth) + " levels");
        }
        nlohmann::json document;
        try
        {
            document = nlohmann::json::parse(json);
        }
        catch (nlohmann::json::parse_error const& e)
        {
            throw std::runtime_error(Prefix(location) + "the manifest is not valid JSON (error at byte "
                                     + std::to_string(e.byte) + ")");
        }
        if (!document.is_object())
        {
            throw std::runtime_error(Prefix(location) + "the manifest is not a JSON object");
        }
        return ToAnyMap(document, location);
    }

    ManifestParser::Identity
    ManifestParser::Validate(AnyMap const& headers, std::string const& location)
    {
        auto bsn = headers.find(Constants::BUNDLE_SYMBOLICNAME);
        if (bsn == headers.end())
        {
            throw std::invalid_argument(Prefix(location) + "the manifest has no bundle.symbolic_name");
        }
        if (bsn->second.Type() != typeid(std::string))
        {
            throw std::invalid_argument(Prefix(location) + "bundle.symbolic_name is not a string");
        }
        std::string const& name = ref_any_cast<std::string>(bsn->second);
        if (!IsIdentifier(name))
        {
            throw std::invalid_argument(Prefix(location) + "bundle.symbolic_name '" + name
                                        + "' is not a valid C identifier");
        }

        BundleVersion version = BundleVersion::EmptyVersion();
        auto v = headers.find(Constants::BUNDLE_VERSION);
        if (v != headers.end())
        {
            if (v->second.Type() != typeid(std::string))
            {
                throw std::invalid_argument(Prefix(location) + "bundle.version is not a string");
            }
            std::string const& text = ref_any_cast<std::string>(v->second);
            try
            {
                version = BundleVersion::ParseVersion(text);
            }
            catch (std::invalid_argument const&)
            {
                throw std::invalid_argument(Prefix(location) + "bundle.version '" + text + "' is not a valid version");
            }
        }
        return Identity{ name, version };
    }
} // namespace cppmicroservices
