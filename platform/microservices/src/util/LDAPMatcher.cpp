#include "LDAPMatcher.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <list>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace cppmicroservices
{
    namespace
    {
        bool
        IsSpace(char c) noexcept
        {
            return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
        }

        char
        AsciiLower(char c) noexcept
        {
            return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        }

        bool
        CaseInsensitiveLess(std::string const* l, std::string const* r) noexcept
        {
            return std::lexicographical_compare(l->begin(), l->end(), r->begin(), r->end(),
                                                [](char a, char b) { return AsciiLower(a) < AsciiLower(b); });
        }

        // The substring pattern: pieces[0] starts s, pieces.back() ends s, the ones between
        // occur in order without overlapping.
        bool
        MatchSubstring(std::vector<std::string> const& pieces, std::string_view s) noexcept
        {
            std::string_view const head = pieces.front();
            std::string_view const tail = pieces.back();
            if (s.size() < head.size() + tail.size() || s.substr(0, head.size()) != head
                || s.substr(s.size() - tail.size()) != tail)
            {
                return false;
            }
            std::string_view middle = s.substr(head.size(), s.size() - head.size() - tail.size());
            for (std::size_t i = 1; i + 1 < pieces.size(); ++i)
            {
                std::size_t const at = middle.find(pieces[i]);
                if (at == std::string_view::npos)
                {
                    return false;
                }
                middle.remove_prefix(at + pieces[i].size());
            }
            return true;
        }

        // `s` equals `approx` once whitespace is dropped and case ignored.
        bool
        MatchApprox(std::string const& approx, std::string_view s) noexcept
        {
            std::size_t j = 0;
            for (char c : s)
            {
                if (IsSpace(c))
                {
                    continue;
                }
                if (j == approx.size() || AsciiLower(c) != approx[j])
                {
                    return false;
                }
                ++j;
            }
            return j == approx.size();
        }

        bool
        CompareString(LDAPNode const& leaf, std::string_view s) noexcept
        {
            switch (leaf.op)
            {
                case LDAPOp::Equal:
                    return s == leaf.value;
                case LDAPOp::Substring:
                    return MatchSubstring(leaf.pieces, s);
                case LDAPOp::Approx:
                    return MatchApprox(leaf.approx, s);
                case LDAPOp::LessEq:
                    return s.compare(leaf.value) <= 0;
                case LDAPOp::GreaterEq:
                    return s.compare(leaf.value) >= 0;
                default:
                    return false;
            }
        }

        template <typename T>
        bool
        CompareSigned(LDAPNode const& leaf, T v) noexcept
        {
            if (!leaf.hasSigned)
            {
                return false;
            }
            long long const x = static_cast<long long>(v);
            switch (leaf.op)
            {
                case LDAPOp::Equal:
                case LDAPOp::Approx:
                    return x == leaf.signedValue;
                case LDAPOp::LessEq:
                    return x <= leaf.signedValue;
                case LDAPOp::GreaterEq:
                    return x >= leaf.signedValue;
                default:
                    return false;
            }
        }

        template <typename T>
        bool
        CompareUnsigned(LDAPNode const& leaf, T v) noexcept
        {
            unsigned long long const x = static_cast<unsigned long long>(v);
            if (!leaf.hasUnsigned)
            {
                // A negative filter value lies below every unsigned value.
                bool const negative = leaf.hasSigned && leaf.signedValue < 0;
                return negative && leaf.op == LDAPOp::GreaterEq;
            }
            switch (leaf.op)
            {
                case LDAPOp::Equal:
                case LDAPOp::Approx:
                    return x == leaf.unsignedValue;
                case LDAPOp::LessEq:
                    return x <= leaf.unsignedValue;
                case LDAPOp::GreaterEq:
                    return x >= leaf.unsignedValue;
                default:
                    return false;
            }
        }

        template <typename T>
        bool
        CompareFloating(LDAPNode const& leaf, T v) noexcept
        {
            if (!leaf.hasDouble)
            {
                return false;
            }
            T const x = static_cast<T>(leaf.doubleValue);
            switch (leaf.op)
            {
                case LDAPOp::Equal:
                case LDAPOp::Approx:
                    return std::fabs(v - x) < std::numeric_limits<T>::epsilon();
                case LDAPOp::LessEq:
                    return v <= x;
                case LDAPOp::GreaterEq:
                    return v >= x;
                default:
                    return false;
            }
        }

        bool
        CompareBool(LDAPNode const& leaf, bool v) noexcept
        {
            if (leaf.op != LDAPOp::Equal && leaf.op != LDAPOp::Approx)
            {
                return false;
            }
            return leaf.boolValue == (v ? 1 : 0);
        }

        template <typename Container>
        bool
        AnyStringMatches(LDAPNode const& leaf, Container const& values) noexcept
        {
            for (std::string const& s : values)
            {
                if (CompareString(leaf, s))
                {
                    return true;
                }
            }
            return false;
        }

        // Finds `key` in `properties` by the requested key rules.
        Any const*
        Lookup(AnyMap const& properties, std::string const& key, bool caseSensitiveKeys) noexcept
        {
            auto const it = properties.find(key);
            if (it != properties.end())
            {
                if (caseSensitiveKeys && properties.GetType() == any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS
                    && it->first != key)
                {
                    return nullptr;
                }
                return &it->second;
            }
            if (caseSensitiveKeys || properties.GetType() == any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS)
            {
                return nullptr;
            }
            detail::any_map_ciequal const equal;
            for (auto const& entry : properties)
            {
                if (equal(entry.first, key))
                {
                    return &entry.second;
                }
            }
            return nullptr;
        }
    } // namespace

    bool
    LDAPMatcher::Compare(LDAPNode const& leaf, Any const& value) noexcept
    {
        if (value.Empty())
        {
            return false;
        }
        if (leaf.op == LDAPOp::Present)
        {
            return true;
        }
        std::type_info const& type = value.Type();
        if (type == typeid(std::string))
        {
            return CompareString(leaf, *unsafe_any_cast<std::string>(&value));
        }
        if (type == typeid(std::vector<std::string>))
        {
            return AnyStringMatches(leaf, *unsafe_any_cast<std::vector<std::string>>(&value));
        }
        if (type == typeid(int))
        {
            return CompareSigned(leaf, *unsafe_any_cast<int>(&value));
        }
        if (type == typeid(long))
        {
            return CompareSigned(leaf, *unsafe_any_cast<long>(&value));
        }
        if (type == typeid(bool))
        {
            return CompareBool(leaf, *unsafe_any_cast<bool>(&value));
        }
        if (type == typeid(std::vector<Any>))
        {
            for (Any const& element : *unsafe_any_cast<std::vector<Any>>(&value))
            {
                if (Compare(leaf, element))
                {
                    return true;
                }
            }
            return false;
        }
        if (type == typeid(char const*))
        {
            char const* s = *unsafe_any_cast<char const*>(&value);
            return s != nullptr && CompareString(leaf, std::string_view(s));
        }
        if (type == typeid(char))
        {
            return CompareString(leaf, std::string_view(unsafe_any_cast<char>(&value), 1));
        }
        if (type == typeid(std::list<std::string>))
        {
            return AnyStringMatches(leaf, *unsafe_any_cast<std::list<std::string>>(&value));
        }
        if (type == typeid(double))
        {
            return CompareFloating(leaf, *unsafe_any_cast<double>(&value));
        }
        if (type == typeid(float))
        {
            return CompareFloating(leaf, *unsafe_any_cast<float>(&value));
        }
        if (type == typeid(long long))
        {
            return CompareSigned(leaf, *unsafe_any_cast<long long>(&value));
        }
        if (type == typeid(short))
        {
            return CompareSigned(leaf, *unsafe_any_cast<short>(&value));
        }
        if (type == typeid(signed char))
        {
            return CompareSigned(leaf, *unsafe_any_cast<signed char>(&value));
        }
        if (type == typeid(unsigned int))
        {
            return CompareUnsigned(leaf, *unsafe_any_cast<unsigned int>(&value));
        }
        if (type == typeid(unsigned long))
        {
            return CompareUnsigned(leaf, *unsafe_any_cast<unsigned long>(&value));
        }
        if (type == typeid(unsigned long long))
        {
            return CompareUnsigned(leaf, *unsafe_any_cast<unsigned long long>(&value));
        }
        if (type == typeid(unsigned short))
        {
            return CompareUnsigned(leaf, *unsafe_any_cast<unsigned short>(&value));
        }
        if (type == typeid(unsigned char))
        {
            return CompareUnsigned(leaf, *unsafe_any_cast<unsigned char>(&value));
        }
        return false;
    }

    bool
    LDAPMatcher::Evaluate(LDAPNode const& node, AnyMap const& properties, bool caseSensitiveKeys) noexcept
    {
        switch (node.op)
        {
            case LDAPOp::And:
                for (LDAPNode const& child : node.children)
                {
                    if (!Evaluate(child, properties, caseSensitiveKeys))
                    {
                        return false;
                    }
                }
                return true;
            case LDAPOp::Or:
                for (LDAPNode const& child : node.children)
                {
                    if (Evaluate(child, properties, caseSensitiveKeys))
                    {
                        return true;
                    }
                }
                return false;
            case LDAPOp::Not:
                return !Evaluate(node.children.front(), properties, caseSensitiveKeys);
            default:
            {
                Any const* value = Lookup(properties, node.key, caseSensitiveKeys);
                return value != nullptr && Compare(node, *value);
            }
        }
    }

    void
    LDAPMatcher::RejectCaseVariants(AnyMap const& properties)
    {
        if (properties.GetType() == any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS || properties.size() < 2)
        {
            return;
        }
        detail::any_map_ciequal const equal;
        constexpr std::size_t pairwiseLimit = 16;
        if (properties.size() <= pairwiseLimit)
        {
            // Small maps, the common case: compare pairs rather than allocate.
            std::string const* keys[pairwiseLimit];
            std::size_t n = 0;
            for (auto const& entry : properties)
            {
                for (std::size_t i = 0; i < n; ++i)
                {
                    if (equal(*keys[i], entry.first))
                    {
                        throw std::runtime_error("Properties contain case variants of the key: " + entry.first);
                    }
                }
                keys[n++] = &entry.first;
            }
            return;
        }
        std::vector<std::string const*> keys;
        keys.reserve(properties.size());
        for (auto const& entry : properties)
        {
            keys.push_back(&entry.first);
        }
        std::sort(keys.begin(), keys.end(), CaseInsensitiveLess);
        for (std::size_t i = 1; i < keys.size(); ++i)
        {
            if (equal(*keys[i - 1], *keys[i]))
            {
                throw std::runtime_error("Properties contain case variants of the key: " + *keys[i]);
            }
        }
    }
} // namespace cppmicroservices
