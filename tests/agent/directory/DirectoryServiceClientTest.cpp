#include "agent/directory/DirectoryServiceClient.h"

#include "agent/directory/DirectoryFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>

namespace agent::directory {
namespace {

using core::serviceutils::APIVersion;
using core::transport::Address;
using core::transport::Message;
using directoryinterfaces::ServiceNotification;
using namespace testing;
using DirectoryServiceClientTest = DirectoryFixture;

TEST_F(DirectoryServiceClientTest, RegisteredServicesAreListedLookedUpAndCalled) {
    auto& provider = client();
    auto keyValue = serveEcho(*containers_.back(), "KeyValue", {{"spf.wireFormat", "avro"}, {"tier", "gold"}});
    auto clock = serveEcho(*containers_.back(), "Clock", {{"spf.wireFormat", "avro"}});
    keyValue.version = APIVersion(2, 1);
    provider.registerServiceInstance(keyValue);
    provider.registerServiceInstance(clock);

    auto& consumer = client();
    EXPECT_EQ(consumer.queryDirectoryForServiceUUIDs("*").size(), 3u);
    EXPECT_EQ(consumer.queryDirectoryForServiceUUIDs("directory"),
              std::vector<boost::uuids::uuid>{core::transport::getWellKnowAddressFor(1).getUUID()});
    EXPECT_EQ(consumer.queryDirectoryForServicesMatchingMetadata("*", {{"spf.wireFormat", "avro"}}).size(), 2u);
    EXPECT_EQ(consumer.queryDirectoryForServicesMatchingMetadata("*", {{"spf.wireFormat", "avro"}, {"tier", "gold"}}),
              std::vector<boost::uuids::uuid>{keyValue.instance});

    auto stub = consumer.lookupServiceInstance(keyValue.instance, APIVersion(0));
    ASSERT_TRUE(stub.isFound());
    EXPECT_EQ(stub.getName(), "KeyValue");
    EXPECT_EQ(stub.getVersion(), APIVersion(2, 1));
    EXPECT_TRUE(stub.getMetadata("tier") == std::string("gold"));
    EXPECT_FALSE(stub.getMetadata("absent"));
    EXPECT_EQ(stub.getNodeID(), containers_.front()->getNodeID());
    EXPECT_FALSE(stub.getMethod("absent"));
    auto reply = stub.getMethod("echo")(Message(std::string_view("hi")));
    ASSERT_EQ(reply.wait_until(deadline()), std::future_status::ready);
    EXPECT_EQ(reply.get().asStringView(), "KeyValue:hi");

    EXPECT_FALSE(consumer.lookupServiceInstance(randomId(), APIVersion(0)).isFound());
    EXPECT_FALSE(consumer.lookupServiceInstance(keyValue.instance, APIVersion(3)).isFound());
    EXPECT_FALSE(consumer.lookupServiceInstance(randomId(), APIVersion(0)).getMethod("echo"));
}

TEST_F(DirectoryServiceClientTest, SubscriptionsSeeRunningServicesFirstThenChangesInOrder) {
    auto& provider = client();
    auto first = serveEcho(*containers_.back(), "KeyValue");
    provider.registerServiceInstance(first);

    auto& watcher = client();
    Events all, keyValues, onlyNew;
    watcher.registerForCallbacks(all.callback(), DirectoryServiceClient::Retrospectively, boost::none, boost::none);
    watcher.registerForCallbacks(keyValues.callback(), DirectoryServiceClient::Retrospectively,
                                 std::string("Key*"), boost::none);
    auto onlyNewId = watcher.registerForCallbacks(onlyNew.callback(), DirectoryServiceClient::OnlyNewChanges,
                                                  boost::none, boost::none);
    auto second = serveEcho(*containers_.front(), "Clock");
    provider.registerServiceInstance(second);
    auto token = provider.getDeregistrationToken(first.instance);
    token.reset();
    EXPECT_FALSE(token);

    EXPECT_EQ(all.waitFor(4), (std::vector<std::string>{"started KeyValue", "started directory", "started Clock",
                                                        "stopped KeyValue"}));
    EXPECT_EQ(keyValues.waitFor(2), (std::vector<std::string>{"started KeyValue", "stopped KeyValue"}));
    EXPECT_EQ(onlyNew.waitFor(2), (std::vector<std::string>{"started Clock", "stopped KeyValue"}));
    EXPECT_EQ(watcher.queryDirectoryForServiceUUIDs("*").size(), 2u) << "exactly its instance went";

    EXPECT_TRUE(watcher.deregisterFromCallbacks(onlyNewId));
    EXPECT_FALSE(watcher.deregisterFromCallbacks(onlyNewId));
    provider.deregisterServiceInstance(second.instance);
    all.waitFor(5);
    EXPECT_EQ(onlyNew.snapshot().size(), 2u);
}

}  // namespace
}  // namespace agent::directory

namespace agent::directory {
namespace {

using core::serviceutils::APIVersion;
using core::transport::Message;
using directoryinterfaces::ServiceNotification;
using namespace testing;
using DirectoryServiceClientTest = DirectoryFixture;

TEST_F(DirectoryServiceClientTest, ADisconnectedContainersServicesAreDeregisteredAndTheirStopsNotified) {
    auto& watcher = client();
    Events events;
    watcher.registerForCallbacks(
        makeCallbackFunction([&](const auto& s) { events.callback()(ServiceNotification(s)); },
                             [&](const auto& s) { events.callback()(ServiceNotification(s)); }),
        DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none);

    auto lost = makeContainer(endpoint_);
    {
        DirectoryServiceClient provider(lost->createContext(lost->generateServiceInstance()), 5000ms);
        provider.registerServiceInstance(serveEcho(*lost, "A"));
        provider.registerServiceInstance(serveEcho(*lost, "B"));
        provider.registerForCallbacks(events.callback(), DirectoryServiceClient::OnlyNewChanges, std::string("none"),
                                      boost::none);
    }
    lost.reset();  // takes leave of the exchange, which cleans up after it
    auto seen = events.waitFor(4);
    ASSERT_EQ(seen.size(), 4u);
    std::sort(seen.begin() + 2, seen.end());  // a node's instances go in no particular order
    EXPECT_EQ(seen, (std::vector<std::string>{"started A", "started B", "stopped A", "stopped B"}));
    EXPECT_EQ(watcher.queryDirectoryForServiceUUIDs("*").size(), 1u);
}

TEST_F(DirectoryServiceClientTest, ClosingTheExchangeTellsEverySubscriberTheDirectoryStopped) {
    Events first, second;
    client().registerForCallbacks(first.callback(), DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none);
    client().registerForCallbacks(second.callback(), DirectoryServiceClient::Retrospectively,
                                  std::string("directory"), boost::none);
    exchange_.close();
    // Only a notice sent before the connections closed can arrive now.
    EXPECT_EQ(first.waitFor(1), std::vector<std::string>{"stopped directory"});
    EXPECT_EQ(second.waitFor(2), (std::vector<std::string>{"started directory", "stopped directory"}));
    exchange_.close();  // idempotent
}

TEST_F(DirectoryServiceClientTest, OnceDeregisteredASubscriptionCallsBackNoMoreThoughNotificationsKeepComing) {
    auto& watcher = client();
    std::atomic<int> calls{0};
    const auto subscription = watcher.registerForCallbacks(
        [&](const ServiceNotification&) {
            ++calls;
            std::this_thread::yield();  // lets a queue build up behind it
        },
        DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none);
    auto& provider = client();
    std::thread producing([&] {
        for (int i = 0; i < 200; ++i) {
            provider.registerServiceInstance(instance("service" + std::to_string(i)));
        }
    });
    ASSERT_TRUE(eventually([&] { return calls.load() >= 5; }));

    ASSERT_TRUE(watcher.deregisterFromCallbacks(subscription));
    const int atEnd = calls.load();
    producing.join();
    provider.queryDirectoryForServiceUUIDs("*");  // one more round trip after the last change
    EXPECT_EQ(atEnd, calls.load());
}

TEST_F(DirectoryServiceClientTest, ACallbackMayEndItsOwnSubscription) {
    auto& watcher = client();
    std::atomic<int> calls{0};
    std::promise<void> ended;
    boost::uuids::uuid subscription;
    std::mutex subscriptionMutex;  // guards subscription until it is known
    std::unique_lock<std::mutex> known(subscriptionMutex);
    subscription = watcher.registerForCallbacks(
        [&](const ServiceNotification&) {
            if (++calls == 1) {
                std::lock_guard<std::mutex> lock(subscriptionMutex);
                watcher.deregisterFromCallbacks(subscription);
                ended.set_value();
            }
        },
        DirectoryServiceClient::Retrospectively, boost::none, boost::none);
    known.unlock();
    ASSERT_EQ(std::future_status::ready, ended.get_future().wait_for(20s));
    client().registerServiceInstance(instance("later"));
    EXPECT_EQ(1, calls.load());
}

TEST_F(DirectoryServiceClientTest, AnUnreachableDirectoryIsAClearErrorWithinTheTimeout) {
    DirectorylessExchange silent(DirectorylessExchange::Silent);
    auto container = makeContainer(silent.url());
    DirectoryServiceClient lonely(container->createContext(container->generateServiceInstance()), 300ms);
    for (const auto& call : std::vector<std::function<void()>>{
             [&] { lonely.queryDirectoryForServiceUUIDs("*"); },
             [&] { lonely.lookupServiceInstance(randomId(), APIVersion(0)); },
             [&] { lonely.registerForCallbacks([](const ServiceNotification&) {},
                                               DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none); }}) {
        try {
            call();
            ADD_FAILURE() << "a call without a directory succeeded";
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()).rfind("Directory service request failed: ", 0), 0u) << e.what();
        }
    }
}

TEST_F(DirectoryServiceClientTest, AMalformedRequestIsRefusedAndTheDirectoryServesOn) {
    auto& consumer = client();
    auto reply = containers_.back()->getTransport()->sendRequest(core::transport::getWellKnowAddressFor(1),
                                                                 Message(std::string_view("junk")));
    ASSERT_EQ(reply.wait_until(deadline()), std::future_status::ready);
    try {
        reply.get();
        ADD_FAILURE() << "junk was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Directory message has version 106; this directory speaks version 1");
    }
    try {
        consumer.registerServiceInstance(instance(""));
        ADD_FAILURE() << "a nameless instance was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Directory service request failed: Service instance needs a name");
    }
    EXPECT_EQ(consumer.queryDirectoryForServiceUUIDs("*").size(), 1u);
}

TEST_F(DirectoryServiceClientTest, ConcurrentRegistrationsReachSubscribersInTheDirectorysOrder) {
    std::mutex orderMutex;
    std::vector<std::string> directoryOrder;
    const auto recording = directory_->subscribe({}, false, [&](const boost::uuids::uuid&, const ServiceNotification& n,
                                                               std::uint64_t) {
        std::lock_guard<std::mutex> lock(orderMutex);
        directoryOrder.push_back(describe(n) + " " + boost::uuids::to_string(
            boost::apply_visitor([](const auto& x) { return x.serviceInstance; }, n)));
    });
    std::mutex seenMutex;
    std::vector<std::string> seen;
    client().registerForCallbacks(
        [&](const ServiceNotification& n) {
            std::lock_guard<std::mutex> lock(seenMutex);
            seen.push_back(describe(n) + " " + boost::uuids::to_string(
                boost::apply_visitor([](const auto& x) { return x.serviceInstance; }, n)));
        },
        DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none);

    constexpr int kThreads = 4, kEach = 50;
    std::vector<DirectoryServiceClient*> providers;
    for (int t = 0; t < kThreads; ++t) {
        providers.push_back(&client());
    }
    StartBarrier start(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.ArriveAndWait();
            for (int i = 0; i < kEach; ++i) {
                auto entry = instance("S" + std::to_string(t));
                providers[t]->registerServiceInstance(entry);
                if (i % 2 == 0) {
                    providers[t]->deregisterServiceInstance(entry.instance);
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const std::size_t expected = kThreads * kEach * 3 / 2;
    EXPECT_TRUE(eventually([&] {
        std::lock_guard<std::mutex> lock(seenMutex);
        return seen.size() >= expected;
    }));
    directory_->unsubscribe(recording);  // it records into this test's locals
    std::lock_guard<std::mutex> a(orderMutex), b(seenMutex);
    EXPECT_EQ(seen, directoryOrder);
}

}  // namespace
}  // namespace agent::directory
