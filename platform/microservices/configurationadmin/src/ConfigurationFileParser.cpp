#include "ConfigurationFileParser.h"

#include "util/JsonNumber.h"

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <vector>

namespace cppmicroservices::cmimpl
{
    namespace
    {
        using json = nlohmann::json;

        // Thrown from the parser callback to stop at the first level too deep.
        struct TooDeep
        {
        };

        Any ToAny(json const& value);

        AnyMap
        ToAnyMap(json const& object)
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
                    throw std::runtime_error("keys that differ only in case: '" + it.key() + "'");
                }
                map.emplace(it.key(), ToAny(it.value()));
            }
            return map;
        }

        Any
        ToAny(json const& value)
        {
            switch (value.type())
            {
                case json::value_t::object:
                    return Any(ToAnyMap(value));
                case json::value_t::array:
                {
                    std::vector<Any> items;
                    items.reserve(value.size());
                    for (auto const& item : value)
                    {
                        items.push_back(ToAny(item));
                    }
                    return Any(std::move(items));
                }
                case json::value_t::string:
                    return Any(value.get<std::string>());
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

        // "[json.exception.parse_error.101] parse error at ..." without the tag.
        std::string
        WithoutTag(char const* message)
        {
            std::string text(message);
            if (!text.empty() && text.front() == '[')
            {
                auto const end = text.find("] ");
                if (end != std::string::npos)
                {
                    text.erase(0, end + 2);
                }
            }
            return text;
        }
    } // namespace

    AnyMap
    ConfigurationFileParser::Parse(std::string const& text)
    {
        json document;
        try
        {
            document = json::parse(text,
                                   [](int depth, json::parse_event_t event, json&)
                                   {
                                       if ((event == json::parse_event_t::object_start
                                            || event == json::parse_event_t::array_start)
                                           && depth >= kMaxDepth)
                                       {
                                           throw TooDeep{};
                                       }
                                       return true;
                                   });
        }
        catch (TooDeep const&)
        {
            throw std::runtime_error("nesting deeper than " + std::to_string(kMaxDepth) + " levels");
        }
        catch (json::exception const& e)
        {
            throw std::runtime_error("not valid JSON: " + WithoutTag(e.what()));
        }
        if (!document.is_object())
        {
            throw std::runtime_error("the top-level value is not a JSON object");
        }
        return ToAnyMap(document);
    }
} // namespace cppmicroservices::cmimpl
