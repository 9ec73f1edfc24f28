#pragma once

#include <functional>
#include <tuple>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <vector>

namespace agent::spf::core::detail {

// The signature of an ordinary C++ callable: a function, function pointer, std::function,
// lambda or functor with one non-template call operator. Argument and return types are
// decayed (a `const std::string&` parameter is carried as std::string).
template <class F, class = void>
struct CallableTraits : CallableTraits<decltype(&F::operator())> {};

template <class R, class... A>
struct CallableTraits<R (*)(A...)> {
    using Return = std::decay_t<R>;
    using Arguments = std::tuple<std::decay_t<A>...>;
    using RawArguments = std::tuple<A...>;
    static constexpr std::size_t arity = sizeof...(A);
};
template <class R, class... A>
struct CallableTraits<R(A...)> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...)> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...) const> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...) noexcept> : CallableTraits<R (*)(A...)> {};
template <class C, class R, class... A>
struct CallableTraits<R (C::*)(A...) const noexcept> : CallableTraits<R (*)(A...)> {};
template <class R, class... A>
struct CallableTraits<R (*)(A...) noexcept> : CallableTraits<R (*)(A...)> {};

template <class Tuple>
struct TypeIds;
template <class... A>
struct TypeIds<std::tuple<A...>> {
    static std::vector<std::type_index> get() { return {std::type_index(typeid(A))...}; }
};

// False when a parameter is a non-const lvalue reference: a payload argument cannot be
// handed out to be changed behind the caller's back.
template <class Tuple>
struct TakesNoMutableReference;
template <class... A>
struct TakesNoMutableReference<std::tuple<A...>> {
    static constexpr bool value =
        (!(std::is_lvalue_reference_v<A> && !std::is_const_v<std::remove_reference_t<A>>) && ...);
};

}  // namespace agent::spf::core::detail
