#pragma once

#include "agent/spf/core/CallableTraits.h"
#include "agent/spf/core/GenericPayload.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <vector>

namespace agent::spf::core {

// One typed method of a ServiceInterface: the types of its arguments and of its result,
// and an invoker from an argument payload to a result payload. Built from an ordinary C++
// callable with fromCallable, or from an invoker and type ids.
//
// Immutable after construction and cheap to copy (copies share the callable). invoke may
// run on many threads at once, so the callable must tolerate that.
class MethodImplementation {
public:
    using Invoker = std::function<GenericPayload(GenericPayload&&)>;

    // returnType is typeid(void) for a method without a result. Null invoker:
    // std::invalid_argument.
    MethodImplementation(std::vector<std::type_index> argumentTypes, std::type_index returnType, Invoker invoker);

    // Wraps `callable` (say `[](std::int32_t a, std::int32_t b) { return a + b; }`): the
    // invoker takes argument i from slot i as the parameter's decayed type and returns a
    // payload of the one result (empty payload for void). Parameters taken by non-const
    // lvalue reference are refused at compile time.
    template <class F>
    static MethodImplementation fromCallable(F&& callable);

    const std::vector<std::type_index>& argumentTypes() const noexcept { return argumentTypes_; }
    std::type_index returnType() const noexcept { return returnType_; }

    // Runs the method on the caller's thread. Fails with std::runtime_error
    // "Wrong number of arguments, expected " + count when the payload's size differs, with
    // the payload's read failures when an argument is empty or of another type, and with
    // whatever the callable throws.
    GenericPayload invoke(GenericPayload&& args) const;

private:
    template <class Callable, class Traits, std::size_t... I>
    static GenericPayload call(Callable& callable, GenericPayload& args, std::index_sequence<I...>) {
        using Return = typename Traits::Return;
        (void)args;  // unused by methods without parameters
        // Checked in index order first, so the failure names the first bad argument.
        ((void)args.get<std::tuple_element_t<I, typename Traits::Arguments>>(I), ...);
        if constexpr (std::is_void_v<Return>) {
            callable(std::move(args.get<std::tuple_element_t<I, typename Traits::Arguments>>(I))...);
            return GenericPayload();
        } else {
            return GenericPayload::make(
                callable(std::move(args.get<std::tuple_element_t<I, typename Traits::Arguments>>(I))...));
        }
    }

    std::vector<std::type_index> argumentTypes_;
    std::type_index returnType_;
    Invoker invoker_;
};

template <class F>
MethodImplementation MethodImplementation::fromCallable(F&& callable) {
    using Callable = std::decay_t<F>;
    using Traits = detail::CallableTraits<Callable>;
    static_assert(detail::TakesNoMutableReference<typename Traits::RawArguments>::value,
                  "A method's parameters are taken by value, by const reference or by rvalue reference");
    auto shared = std::make_shared<Callable>(std::forward<F>(callable));
    Invoker invoker = [shared](GenericPayload&& args) {
        return call<Callable, Traits>(*shared, args, std::make_index_sequence<Traits::arity>());
    };
    return MethodImplementation(detail::TypeIds<typename Traits::Arguments>::get(), typeid(typename Traits::Return),
                                std::move(invoker));
}

}  // namespace agent::spf::core
