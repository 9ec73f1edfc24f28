#include "cppmicroservices/AnyMap.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <vector>

namespace cppmicroservices
{
    namespace
    {
        enum class WalkFault
        {
            None,
            MissingKey,
            UnsupportedType,
            BadIndex,
            IndexOutOfRange
        };

        // Parses a vector index segment: optional sign and decimal digits, nothing else.
        bool
        ParseIndex(std::string const& segment, long& index) noexcept
        {
            if (segment.empty())
            {
                return false;
            }
            std::size_t pos = (segment[0] == '-' || segment[0] == '+') ? 1 : 0;
            if (pos == segment.size())
            {
                return false;
            }
            for (std::size_t i = pos; i < segment.size(); ++i)
            {
                if (segment[i] < '0' || segment[i] > '9')
                {
                    return false;
                }
            }
            errno = 0;
            char* end = nullptr;
            long value = std::strtol(segment.c_str(), &end, 10);
            if (errno == ERANGE || value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
            {
                return false;
            }
            index = value;
            return true;
        }

        // One dotted-key walk shared by both AtCompoundKey forms. Returns the value found, or
        // nullptr with `fault` and `segment` describing the first step that failed.
        // `lenientRange` selects the defaulting form's bound (|index| < size) over the
        // throwing form's (size + index for negative indices, then 0 <= index < size).
        Any const*
        Walk(AnyMap const& map, std::string const& key, bool lenientRange, WalkFault& fault,
             std::string& segment) noexcept
        {
            AnyMap const* current = &map;
            std::vector<Any> const* vec = nullptr;
            std::string::size_type start = 0;
            while (true)
            {
                std::string::size_type dot = key.find('.', start);
                try
                {
                    segment = key.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
                }
                catch (...)
                {
                    fault = WalkFault::MissingKey;
                    return nullptr;
                }
                Any const* value = nullptr;
                if (current != nullptr)
                {
                    auto it = current->find(segment);
                    if (it == current->end())
                    {
                        fault = WalkFault::MissingKey;
                        return nullptr;
                    }
                    value = &it->second;
                }
                else
                {
                    long index = 0;
                    if (!ParseIndex(segment, index))
                    {
                        fault = WalkFault::BadIndex;
                        return nullptr;
                    }
                    long const size = static_cast<long>(vec->size());
                    if (lenientRange && (index < 0 ? -index : index) >= size)
                    {
                        fault = WalkFault::IndexOutOfRange;
                        return nullptr;
                    }
                    if (index < 0)
                    {
                        index += size;
                    }
                    if (index < 0 || index >= size)
                    {
                        fault = WalkFault::IndexOutOfRange;
                        return nullptr;
                    }
                    value = &(*vec)[static_cast<std::size_t>(index)];
                }
                if (dot == std::string::npos)
                {
                    fault = WalkFault::None;
                    return value;
                }
                start = dot + 1;
                current = any_cast<AnyMap>(value);
                vec = current ? nullptr : any_cast<std::vector<Any>>(value);
                if (current == nullptr && vec == nullptr)
                {
                    fault = WalkFault::UnsupportedType;
                    return nullptr;
                }
            }
        }
    } // namespace

    AnyMap::AnyMap(std::initializer_list<any_map::value_type> l) : any_map(UNORDERED_MAP_CASEINSENSITIVE_KEYS, l) {}
    AnyMap::AnyMap(map_type type, std::initializer_list<any_map::value_type> l) : any_map(type, l) {}
    AnyMap::AnyMap(ordered_any_map const& m) : any_map(m) {}
    AnyMap::AnyMap(ordered_any_map&& m) : any_map(std::move(m)) {}
    AnyMap::AnyMap(unordered_any_map const& m) : any_map(m) {}
    AnyMap::AnyMap(unordered_any_map&& m) : any_map(std::move(m)) {}
    AnyMap::AnyMap(unordered_any_cimap const& m) : any_map(m) {}
    AnyMap::AnyMap(unordered_any_cimap&& m) : any_map(std::move(m)) {}
    AnyMap::AnyMap(any_map const& m) : any_map(m) {}
    AnyMap::AnyMap(any_map&& m) : any_map(std::move(m)) {}

    any_map::map_type
    AnyMap::GetType() const
    {
        return Kind();
    }

    AnyMap::mapped_type const&
    AnyMap::AtCompoundKey(key_type const& key) const
    {
        WalkFault fault = WalkFault::None;
        std::string segment;
        Any const* value = Walk(*this, key, false, fault, segment);
        switch (fault)
        {
            case WalkFault::None:
                return *value;
            case WalkFault::MissingKey:
                throw std::out_of_range("Key not found: " + segment);
            case WalkFault::UnsupportedType:
                throw std::invalid_argument("Unsupported Any type at '" + segment + "' for dotted get");
            case WalkFault::BadIndex:
                throw std::invalid_argument("Invalid vector index '" + segment + "' for dotted get");
            case WalkFault::IndexOutOfRange:
            default:
                throw std::out_of_range("Vector index " + segment + " out of range for dotted get");
        }
    }

    AnyMap::mapped_type
    AnyMap::AtCompoundKey(key_type const& key, mapped_type defaultValue) const noexcept
    {
        WalkFault fault = WalkFault::None;
        std::string segment;
        Any const* value = Walk(*this, key, true, fault, segment);
        return value ? *value : std::move(defaultValue);
    }

    std::ostream&
    any_value_to_string(std::ostream& os, any_map const& val)
    {
        return detail::AnyMapToString(os, val.begin(), val.end());
    }

    std::ostream&
    any_value_to_string(std::ostream& os, AnyMap const& val)
    {
        return detail::AnyMapToString(os, val.begin(), val.end());
    }

    std::ostream&
    any_value_to_json(std::ostream& os, any_map const& val, uint8_t const increment, int32_t const indent)
    {
        return detail::AnyMapToJson(os, val.begin(), val.end(), increment, indent);
    }

    std::ostream&
    any_value_to_json(std::ostream& os, AnyMap const& val, uint8_t const increment, int32_t const indent)
    {
        return detail::AnyMapToJson(os, val.begin(), val.end(), increment, indent);
    }
} // namespace cppmicroservices
