#include "support/Thrown.h"
#include "AgentTestSupport.h"
#include "support/Gate.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace agent::testing;

namespace {

class TransportTest : public ::testing::Test {
protected:
    void SetUp() override {
        url_ = exchange_.listen(inprocUrl());
        server_ = makeContainer(url_);
        client_ = makeContainer(url_);
    }
    void TearDown() override {
        gate_.open();  // never leave a handler blocked
        client_.reset();
        server_.reset();
        exchange_.close();
    }

    Address serve(agent::core::transport::RequestHandler handler, const boost::uuids::uuid& instance = {}) {
        Address address(randomId());
        server_->getTransport()->registerHandler(address, std::move(handler), instance);
        return address;
    }
    ReplyFuture call(const Address& to, const std::string& payload,
                     boost::optional<std::chrono::milliseconds> timeout = boost::none) {
        return client_->getTransport()->sendRequest(to, text(payload), timeout);
    }

    Exchange exchange_;
    std::string url_;
    std::shared_ptr<agent::core::container::ServiceContainer> server_;
    std::shared_ptr<agent::core::container::ServiceContainer> client_;
    testsupport::Gate gate_;
};

}  // namespace

// What a caller gets back: the handler's reply (made on the serving container's pool), or a
// refusal that says why.
TEST_F(TransportTest, EachRequestGetsItsHandlersReplyOrARefusalThatSaysWhy) {
    std::atomic<bool> onPool{false};
    const auto replying = serve([&](const Message& request) {
        onPool = server_->isWorkerThread();
        Message reply(std::string_view("re: "));
        reply.append(request);
        return reply;
    });
    const auto throwing = serve([](const Message&) -> Message { throw std::runtime_error("disk on fire"); });
    const auto instance = randomId();
    const auto rejected = serve(echo, instance);
    server_->getTransport()->rejectRequestsFor(instance);
    const auto unregistered = serve(echo);
    ASSERT_EQ(outcome(call(unregistered, "hello")), "hello");
    EXPECT_TRUE(server_->getTransport()->unregisterHandler(unregistered));
    EXPECT_FALSE(server_->getTransport()->unregisterHandler(unregistered));
    const Address nowhere(randomId());
    const std::pair<Address, std::string> rows[] = {
        {replying, "re: hello"},
        {throwing, "error: disk on fire"},
        {rejected, "error: Service instance " + boost::uuids::to_string(instance) + " no longer accepts requests"},
        {nowhere, "error: No service is registered at address " + nowhere.toString()},
        // The container refuses at once; once the exchange has the Unregister it refuses too.
        {unregistered, "error: No service is registered at address " + unregistered.toString()},
    };
    for (const auto& [to, expected] : rows) {
        std::string got;
        EXPECT_TRUE(eventually([&] { return (got = outcome(call(to, "hello"))) == expected; }))
            << expected << ", got " << got;
    }
    EXPECT_TRUE(onPool.load());
}

// A held handler stalls neither other addresses nor another request's timeout; a request
// with a longer timeout gets its reply once the handler goes on.
TEST_F(TransportTest, HeldHandlerStallsNeitherOtherAddressesNorAnotherRequestsTimeout) {
    std::atomic<int> handled{0};
    const auto held = serve([&](const Message& request) {
        gate_.pass();
        ++handled;
        return request;
    });
    const auto fast = serve(echo);
    auto shortWait = call(held, "short", 300ms);
    auto longWait = call(held, "long", std::chrono::milliseconds(20s));
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(outcome(call(fast, std::to_string(i))), std::to_string(i));
    }
    EXPECT_EQ(outcome(shortWait), "error: Request timed out");
    EXPECT_EQ(handled.load(), 0) << "the timeout came while both handlers were held";
    EXPECT_EQ(longWait.wait_until(Clock::now()), std::future_status::timeout) << "only its own timeout fired";
    gate_.open();
    EXPECT_EQ(outcome(longWait), "long");
}

TEST_F(TransportTest, OrderlyDisconnectFailsOutstandingRequestsAndWaitsForHandlers) {
    std::atomic<bool> handlerStarted{false};
    std::atomic<bool> handlerFinished{false};
    const auto address = serve([&](const Message& request) {
        handlerStarted = true;
        gate_.pass();
        handlerFinished = true;
        return request;
    });
    auto pending = call(address, "x");
    // A busy pool thread alone does not prove the handler runs: the pool may be busy with something else.
    ASSERT_TRUE(eventually([&] { return handlerStarted.load(); }));
    client_->disconnectTransport();
    EXPECT_EQ(outcome(pending, deadline(1s)), "error: The transport was disconnected");
    auto refused = call(address, "y");
    EXPECT_EQ(outcome(refused, deadline(1s)), "error: Not connected to an exchange");

    std::thread opener([&] {
        std::this_thread::yield();
        gate_.open();
    });
    server_->disconnectTransport();  // returns only after the running handler finished
    EXPECT_TRUE(handlerFinished.load());
    opener.join();
}

TEST_F(TransportTest, ForcedDisconnectDoesNotWaitForHandlersAndTheContainerCanConnectAgain) {
    std::atomic<bool> handlerStarted{false};
    const auto held = serve([&](const Message& request) {
        handlerStarted = true;
        gate_.pass();
        return request;
    });
    const auto echoing = serve(echo);
    auto pending = call(held, "x");
    ASSERT_TRUE(eventually([&] { return handlerStarted.load(); }));
    server_->forceDisconnectTransport();  // the handler is still blocked
    EXPECT_EQ(outcome(pending), "error: The service at address " + held.toString() + " went away before replying");

    gate_.open();
    server_->connectTransport(url_);  // after the closing in the background, both addresses again
    auto again = call(echoing, "again");
    EXPECT_EQ(outcome(again), "again");
}

TEST_F(TransportTest, ConnectRegistersEarlierHandlersAndAFailedOneNamesTheEndpointAndTheCause) {
    std::shared_ptr<agent::core::container::ServiceContainer> containers[2];
    for (auto& container : containers) {
        container = std::make_shared<agent::core::container::ServiceContainer>();
        container->createTransport(agent::nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    }
    const Address address(randomId());
    containers[0]->getTransport()->registerHandler(address, echo);
    containers[0]->connectTransport(url_);
    EXPECT_EQ(outcome(call(address, "early")), "early");
    EXPECT_EQ(testsupport::ThrownText<std::runtime_error>(
                  [&] { containers[1]->connectTransport("inproc://nobody-listens-here"); }),
              "Cannot connect to the exchange at inproc://nobody-listens-here: Connection refused");
    EXPECT_EQ(outcome(containers[1]->getTransport()->sendRequest(Address(randomId()), text("x"))),
              "error: Not connected to an exchange");
}
