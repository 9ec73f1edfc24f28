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
class ListenerChecker {
public:
    ListenerChecker(bool toldOfExisting, std::atomic<int>& inListener, std::atomic<int>& overlaps)
        : toldOfExisting_(toldOfExisting), inListener_(inListener), overlaps_(overlaps) {}

    void operator()(InvokableFactoryEventKind kind, const InvokableFactoryDescription& factory) {
        if (++inListener_ != 1) {
            ++overlaps_;
        }
        {
            std::lock_guard<std::mutex> lock(heardMutex);
            auto& events = heard[factory.handle];
            const bool added = kind == InvokableFactoryEventKind::Added;
            const bool removedAlone = !added && events.empty() && !toldOfExisting_;
            if ((added && !events.empty()) || (!added && events != std::vector<bool>{true} && !removedAlone)) {
                ++outOfOrder;
            }
            events.push_back(added);
        }
        --inListener_;
    }

    std::mutex heardMutex;  // guards heard and outOfOrder
    std::map<InvokableFactoryHandle, std::vector<bool>> heard;  // true = Added
    int outOfOrder = 0;

private:
    const bool toldOfExisting_;
    std::atomic<int>& inListener_;
    std::atomic<int>& overlaps_;
};

TEST(InvokablePublisherConcurrencyTest, ClientsGetAndGiveBackWhileFactoriesAndListenersComeAndGo) {
    constexpr int clients = 4;
    constexpr int churners = 2;
    constexpr int listenerChurners = 1;
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
    std::vector<std::shared_ptr<ListenerChecker>> temporaryListeners;
    std::mutex temporaryListenersMutex;  // guards temporaryListeners
    std::atomic<int> failedGets{0};
    std::atomic<int> gotten{0};

    testsupport::Barrier start(clients + churners + listenerChurners);
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&, c] {
            start.ArriveAndWait();
            std::deque<std::shared_ptr<Invokable>> held;
            for (int round = 0; round < clientRounds; ++round) {
                const auto factories = publisher.findInvokableFactories("Greeter", 1);
                if (factories.empty()) {
                    continue;
                }
                try {
                    held.push_back(publisher.getInvokable(factories[(round + c) % factories.size()].handle));
                    ++gotten;
                } catch (const std::exception&) {
                    ++failedGets;  // withdrawn between the lookup and the get
                    continue;
                }
                if (round % 3 == 0) {
                    publisher.ungetInvokable(held.back());
                }
                if (held.size() > 4) {
                    held.pop_front();
                }
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
    for (int l = 0; l < listenerChurners; ++l) {
        threads.emplace_back([&] {
            start.ArriveAndWait();
            for (int round = 0; round < churnRounds; ++round) {
                const bool toldOfExisting = round % 2 == 0;
                auto checker = std::make_shared<ListenerChecker>(toldOfExisting, inListener, overlaps);
                {
                    std::lock_guard<std::mutex> lock(temporaryListenersMutex);
                    temporaryListeners.push_back(checker);
                }
                const auto token = publisher.addInvokableFactoryListener(
                    [checker](auto kind, const auto& factory) { (*checker)(kind, factory); }, toldOfExisting);
                std::this_thread::yield();
                EXPECT_TRUE(publisher.removeInvokableFactoryListener(token));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_GT(gotten, 0);
    for (const auto& factory : stable) {
        EXPECT_EQ(factory->gets, factory->ungets) << "every invokable of a registered factory came back";
        EXPECT_TRUE(factory->eachGivenBackAtMostOnce());
        EXPECT_EQ(0, factory->foreignUngets);
    }
    for (auto& perChurner : churned) {
        for (auto& factory : perChurner) {
            EXPECT_EQ(0, factory.callbacksAfterWithdrawal);
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
            for (const auto& handle : handles) {
                EXPECT_EQ((std::vector<bool>{true, false}), permanent->heard[handle]);
            }
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

    void enterAndWait() {
        enteredPromise.set_value();
        release.wait();
    }
};

TEST(InvokablePublisherConcurrencyTest, WithdrawalWaitsForCallbacksRunningOnOtherThreads) {
    Publisher publisher;
    Gate gate;
    auto entered = gate.enteredPromise.get_future();
    std::atomic<bool> withdrawalReturned{false};
    std::atomic<bool> returnedWhileCallbackRan{false};
    const auto handle = publisher.registerInvokableFactory(
        [&] {
            gate.enterAndWait();
            returnedWhileCallbackRan = withdrawalReturned.load();
            return std::shared_ptr<Invokable>(std::make_shared<TestInvokable>());
        },
        [](std::shared_ptr<Invokable>) {}, "Greeter", boost::uuids::random_generator()(), APIVersion(1), {}, {});

    auto client = std::async(std::launch::async, [&] { return publisher.getInvokable(handle); });
    ASSERT_EQ(std::future_status::ready, entered.wait_for(std::chrono::seconds(10)));
    std::atomic<bool> withdrawing{false};
    std::thread withdrawer([&] {
        withdrawing = true;
        publisher.withdrawInvokableFactory(handle);
        withdrawalReturned = true;
    });
    ASSERT_TRUE(testsupport::WaitFor([&] { return withdrawing.load(); }));
    // A withdrawal that did not wait would return within this bound and be caught below.
    EXPECT_FALSE(testsupport::WaitFor([&] { return withdrawalReturned.load(); }, std::chrono::milliseconds(200)));
    gate.releasePromise.set_value();
    withdrawer.join();

    EXPECT_FALSE(returnedWhileCallbackRan);
    auto invokable = client.get();
    EXPECT_TRUE(invokable) << "a get that started before the withdrawal completes";
    EXPECT_FALSE(publisher.isRegistered(handle));
}

TEST(InvokablePublisherConcurrencyTest, RemovingAListenerWaitsForItsCallInFlight) {
    Publisher publisher;
    Gate gate;
    auto entered = gate.enteredPromise.get_future();
    std::atomic<bool> removalReturned{false};
    std::atomic<bool> removedWhileListenerRan{false};
    std::atomic<int> calls{0};
    const auto token = publisher.addInvokableFactoryListener([&](auto, const auto&) {
        if (++calls == 1) {
            gate.enterAndWait();
            removedWhileListenerRan = removalReturned.load();
        }
    });

    CountingFactory factory;
    std::thread registrar([&] { factory.registerWith(publisher, "Greeter", APIVersion(1)); });
    ASSERT_EQ(std::future_status::ready, entered.wait_for(std::chrono::seconds(10)));
    std::thread remover([&] {
        EXPECT_TRUE(publisher.removeInvokableFactoryListener(token));
        removalReturned = true;
    });
    EXPECT_FALSE(testsupport::WaitFor([&] { return removalReturned.load(); }, std::chrono::milliseconds(200)));
    gate.releasePromise.set_value();
    remover.join();
    registrar.join();

    factory.registerWith(publisher, "Farewell", APIVersion(1));
    EXPECT_FALSE(removedWhileListenerRan);
    EXPECT_EQ(1, calls) << "a removed listener is not called again";
}

}  // namespace
