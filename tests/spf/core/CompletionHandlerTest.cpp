#include "agent/spf/core/CompletionHandler.h"

#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

using agent::spf::core::CompletionHandler;
using agent::spf::core::GenericPayload;

namespace {

struct Base {
    virtual ~Base() = default;
};

// Each row completes a promise's handler and reads its future: slot zero of a result, or the text
// of the failure (an empty one, or a result that cannot fill it). Typed and void results and a
// failure's own text reach call<R>'s promise end to end (InProcessEndToEndTest).
TEST(CompletionHandlerTest, APromiseGetsSlotZeroOrTheFailureText) {
    GenericPayload polymorphic;
    polymorphic.pushPolymorphic(std::make_shared<Base>());
    const auto int32 = [](const std::function<void(CompletionHandler&)>& complete) {
        auto promise = std::make_shared<std::promise<std::int32_t>>();
        CompletionHandler handler = CompletionHandler::forPromise(promise);
        complete(handler);
        return std::to_string(promise->get_future().get());
    };
    const auto other = [](auto promise, const GenericPayload& result) {
        CompletionHandler::forPromise(promise)(result);
        promise->get_future().get();
        return std::string("done");
    };
    const std::vector<std::pair<std::function<std::string()>, std::string>> rows = {
        {[&] { return int32([](auto& h) { h(GenericPayload::make(std::int32_t{42}, "ignored")); }); }, "42"},
        {[&] { return int32([](auto& h) { h(std::exception_ptr()); }); }, "Completed with an empty failure"},
        {[&] { return int32([](auto& h) { h(GenericPayload()); }); }, "Invalid GenericPayload index"},
        {[&] { return other(std::make_shared<std::promise<Base>>(), polymorphic); },
         "Polymorphic types are not supported with futures"},
        {[&] { return other(std::make_shared<std::promise<std::int64_t>>(), GenericPayload::make(std::int32_t{1})); },
         "GenericPayload holds another type at index 0: int requested as long"},
    };
    for (const auto& [complete, expected] : rows) {
        try {
            EXPECT_EQ(expected, complete());
        } catch (const std::exception& e) {
            EXPECT_EQ(expected, e.what());
        }
    }
}

TEST(CompletionHandlerTest, RacingCompletionsOfCopiesFromManyThreadsCompleteExactlyOnce) {
    constexpr int threadCount = 8;
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> results{0};
        std::atomic<int> failures{0};
        CompletionHandler handler([&results](GenericPayload) { ++results; },
                                  [&failures](std::exception_ptr) { ++failures; }, typeid(std::int32_t));
        testsupport::RunConcurrently(threadCount, [&handler](int t) {
            CompletionHandler copy = handler;
            t % 2 == 0 ? copy(GenericPayload::make(std::int32_t{t}))
                       : copy(std::make_exception_ptr(std::runtime_error("failure")));
        });
        EXPECT_EQ(1, results + failures) << "round " << round;
        EXPECT_TRUE(handler.isCompleted());
    }
}

}  // namespace
