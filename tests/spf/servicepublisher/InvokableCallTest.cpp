#include "agent/spf/servicepublisher/InvokableCall.h"

#include "PublisherTestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace publishertest;
using agent::spf::servicepublisher::call;

// Completes every call on a thread of its own, as a remote bridge would; records what it was given.
class ThreadedInvokable : public Invokable {
public:
    ~ThreadedInvokable() override {
        for (auto& thread : threads_) {
            thread.join();
        }
    }

    std::vector<std::string> getSupportedNames() const override { return {"add", "greet", "reset", "fail"}; }

    void invokeAsync(std::optional<std::chrono::milliseconds> timeout, std::string name, CompletionHandler handler,
                     GenericPayload args) override {
        lastTimeout = timeout;
        lastArgumentCount = args.size();
        if (name == "throw") {
            throw std::logic_error("invokeAsync broke its promise");
        }
        threads_.emplace_back([name, handler, args = std::move(args)]() mutable {
            if (name == "add") {
                handler(GenericPayload::make(args.get<int>(0) + args.get<int>(1)));
            } else if (name == "greet") {
                handler(GenericPayload::make("hello " + args.get<std::string>(0)));
            } else if (name == "reset") {
                handler(GenericPayload());
            } else {
                handler(std::make_exception_ptr(std::out_of_range("no such method: " + name)));
            }
        });
    }

    std::optional<std::chrono::milliseconds> lastTimeout;
    std::size_t lastArgumentCount = 0;

private:
    std::vector<std::thread> threads_;
};

TEST(InvokableCallTest, TheFutureHoldsTheTypedResult) {
    ThreadedInvokable invokable;
    EXPECT_EQ(5, call<int>(invokable, "add", std::chrono::seconds(3), 2, 3).get());
    EXPECT_EQ(std::chrono::milliseconds(3000), invokable.lastTimeout);
    EXPECT_EQ(2u, invokable.lastArgumentCount);

    EXPECT_EQ("hello world", call<std::string>(invokable, "greet", std::nullopt, "world").get());
    EXPECT_EQ(std::nullopt, invokable.lastTimeout);

    auto done = call<void>(invokable, "reset", std::nullopt);
    EXPECT_NO_THROW(done.get());
    EXPECT_EQ(0u, invokable.lastArgumentCount);
}

TEST(InvokableCallTest, FailuresReachTheFuture) {
    ThreadedInvokable invokable;
    EXPECT_THROW(call<int>(invokable, "missing", std::nullopt).get(), std::out_of_range);
    EXPECT_THROW(call<void>(invokable, "throw", std::nullopt).get(), std::logic_error)
        << "an invokeAsync that throws fails the future instead of the caller";
    try {
        call<std::string>(invokable, "add", std::nullopt, 1, 2).get();
        FAIL() << "an int result was taken as a string";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("GenericPayload holds another type at index 0"))
            << e.what();
    }
}

TEST(InvokableCallTest, CallsAnInvokableFromThePublisher) {
    Publisher publisher;
    CountingFactory factory;
    const auto handle = factory.registerWith(publisher, "Echo", APIVersion(1));
    auto invokable = publisher.getInvokable(handle);
    EXPECT_EQ(42, call<int>(*invokable, "echo", std::nullopt, 42).get());
    try {
        call<int>(*invokable, "fail", std::nullopt, std::string("refused")).get();
        FAIL() << "the failure was lost";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("refused", e.what());
    }
}

}  // namespace
