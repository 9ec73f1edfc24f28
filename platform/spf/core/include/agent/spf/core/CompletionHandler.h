#pragma once

#include "agent/spf/core/GenericPayload.h"

#include <atomic>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <typeindex>

namespace agent::spf::core {

// How the result of an asynchronous call reaches its caller: called exactly once, either
// with the result payload or with the failure.
//
// Copies share one completion: whichever call comes first (on any copy, from any thread)
// wins and runs its function; every later call, and a racing loser, is ignored. A
// moved-from handler ignores calls. Calls never block on each other; the function runs on
// the thread that won. Exceptions thrown by the function propagate to that caller; the
// handler counts as completed either way. A null failure pointer is replaced by a
// std::runtime_error "Completed with an empty failure" so the failure side always gets one.
class CompletionHandler {
public:
    using ResultFunction = std::function<void(GenericPayload)>;
    using FailureFunction = std::function<void(std::exception_ptr)>;

    // Either function may be empty: that outcome is then dropped (still completing).
    // returnType names the type the caller expects in slot 0 (void: no value); the
    // bridge picks the reply's deserialiser by it.
    CompletionHandler(ResultFunction onResult, FailureFunction onFailure, std::type_index returnType);

    // A handler that fulfils `promise`: with slot 0 of the result taken as R (R = void:
    // the payload is ignored), or with the failure. A result that cannot give an R (no
    // slot 0, an empty slot, another type, a polymorphic value) fails the promise with
    // that payload failure instead. Null promise: std::invalid_argument.
    template <class R>
    static CompletionHandler forPromise(std::shared_ptr<std::promise<R>> promise) {
        if (!promise) {
            throw std::invalid_argument("CompletionHandler needs a promise");
        }
        auto onResult = [promise](GenericPayload result) {
            try {
                if constexpr (std::is_void_v<R>) {
                    promise->set_value();
                } else {
                    promise->set_value(result.take<R>(0));
                }
            } catch (...) {
                promise->set_exception(std::current_exception());
            }
        };
        auto onFailure = [promise](std::exception_ptr failure) { promise->set_exception(failure); };
        return CompletionHandler(std::move(onResult), std::move(onFailure), typeid(R));
    }

    void operator()(GenericPayload result) const;
    void operator()(std::exception_ptr failure) const;

    std::type_index getReturnTypeID() const noexcept { return returnType_; }
    // True once any copy has been called. For diagnostics: a false answer may be stale at once.
    bool isCompleted() const noexcept;

private:
    struct State {
        std::atomic<bool> completed{false};
        // Read and released only by the caller that won `completed`.
        ResultFunction onResult;
        FailureFunction onFailure;
    };

    std::shared_ptr<State> state_;
    std::type_index returnType_;
};

}  // namespace agent::spf::core
