#include "PublisherTestSupport.h"

#include "support/Barrier.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <future>
#include <list>
#include <map>
#include <thread>
#include <vector>

namespace {

using namespace publishertest;
using agent::spf::servicepublisher::InvokableFactoryDescription;
using agent::spf::servicepublisher::InvokableFactoryEventKind;

// Checks, per factory, that a listener hears Added before Removed and each at most once, and
// that no two listener calls of one publisher overlap. A listener that was not told of the
// factories already there may hear Removed alone.
struct ListenerChecker {
    ListenerChecker(bool told, std::atomic<int>& in, std::atomic<int>& overlapping)
        : toldOfExisting(told), inListener(in), overlaps(overlapping) {}
    void operator()(InvokableFactoryEventKind kind, const InvokableFactoryDescription& factory) {
        overlaps += ++inListener != 1;
        {
            std::lock_guard<std::mutex> lock(heardMutex);
            auto& events = heard[factory.handle];
            const bool added = kind == InvokableFactoryEventKind::Added;
            const bool removedAlone = !added && events.empty() && !toldOfExisting;
            outOfOrder += (added && !events.empty()) || (!added && events != std::vector<bool>{true} && !removedAlone);
            events.push_back(added);
        }
        --inListener;
    }

    const bool toldOfExisting;
    std::atomic<int>& inListener;
    std::atomic<int>& overlaps;
    std::mutex heardMutex;  // guards heard and outOfOrder
    std::map<InvokableFactoryHandle, std::vector<bool>> heard;  // true = Added
    int outOfOrder = 0;
};

TEST(InvokablePublisherConcurrencyTest, ClientsGetAndGiveBackWhileFactoriesAndListenersComeAndGo) {
    constexpr int clients = 4;
    constexpr int churners = 2;
    constexpr int clientRounds = 400;
    constexpr int churnRounds = 60;

    Publisher publisher;
    std::atomic<int> inListener{0};
    std::atomic<int> overlaps{0};
    auto permanent = std::make_shared<ListenerChecker>(true, inListener, overlaps);
    publisher.addInvokableFactoryListener([permanent](auto kind, const auto& factory) { (*permanent)(kind, factory); });

    std::vector<std::unique_ptr<CountingFactory>> stable;
    for (int i = 0; i < 3; ++i) {
        stable.push_back(std::make_unique<CountingFactory>());
        stable.back()->registerWith(publisher, "Greeter", APIVersion(1, i));
    }
    std::vector<std::list<CountingFactory>> churned(churners);
    std::vector<std::vector<InvokableFactoryHandle>> churnedHandles(churners);
    std::vector<std::shared_ptr<ListenerChecker>> temporaryListeners;  // the listener churner's
    std::atomic<int> gotten{0};

    testsupport::Barrier start(clients + churners + 1);
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
                churnedHandles[c].push_back(handle);
                auto own = publisher.getInvokable(handle);
                std::this_thread::yield();
                publisher.withdrawInvokableFactory(handle);
                factory.withdrawalReturned = true;
            }
        });
    }
    threads.emplace_back([&] {  // a listener churner
        start.ArriveAndWait();
        for (int round = 0; round < churnRounds; ++round) {
            const bool toldOfExisting = round % 2 == 0;
            auto checker = std::make_shared<ListenerChecker>(toldOfExisting, inListener, overlaps);
            temporaryListeners.push_back(checker);  // joined before it is read
            const auto token = publisher.addInvokableFactoryListener(
                [checker](auto kind, const auto& factory) { (*checker)(kind, factory); }, toldOfExisting);
            std::this_thread::yield();
            EXPECT_TRUE(publisher.removeInvokableFactoryListener(token));
        }
    });
    for (auto& thread : threads) thread.join();

    EXPECT_GT(gotten, 0);
    for (const auto& factory : stable) {
        EXPECT_EQ(factory->gets, factory->ungets) << "every invokable of a registered factory came back";
        EXPECT_TRUE(factory->eachGivenBackAtMostOnce());
        EXPECT_EQ(0, factory->foreignUngets);
    }
    for (auto& perChurner : churned) {
        for (auto& factory : perChurner) {
            EXPECT_EQ(0, factory.afterWithdrawal);
            EXPECT_LE(factory.ungets, factory.gets);
            EXPECT_GE(factory.gets, 1);
            EXPECT_TRUE(factory.eachGivenBackAtMostOnce());
        }
    }
    EXPECT_EQ(0, overlaps) << "listener calls of one publisher never overlap";
    {
        std::lock_guard<std::mutex> lock(permanent->heardMutex);
        EXPECT_EQ(0, permanent->outOfOrder);
        for (const auto& handles : churnedHandles) {
            for (const auto& handle : handles) EXPECT_EQ((std::vector<bool>{true, false}), permanent->heard[handle]);
        }
        EXPECT_EQ(3u + churners * churnRounds, permanent->heard.size());
    }
    for (const auto& checker : temporaryListeners) {
        std::lock_guard<std::mutex> lock(checker->heardMutex);
        EXPECT_EQ(0, checker->outOfOrder);
    }
}

// Blocks a callback until released, so that the test can act while it runs.
struct Gate {
    std::promise<void> enteredPromise;
    std::promise<void> releasePromise;
    std::shared_future<void> release = releasePromise.get_future().share();
};

// Withdrawing a factory waits for its get-callback running on another thread, and removing a
// listener for its call in flight: neither returns while the callback runs, and the call that
// started first completes.
TEST(InvokablePublisherConcurrencyTest, WithdrawalAndListenerRemovalWaitForTheirCallbacksInFlight) {
    for (const bool withdrawal : {true, false}) {
        SCOPED_TRACE(withdrawal ? "withdrawal" : "listener removal");
        CountingFactory factory;
        Publisher publisher;
        Gate gate;
        auto entered = gate.enteredPromise.get_future();
        std::atomic<bool> returned{false};
        std::atomic<bool> returnedWhileCallbackRan{false};
        std::atomic<int> calls{0};
        const auto blocking = [&] {
            if (++calls == 1) {
                gate.enteredPromise.set_value();
                gate.release.wait();
                returnedWhileCallbackRan = returned.load();
            }
        };
        InvokableFactoryHandle handle;
        agent::spf::servicepublisher::InvokableFactoryListenerToken token;
        if (withdrawal) {
            handle = publisher.registerInvokableFactory(
                [&] {
                    blocking();
                    return factory.getCallback()();
                },
                factory.ungetCallback(), "Greeter", boost::uuids::random_generator()(), APIVersion(1), {}, {});
        } else {
            token = publisher.addInvokableFactoryListener([&](auto, const auto&) { blocking(); });
        }
        auto first = std::async(std::launch::async, [&] {
            return withdrawal ? publisher.getInvokable(handle) != nullptr
                              : factory.registerWith(publisher, "Greeter", APIVersion(1)) != InvokableFactoryHandle();
        });
        ASSERT_EQ(std::future_status::ready, entered.wait_for(std::chrono::seconds(10)));
        std::thread actor([&] {
            if (withdrawal) {
                publisher.withdrawInvokableFactory(handle);
            } else {
                EXPECT_TRUE(publisher.removeInvokableFactoryListener(token));
            }
            returned = true;
        });
        // An action that did not wait would return within this bound and be caught below.
        EXPECT_FALSE(testsupport::WaitFor([&] { return returned.load(); }, std::chrono::milliseconds(200)));
        gate.releasePromise.set_value();
        actor.join();
        EXPECT_TRUE(first.get());
        EXPECT_FALSE(returnedWhileCallbackRan);
        factory.registerWith(publisher, "Farewell", APIVersion(1));
        EXPECT_EQ(1, calls.load()) << "a removed listener is not called again";
        EXPECT_FALSE(publisher.isRegistered(handle));
    }
}

}  // namespace
