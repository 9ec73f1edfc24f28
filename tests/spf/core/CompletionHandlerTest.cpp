#include "agent/spf/core/CompletionHandler.h"

#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using agent::spf::core::CompletionHandler;
using agent::spf::core::GenericPayload;

namespace {

template <class R>
std::string failureOf(std::future<R>& future) {
    try {
        future.get();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

}  // namespace

TEST(CompletionHandlerTest, APromiseGetsSlotZeroOrTheFailure) {
    auto promise = std::make_shared<std::promise<std::int32_t>>();
    auto future = promise->get_future();
    CompletionHandler handler = CompletionHandler::forPromise(promise);
    EXPECT_EQ(handler.getReturnTypeID(), std::type_index(typeid(std::int32_t)));
    handler(GenericPayload::make(std::int32_t{42}, std::string("ignored")));
    EXPECT_EQ(future.get(), 42);

    auto failing = std::make_shared<std::promise<std::string>>();
    auto failed = failing->get_future();
    CompletionHandler::forPromise(failing)(std::make_exception_ptr(std::runtime_error("Timeout")));
    EXPECT_EQ(failureOf(failed), "Timeout");
}

TEST(CompletionHandlerTest, AVoidPromiseIgnoresThePayload) {
    auto promise = std::make_shared<std::promise<void>>();
    auto future = promise->get_future();
    CompletionHandler handler = CompletionHandler::forPromise(promise);
    EXPECT_EQ(handler.getReturnTypeID(), std::type_index(typeid(void)));
    handler(GenericPayload());
    EXPECT_NO_THROW(future.get());
}

TEST(CompletionHandlerTest, AResultThatCannotFillThePromiseFailsIt) {
    struct Base {
        virtual ~Base() = default;
    };
    auto empty = std::make_shared<std::promise<std::int32_t>>();
    auto emptyFuture = empty->get_future();
    CompletionHandler::forPromise(empty)(GenericPayload());
    EXPECT_EQ(failureOf(emptyFuture), "Invalid GenericPayload index");

    auto polymorphic = std::make_shared<std::promise<Base>>();
    auto polymorphicFuture = polymorphic->get_future();
    GenericPayload result;
    result.pushPolymorphic(std::make_shared<Base>());
    CompletionHandler::forPromise(polymorphic)(result);
    EXPECT_EQ(failureOf(polymorphicFuture), "Polymorphic types are not supported with futures");

    auto wrongType = std::make_shared<std::promise<std::int64_t>>();
    auto wrongFuture = wrongType->get_future();
    CompletionHandler::forPromise(wrongType)(GenericPayload::make(std::int32_t{1}));
    EXPECT_THROW(wrongFuture.get(), std::runtime_error);
}

TEST(CompletionHandlerTest, ASecondCompletionOfAnyCopyIsIgnored) {
    int results = 0;
    int failures = 0;
    CompletionHandler handler([&results](GenericPayload) { ++results; },
                              [&failures](std::exception_ptr) { ++failures; }, typeid(void));
    CompletionHandler copy = handler;
    handler(GenericPayload());
    copy(std::make_exception_ptr(std::runtime_error("late")));
    handler(GenericPayload());
    EXPECT_EQ(results, 1);
    EXPECT_EQ(failures, 0);
    EXPECT_TRUE(copy.isCompleted());
}

TEST(CompletionHandlerTest, AnEmptyFailurePointerStillReachesTheFailureSideAsAnError) {
    auto promise = std::make_shared<std::promise<std::int32_t>>();
    auto future = promise->get_future();
    CompletionHandler::forPromise(promise)(std::exception_ptr());
    EXPECT_EQ(failureOf(future), "Completed with an empty failure");
}

TEST(CompletionHandlerTest, RacingCompletionsFromManyThreadsCompleteExactlyOnce) {
    constexpr int threadCount = 8;
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> calls{0};
        auto promise = std::make_shared<std::promise<std::int32_t>>();
        auto future = promise->get_future();
        CompletionHandler inner = CompletionHandler::forPromise(promise);
        CompletionHandler handler(
            [&calls, inner](GenericPayload result) {
                ++calls;
                inner(std::move(result));
            },
            [&calls, inner](std::exception_ptr failure) {
                ++calls;
                inner(failure);
            },
            typeid(std::int32_t));
        testsupport::Barrier start(threadCount);
        std::vector<std::thread> threads;
        for (int t = 0; t < threadCount; ++t) {
            threads.emplace_back([&start, handler, t] {
                start.ArriveAndWait();
                if (t % 2 == 0) {
                    handler(GenericPayload::make(std::int32_t{t}));
                } else {
                    handler(std::make_exception_ptr(std::runtime_error("failure " + std::to_string(t))));
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(calls.load(), 1);
        ASSERT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    }
}
