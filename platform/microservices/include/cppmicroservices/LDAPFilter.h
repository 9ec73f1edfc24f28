// An RFC 1960 style filter over property maps, e.g. "(&(objectclass=Foo)(|(port>=1024)(!(local=*))))".
//
// Syntax: (&(a)(b)...), (|(a)(b)...), (!(a)); items (key=value), (key~=value), (key<=value),
// (key>=value), presence (key=*), '*' wildcards inside an '=' value; '\' makes the next
// character literal; balanced parentheses may appear inside values. Whitespace around
// parentheses and operators is skipped and keys are trimmed; whitespace at the end of a value
// is part of the value ("(a=b )" wants "b ").
//
// Matching depends on the stored value's type: strings (std::string, char const*, char)
// compare case-sensitively for '=' (with wildcards), ignoring case and whitespace for '~=',
// lexicographically for '<=' and '>='; containers of strings and std::vector<Any> match when
// any element does; bool matches "true"/"false" in any case ('<=' and '>=' never match);
// integral and floating-point values compare numerically with the filter value parsed as a
// number. An empty value, another type, or a value that does not parse never matches.
//
// Thread safety: a parsed filter is immutable and shares its parse between copies; any
// number of threads may match against the same filter at once. Matching never blocks.
#ifndef CPPMICROSERVICES_LDAPFILTER_H
#define CPPMICROSERVICES_LDAPFILTER_H

#include "cppmicroservices/AnyMap.h"

#include <memory>
#include <ostream>
#include <string>

namespace cppmicroservices
{
    class Bundle;
    class ServiceReferenceBase;
    class LDAPFilterData;
    class LDAPFilter;

    namespace detail
    {
        // For the service registry: matches `properties` with case-insensitive keys, like
        // LDAPFilter::Match, but skips the scan for keys differing only in case, which the
        // registry has already ruled out when the properties were set. Never throws, never
        // allocates; false for an invalid filter.
        US_Framework_EXPORT bool LDAPMatchValidatedProperties(LDAPFilter const& filter,
                                                          AnyMap const& properties) noexcept;
    } // namespace detail

    class US_Framework_EXPORT LDAPFilter
    {
      public:
        // An invalid filter: converts to false, matches nothing, prints as "".
        LDAPFilter();

        // Parses `filter`. Throws std::invalid_argument naming the fault and where it is, e.g.
        // "Malformed query: <rest>", "Undefined operator: <rest>", "Trailing garbage '<rest>'".
        LDAPFilter(std::string const& filter);

        LDAPFilter(LDAPFilter const& other);
        LDAPFilter(LDAPFilter&& other) noexcept;
        LDAPFilter& operator=(LDAPFilter const& filter);
        LDAPFilter& operator=(LDAPFilter&& filter) noexcept;
        ~LDAPFilter();

        explicit operator bool() const;

        // Matches the properties of the referenced service (keys case-insensitive).
        bool Match(ServiceReferenceBase const& reference) const;

        // Matches the manifest headers of `bundle` (keys case-insensitive).
        bool Match(Bundle const& bundle) const;

        // Keys compare case-insensitively whatever the map's kind. Throws std::runtime_error
        // ("Properties contain case variants of the key: <key>") when a map that is not
        // case-insensitive holds two keys that differ only in case.
        bool Match(AnyMap const& dictionary) const;

        // Keys must match in case. Throws as Match(AnyMap) does.
        bool MatchCase(AnyMap const& dictionary) const;

        // The filter in normalised form: no optional whitespace, special characters in values
        // escaped. "" for an invalid filter.
        std::string ToString() const;

        // Equal when the normalised forms are equal.
        bool operator==(LDAPFilter const& other) const;

      private:
        friend bool detail::LDAPMatchValidatedProperties(LDAPFilter const& filter,
                                                         AnyMap const& properties) noexcept;

        std::shared_ptr<LDAPFilterData const> d;
    };

    // Streams ToString().
    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, LDAPFilter const& filter);
} // namespace cppmicroservices

#endif
