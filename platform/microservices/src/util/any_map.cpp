#include "cppmicroservices/AnyMap.h"

#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        constexpr char
        AsciiLower(char c) noexcept
        {
            return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        }

        // Calls f(index constant, container) for the container the variant holds.
        template <typename Variant, typename F>
        decltype(auto)
        OnMap(Variant& v, F&& f)
        {
            switch (v.index())
            {
                case any_map::ORDERED_MAP:
                    return f(std::integral_constant<std::size_t, any_map::ORDERED_MAP>(),
                             std::get<any_map::ORDERED_MAP>(v));
                case any_map::UNORDERED_MAP:
                    return f(std::integral_constant<std::size_t, any_map::UNORDERED_MAP>(),
                             std::get<any_map::UNORDERED_MAP>(v));
                default:
                    return f(std::integral_constant<std::size_t, any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS>(),
                             std::get<any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS>(v));
            }
        }

        [[noreturn]] void
        ThrowKeyNotFound(std::string const& key)
        {
            throw std::out_of_range("Key not found: " + key);
        }
    } // namespace

    namespace detail
    {
        std::size_t
        any_map_cihash::operator()(std::string const& key) const noexcept
        {
            // FNV-1a over the lower-cased bytes.
            std::uint64_t h = 14695981039346656037ull;
            for (char c : key)
            {
                h ^= static_cast<unsigned char>(AsciiLower(c));
                h *= 1099511628211ull;
            }
            return static_cast<std::size_t>(h);
        }

        bool
        any_map_ciequal::operator()(std::string const& l, std::string const& r) const noexcept
        {
            if (l.size() != r.size())
            {
                return false;
            }
            for (std::size_t i = 0; i < l.size(); ++i)
            {
                if (AsciiLower(l[i]) != AsciiLower(r[i]))
                {
                    return false;
                }
            }
            return true;
        }
    } // namespace detail

    // ---- iterators ----

    any_map::const_iter::const_iter(iter const& it)
    {
        switch (it.it_.index())
        {
            case ORDERED_MAP:
                it_.emplace<ORDERED_MAP>(std::get<ORDERED_MAP>(it.it_));
                break;
            case UNORDERED_MAP:
                it_.emplace<UNORDERED_MAP>(std::get<UNORDERED_MAP>(it.it_));
                break;
            default:
                it_.emplace<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(std::get<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(it.it_));
        }
    }

    any_map::const_iter::reference
    any_map::const_iter::operator*() const
    {
        return *operator->();
    }

    any_map::const_iter::pointer
    any_map::const_iter::operator->() const
    {
        switch (it_.index())
        {
            case ORDERED_MAP:
                return &*std::get<ORDERED_MAP>(it_);
            case UNORDERED_MAP:
                return &*std::get<UNORDERED_MAP>(it_);
            default:
                return &*std::get<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(it_);
        }
    }

    any_map::const_iter&
    any_map::const_iter::operator++()
    {
        switch (it_.index())
        {
            case ORDERED_MAP:
                ++std::get<ORDERED_MAP>(it_);
                break;
            case UNORDERED_MAP:
                ++std::get<UNORDERED_MAP>(it_);
                break;
            default:
                ++std::get<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(it_);
        }
        return *this;
    }

    any_map::const_iter
    any_map::const_iter::operator++(int)
    {
        const_iter tmp(*this);
        ++*this;
        return tmp;
    }

    any_map::iter::reference
    any_map::iter::operator*() const
    {
        return *operator->();
    }

    any_map::iter::pointer
    any_map::iter::operator->() const
    {
        switch (it_.index())
        {
            case ORDERED_MAP:
                return &*std::get<ORDERED_MAP>(it_);
            case UNORDERED_MAP:
                return &*std::get<UNORDERED_MAP>(it_);
            default:
                return &*std::get<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(it_);
        }
    }

    any_map::iter&
    any_map::iter::operator++()
    {
        switch (it_.index())
        {
            case ORDERED_MAP:
                ++std::get<ORDERED_MAP>(it_);
                break;
            case UNORDERED_MAP:
                ++std::get<UNORDERED_MAP>(it_);
                break;
            default:
                ++std::get<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(it_);
        }
        return *this;
    }

    any_map::iter
    any_map::iter::operator++(int)
    {
        iter tmp(*this);
        ++*this;
        return tmp;
    }

    // ---- the map ----

    any_map::any_map(map_type type, std::initializer_list<value_type> l)
    {
        switch (type)
        {
            case ORDERED_MAP:
                map_.emplace<ORDERED_MAP>(l);
                break;
            case UNORDERED_MAP:
                map_.emplace<UNORDERED_MAP>(l);
                break;
            case UNORDERED_MAP_CASEINSENSITIVE_KEYS:
                map_.emplace<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(l);
                break;
            default:
                throw std::invalid_argument("Unknown any_map type");
        }
    }

    any_map::any_map(ordered_any_map const& m) : map_(std::in_place_index<ORDERED_MAP>, m) {}
    any_map::any_map(ordered_any_map&& m) : map_(std::in_place_index<ORDERED_MAP>, std::move(m)) {}
    any_map::any_map(unordered_any_map const& m) : map_(std::in_place_index<UNORDERED_MAP>, m) {}
    any_map::any_map(unordered_any_map&& m) : map_(std::in_place_index<UNORDERED_MAP>, std::move(m)) {}
    any_map::any_map(unordered_any_cimap const& m) : map_(std::in_place_index<UNORDERED_MAP_CASEINSENSITIVE_KEYS>, m) {}
    any_map::any_map(unordered_any_cimap&& m)
        : map_(std::in_place_index<UNORDERED_MAP_CASEINSENSITIVE_KEYS>, std::move(m))
    {
    }

    any_map::any_map(any_map const& m) = default;
    any_map::any_map(any_map&& m) noexcept = default;
    any_map& any_map::operator=(any_map const& m) = default;
    any_map& any_map::operator=(any_map&& m) noexcept = default;
    any_map::~any_map() = default;

    any_map::map_type
    any_map::Kind() const noexcept
    {
        return static_cast<map_type>(map_.index());
    }

    any_map::iter
    any_map::begin()
    {
        return OnMap(map_, [](auto i, auto& m) { return iter(iter::variant_type(std::in_place_index<i>, m.begin())); });
    }

    any_map::const_iter
    any_map::begin() const
    {
        return cbegin();
    }

    any_map::const_iter
    any_map::cbegin() const
    {
        return OnMap(map_, [](auto i, auto const& m)
                     { return const_iter(const_iter::variant_type(std::in_place_index<i>, m.cbegin())); });
    }

    any_map::iter
    any_map::end()
    {
        return OnMap(map_, [](auto i, auto& m) { return iter(iter::variant_type(std::in_place_index<i>, m.end())); });
    }

    any_map::const_iter
    any_map::end() const
    {
        return cend();
    }

    any_map::const_iter
    any_map::cend() const
    {
        return OnMap(map_, [](auto i, auto const& m)
                     { return const_iter(const_iter::variant_type(std::in_place_index<i>, m.cend())); });
    }

    bool
    any_map::empty() const noexcept
    {
        return OnMap(map_, [](auto, auto const& m) { return m.empty(); });
    }

    any_map::size_type
    any_map::size() const noexcept
    {
        return OnMap(map_, [](auto, auto const& m) { return m.size(); });
    }

    any_map::size_type
    any_map::count(key_type const& key) const
    {
        return OnMap(map_, [&key](auto, auto const& m) { return m.count(key); });
    }

    void
    any_map::clear() noexcept
    {
        OnMap(map_, [](auto, auto& m) { m.clear(); });
    }

    any_map::mapped_type&
    any_map::at(key_type const& key)
    {
        return OnMap(map_,
                     [&key](auto, auto& m) -> mapped_type&
                     {
                         auto it = m.find(key);
                         if (it == m.end())
                         {
                             ThrowKeyNotFound(key);
                         }
                         return it->second;
                     });
    }

    any_map::mapped_type const&
    any_map::at(key_type const& key) const
    {
        return OnMap(map_,
                     [&key](auto, auto const& m) -> mapped_type const&
                     {
                         auto it = m.find(key);
                         if (it == m.end())
                         {
                             ThrowKeyNotFound(key);
                         }
                         return it->second;
                     });
    }

    any_map::mapped_type&
    any_map::operator[](key_type const& key)
    {
        return OnMap(map_, [&key](auto, auto& m) -> mapped_type& { return m[key]; });
    }

    any_map::mapped_type&
    any_map::operator[](key_type&& key)
    {
        return OnMap(map_, [&key](auto, auto& m) -> mapped_type& { return m[std::move(key)]; });
    }

    std::pair<any_map::iterator, bool>
    any_map::insert(value_type const& value)
    {
        return OnMap(map_,
                     [&value](auto i, auto& m)
                     {
                         auto r = m.insert(value);
                         return std::make_pair(iter(iter::variant_type(std::in_place_index<i>, r.first)), r.second);
                     });
    }

    any_map::const_iterator
    any_map::find(key_type const& key) const
    {
        return OnMap(map_, [&key](auto i, auto const& m)
                     { return const_iter(const_iter::variant_type(std::in_place_index<i>, m.find(key))); });
    }

    any_map::size_type
    any_map::erase(key_type const& key)
    {
        return OnMap(map_, [&key](auto, auto& m) { return m.erase(key); });
    }

    bool
    any_map::operator==(any_map const& rhs) const
    {
        // variant's operator== is false for different alternatives, which is what makes maps of
        // different kinds unequal.
        return map_ == rhs.map_;
    }

    bool
    any_map::operator!=(any_map const& rhs) const
    {
        return !(*this == rhs);
    }
} // namespace cppmicroservices
