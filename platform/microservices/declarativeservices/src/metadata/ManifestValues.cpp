#include "metadata/ManifestValues.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace cppmicroservices::ds
{
    namespace
    {
        std::string
        Lower(std::string text)
        {
            std::transform(text.begin(),
                           text.end(),
                           text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
            return text;
        }
    } // namespace

    Any const*
    ManifestValues::Find(AnyMap const& map, std::string const& key)
    {
        auto const found = map.find(key);
        return found == map.end() ? nullptr : &found->second;
    }

    bool
    ManifestValues::Bool(Any const& value, std::string const& error)
    {
        if (auto const* b = any_cast<bool>(&value))
        {
            return *b;
        }
        throw std::invalid_argument(error);
    }

    std::string
    ManifestValues::NonEmptyString(Any const& value, std::string const& error)
    {
        auto const* s = any_cast<std::string>(&value);
        if (s == nullptr || s->empty())
        {
            throw std::invalid_argument(error);
        }
        return *s;
    }

    AnyMap const&
    ManifestValues::Map(Any const& value, std::string const& error)
    {
        if (auto const* map = any_cast<AnyMap>(&value))
        {
            return *map;
        }
        throw std::invalid_argument(error);
    }

    std::vector<Any> const&
    ManifestValues::Array(Any const& value, std::string const& error)
    {
        if (auto const* array = any_cast<std::vector<Any>>(&value))
        {
            return *array;
        }
        throw std::invalid_argument(error);
    }

    std::vector<std::string>
    ManifestValues::StringArray(Any const& value, bool allowEmpty, std::string const& error)
    {
        auto const& array = Array(value, error);
        if (array.empty() && !allowEmpty)
        {
            throw std::invalid_argument(error);
        }
        std::vector<std::string> strings;
        strings.reserve(array.size());
        for (auto const& element : array)
        {
            strings.push_back(NonEmptyString(element, error));
        }
        return strings;
    }

    std::string
    ManifestValues::Choice(Any const& value, std::initializer_list<char const*> choices, std::string const& error)
    {
        auto const* s = any_cast<std::string>(&value);
        if (s != nullptr)
        {
            auto const lowered = Lower(*s);
            for (char const* choice : choices)
            {
                if (lowered == choice)
                {
                    return choice;
                }
            }
        }
        throw std::invalid_argument(error);
    }

    std::string
    ManifestValues::WithoutLeadingScope(std::string const& name)
    {
        return name.compare(0, 2, "::") == 0 ? name.substr(2) : name;
    }
} // namespace cppmicroservices::ds
