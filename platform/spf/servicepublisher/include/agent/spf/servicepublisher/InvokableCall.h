#pragma once

// Calls an invokable and returns the result as a future:
//
//   std::future<std::string> greeting =
//       call<std::string>(*invokable, "greet", std::chrono::seconds(2), std::string("world"));
//   std::future<void> done = call<void>(*invokable, "reset", std::nullopt);
//
// The arguments become the payload's slots in order (string literals as std::string).
// The future holds slot 0 of the result as R (nothing for void) or the call's failure; a result
// that cannot give an R fails it with the payload's error. Non-blocking: the call only starts
// here. Any thread. Throws only what building the payload throws; a failure of invokeAsync
// itself reaches the future.

#include "agent/spf/core/CompletionHandler.h"
#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/core/Invokable.h"

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace agent::spf::servicepublisher {

template <class R, class... A>
std::future<R> call(core::Invokable& invokable, std::string method, std::optional<std::chrono::milliseconds> timeout,
                    A&&... args) {
    auto payload = core::GenericPayload::make(std::forward<A>(args)...);
    auto promise = std::make_shared<std::promise<R>>();
    auto result = promise->get_future();
    try {
        invokable.invokeAsync(timeout, std::move(method), core::CompletionHandler::forPromise<R>(promise),
                              std::move(payload));
    } catch (...) {
        // invokeAsync should not throw; if one does, its handler may or may not have run.
        try {
            promise->set_exception(std::current_exception());
        } catch (const std::future_error&) {
            // The handler answered first; that outcome stands.
        }
    }
    return result;
}

}  // namespace agent::spf::servicepublisher
