// A string-keyed map of Any values in one of three flavours: ordered, unordered, or unordered
// with case-insensitive keys. Properties, manifests and configurations are all AnyMaps.
//
// Thread safety: a plain value. Concurrent const access is safe; mutation needs external
// synchronisation. Iterators follow the rules of the underlying standard container.
#ifndef CPPMICROSERVICES_ANYMAP_H
#define CPPMICROSERVICES_ANYMAP_H

#include "cppmicroservices/Any.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>

namespace cppmicroservices
{
    namespace detail
    {
        // Hash on the ASCII-lower-cased key; never allocates.
        struct US_Framework_EXPORT any_map_cihash
        {
            std::size_t operator()(std::string const& key) const noexcept;
        };

        // Key equality ignoring ASCII case; never allocates.
        struct US_Framework_EXPORT any_map_ciequal
        {
            bool operator()(std::string const& l, std::string const& r) const noexcept;
        };
    } // namespace detail

    using ordered_any_map = std::map<std::string, Any>;
    using unordered_any_map = std::unordered_map<std::string, Any>;
    using unordered_any_cimap
        = std::unordered_map<std::string, Any, detail::any_map_cihash, detail::any_map_ciequal>;

    class US_Framework_EXPORT any_map
    {
      public:
        enum map_type : uint8_t
        {
            ORDERED_MAP,
            UNORDERED_MAP,
            UNORDERED_MAP_CASEINSENSITIVE_KEYS
        };

        using key_type = std::string;
        using mapped_type = Any;
        using value_type = std::pair<key_type const, mapped_type>;
        using size_type = std::size_t;
        using difference_type = std::ptrdiff_t;
        using reference = value_type&;
        using const_reference = value_type const&;
        using pointer = value_type*;
        using const_pointer = value_type const*;

        class iter;

        // Forward iterator over the entries; order is the container's (sorted for
        // ORDERED_MAP, unspecified otherwise).
        class const_iter
        {
          public:
            using iterator_category = std::forward_iterator_tag;
            using value_type = any_map::value_type;
            using difference_type = any_map::difference_type;
            using pointer = any_map::const_pointer;
            using reference = any_map::const_reference;

            const_iter() = default;
            const_iter(iter const& it);

            reference operator*() const;
            pointer operator->() const;
            const_iter& operator++();
            const_iter operator++(int);

            friend bool
            operator==(const_iter const& l, const_iter const& r)
            {
                return l.it_ == r.it_;
            }
            friend bool
            operator!=(const_iter const& l, const_iter const& r)
            {
                return !(l == r);
            }

          private:
            friend class any_map;
            using variant_type = std::variant<ordered_any_map::const_iterator, unordered_any_map::const_iterator,
                                              unordered_any_cimap::const_iterator>;
            explicit const_iter(variant_type it) : it_(std::move(it)) {}
            variant_type it_;
        };

        class iter
        {
          public:
            using iterator_category = std::forward_iterator_tag;
            using value_type = any_map::value_type;
            using difference_type = any_map::difference_type;
            using pointer = any_map::pointer;
            using reference = any_map::reference;

            iter() = default;

            reference operator*() const;
            pointer operator->() const;
            iter& operator++();
            iter operator++(int);

            friend bool
            operator==(iter const& l, iter const& r)
            {
                return l.it_ == r.it_;
            }
            friend bool
            operator!=(iter const& l, iter const& r)
            {
                return !(l == r);
            }

          private:
            friend class any_map;
            friend class const_iter;
            using variant_type = std::variant<ordered_any_map::iterator, unordered_any_map::iterator,
                                              unordered_any_cimap::iterator>;
            explicit iter(variant_type it) : it_(std::move(it)) {}
            variant_type it_;
        };

        using iterator = iter;
        using const_iterator = const_iter;

        // An empty map (or one holding `l`) of the given kind. Later duplicates in `l` are
        // ignored, as with the standard containers.
        any_map(map_type type, std::initializer_list<value_type> l = {});
        any_map(ordered_any_map const& m);
        any_map(ordered_any_map&& m);
        any_map(unordered_any_map const& m);
        any_map(unordered_any_map&& m);
        any_map(unordered_any_cimap const& m);
        any_map(unordered_any_cimap&& m);

        any_map(any_map const& m);
        any_map(any_map&& m) noexcept;
        any_map& operator=(any_map const& m);
        any_map& operator=(any_map&& m) noexcept;
        ~any_map();

        iter begin();
        const_iter begin() const;
        const_iter cbegin() const;
        iter end();
        const_iter end() const;
        const_iter cend() const;

        bool empty() const noexcept;
        size_type size() const noexcept;
        size_type count(key_type const& key) const;
        void clear() noexcept;

        // Throws std::out_of_range("Key not found: <key>") for a missing key.
        mapped_type& at(key_type const& key);
        mapped_type const& at(key_type const& key) const;

        mapped_type& operator[](key_type const& key);
        mapped_type& operator[](key_type&& key);

        std::pair<iterator, bool> insert(value_type const& value);

        template <class... Args>
        std::pair<iterator, bool>
        emplace(Args&&... args)
        {
            switch (map_.index())
            {
                case ORDERED_MAP:
                {
                    auto r = std::get<ORDERED_MAP>(map_).emplace(std::forward<Args>(args)...);
                    return { iter(iter::variant_type(std::in_place_index<ORDERED_MAP>, r.first)), r.second };
                }
                case UNORDERED_MAP:
                {
                    auto r = std::get<UNORDERED_MAP>(map_).emplace(std::forward<Args>(args)...);
                    return { iter(iter::variant_type(std::in_place_index<UNORDERED_MAP>, r.first)), r.second };
                }
                default:
                {
                    auto r = std::get<UNORDERED_MAP_CASEINSENSITIVE_KEYS>(map_).emplace(std::forward<Args>(args)...);
                    return { iter(iter::variant_type(std::in_place_index<UNORDERED_MAP_CASEINSENSITIVE_KEYS>,
                                                     r.first)),
                             r.second };
                }
            }
        }

        // Lookup by the map's own key rules (case-insensitive only for
        // UNORDERED_MAP_CASEINSENSITIVE_KEYS). Never allocates.
        const_iterator find(key_type const& key) const;

        size_type erase(key_type const& key);

        // False whenever the two maps are of different kinds, even with equal contents.
        bool operator==(any_map const& rhs) const;
        bool operator!=(any_map const& rhs) const;

      protected:
        map_type Kind() const noexcept;

      private:
        std::variant<ordered_any_map, unordered_any_map, unordered_any_cimap> map_;
    };

    class US_Framework_EXPORT AnyMap : public any_map
    {
      public:
        // A map with case-insensitive keys.
        AnyMap(std::initializer_list<any_map::value_type> l = {});
        AnyMap(map_type type, std::initializer_list<any_map::value_type> l = {});
        AnyMap(ordered_any_map const& m);
        AnyMap(ordered_any_map&& m);
        AnyMap(unordered_any_map const& m);
        AnyMap(unordered_any_map&& m);
        AnyMap(unordered_any_cimap const& m);
        AnyMap(unordered_any_cimap&& m);
        AnyMap(any_map const& m);
        AnyMap(any_map&& m);

        map_type GetType() const;

        // Walks a dotted key: the text before the first '.' is looked up here; when it holds
        // an AnyMap the rest is looked up in that, when it holds a std::vector<Any> the next
        // segment is an index (negative counts from the end). A key without a dot is at().
        // Throws std::out_of_range for a missing key or index, std::invalid_argument for a
        // non-numeric index or a value that cannot be stepped into
        // ("Unsupported Any type at '<segment>' for dotted get").
        mapped_type const& AtCompoundKey(key_type const& key) const;

        // The same walk, returning `defaultValue` wherever the throwing form would throw.
        mapped_type AtCompoundKey(key_type const& key, mapped_type defaultValue) const noexcept;
    };
} // namespace cppmicroservices

#endif
