#include "PublisherTestSupport.h"

#include "support/Barrier.h"
#include "support/Gate.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <future>
#include <list>
#include <thread>
#include <vector>

namespace {

using namespace publishertest;

TEST(InvokablePublisherConcurrencyTest, ClientsGetAndGiveBackWhileFactoriesComeAndGo) {
    constexpr int clients = 4;
    constexpr int churners = 2;
    constexpr int clientRounds = 400;
    constexpr int churnRounds = 60;

    Publisher publisher;
    std::vector<std::unique_ptr<CountingFactory>> stable;
    for (int i = 0; i < 3; ++i) {
        stable.push_back(std::make_unique<CountingFactory>());
        stable.back()->registerWith(publisher, "Greeter", APIVersion(1, i));
    }
    std::vector<std::list<CountingFactory>> churned(churners);
    std::atomic<int> gotten{0};

    testsupport::Barrier start(clients + churners);
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            start.ArriveAndWait();
            std::deque<std::shared_ptr<Invokable>> held;
            for (int round = 0; round < clientRounds; ++round) {
                const auto factories = publisher.findInvokableFactories("Greeter", 1);
                if (factories.empty()) continue;
                try {
                    held.push_back(publisher.getInvokable(factories[(round + c) % factories.size()].handle));
                    ++gotten;
                } catch (const std::exception&) {
                    continue;  // withdrawn between the lookup and the get
                }
                // Given back by an explicit unget, once, or else with its last copy.
                if (round % 3 == 0 && publisher.ungetInvokable(held.back())) {
                    EXPECT_FALSE(publisher.ungetInvokable(held.back()));
                }
                if (held.size() > 4) held.pop_front();
            }
        });
    }
    for (int c = 0; c < churners; ++c) {
        threads.emplace_back([&, c] {
            start.ArriveAndWait();
            for (int round = 0; round < churnRounds; ++round) {
                auto& factory = churned[c].emplace_back();
                const auto handle = factory.registerWith(publisher, "Greeter", APIVersion(1, 100 + c, round));
                auto own = publisher.getInvokable(handle);
                std::this_thread::yield();
                publisher.withdrawInvokableFactory(handle);
                factory.withdrawalReturned = true;
            }
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_GT(gotten, 0);
    for (const auto& factory : stable) {
        EXPECT_EQ(factory->gets, factory->ungets) << "every invokable of a registered factory came back";
        EXPECT_EQ(0, factory->wrongUngets) << "each came back once";
    }
    for (auto& perChurner : churned) {
        for (auto& factory : perChurner) {
            EXPECT_EQ(0, factory.afterWithdrawal);
            EXPECT_LE(factory.ungets, factory.gets);
            EXPECT_GE(factory.gets, 1);
            EXPECT_EQ(0, factory.wrongUngets);
        }
    }
}

// Withdrawing a factory waits for its get-callback running on another thread: it does not return
// while the callback runs, and the get that started first completes.
TEST(InvokablePublisherConcurrencyTest, WithdrawalWaitsForAGetCallbackInFlight) {
    CountingFactory factory;
    Publisher publisher;
    testsupport::Gate gate;  // holds the first get-callback
    std::atomic<bool> returned{false};
    std::atomic<bool> returnedWhileCallbackRan{false};
    std::atomic<int> calls{0};
    const auto handle = publisher.registerInvokableFactory(
        [&] {
            if (++calls == 1) {
                gate.pass();
                returnedWhileCallbackRan = returned.load();
            }
            return factory.getCallback()();
        },
        factory.ungetCallback(), "Greeter", boost::uuids::random_generator()(), APIVersion(1), {}, {});
    auto first = std::async(std::launch::async, [&] { return publisher.getInvokable(handle) != nullptr; });
    ASSERT_TRUE(gate.waitForPassers(1));
    std::thread actor([&] {
        publisher.withdrawInvokableFactory(handle);
        returned = true;
    });
    // A withdrawal that did not wait would return within this bound and be caught below.
    EXPECT_FALSE(testsupport::WaitFor([&] { return returned.load(); }, std::chrono::milliseconds(200)));
    gate.open();
    actor.join();
    EXPECT_TRUE(first.get());
    EXPECT_FALSE(returnedWhileCallbackRan);
    EXPECT_EQ(1, calls.load());
    EXPECT_FALSE(publisher.isRegistered(handle));
}

}  // namespace
