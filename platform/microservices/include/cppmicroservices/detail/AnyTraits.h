// Compile-time traits and small helpers behind Any's printing and comparison.
// Nothing here is meant for direct use by bundles.
#ifndef CPPMICROSERVICES_DETAIL_ANYTRAITS_H
#define CPPMICROSERVICES_DETAIL_ANYTRAITS_H

#include "cppmicroservices/GlobalConfig.h"

#include <functional>
#include <list>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

namespace cppmicroservices::detail
{
    // True when `T const& == T const&` compiles and yields something convertible to bool.
    // Standard containers declare operator== for every element type, so they are looked
    // through: a std::vector<X> is comparable only when X is.
    template <typename T, typename = void>
    struct AnyHasOpEqShallow : std::false_type
    {
    };
    template <typename T>
    struct AnyHasOpEqShallow<
        T,
        std::enable_if_t<std::is_convertible_v<decltype(std::declval<T const&>() == std::declval<T const&>()), bool>>>
        : std::true_type
    {
    };
    template <typename T>
    struct AnyHasOpEq : std::conditional_t<std::is_array_v<T>, std::false_type, AnyHasOpEqShallow<T>>
    {
    };
    template <typename E, typename A>
    struct AnyHasOpEq<std::vector<E, A>> : AnyHasOpEq<E>
    {
    };
    template <typename E, typename A>
    struct AnyHasOpEq<std::list<E, A>> : AnyHasOpEq<E>
    {
    };
    template <typename E, typename C, typename A>
    struct AnyHasOpEq<std::set<E, C, A>> : AnyHasOpEq<E>
    {
    };
    template <typename K, typename V, typename C, typename A>
    struct AnyHasOpEq<std::map<K, V, C, A>> : std::bool_constant<AnyHasOpEq<K>::value && AnyHasOpEq<V>::value>
    {
    };
    template <typename K, typename V, typename H, typename P, typename A>
    struct AnyHasOpEq<std::unordered_map<K, V, H, P, A>>
        : std::bool_constant<AnyHasOpEq<K>::value && AnyHasOpEq<V>::value>
    {
    };
    template <typename F, typename S>
    struct AnyHasOpEq<std::pair<F, S>> : std::bool_constant<AnyHasOpEq<F>::value && AnyHasOpEq<S>::value>
    {
    };

    // True when `std::ostream << T const&` compiles.
    template <typename T, typename = void>
    struct AnyIsStreamable : std::false_type
    {
    };
    template <typename T>
    struct AnyIsStreamable<T, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<T const&>())>>
        : std::true_type
    {
    };

    // The readable (demangled) name of a type, e.g. "std::vector<int, std::allocator<int> >".
    // Never throws for lack of a demangler: falls back to the mangled name.
    US_Framework_EXPORT std::string AnyDemangledTypeName(std::type_info const& type);

    // Throws BadAnyCastException naming the cast function and both types.
    [[noreturn]] US_Framework_EXPORT void AnyThrowBadCast(char const* funcName, std::type_info const& source, std::type_info const& target);

    // Writes `value` as a JSON string literal: quoted, with quotes, backslashes and control
    // characters escaped.
    US_Framework_EXPORT void AnyWriteJsonString(std::ostream& os, std::string const& value);

    // Restores an ostream's precision when it goes out of scope.
    class AnyPrecisionGuard
    {
      public:
        AnyPrecisionGuard(std::ostream& os, std::streamsize precision) : os_(os), saved_(os.precision(precision)) {}
        ~AnyPrecisionGuard() { os_.precision(saved_); }
        AnyPrecisionGuard(AnyPrecisionGuard const&) = delete;
        AnyPrecisionGuard& operator=(AnyPrecisionGuard const&) = delete;

      private:
        std::ostream& os_;
        std::streamsize saved_;
    };
} // namespace cppmicroservices::detail

#endif
