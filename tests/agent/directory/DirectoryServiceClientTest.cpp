#include "support/Thrown.h"
#include "agent/directory/DirectoryCore.h"
#include "agent/directory/DirectoryServiceClient.h"

#include "agent/directory/DirectoryTestSupport.h"
#include "support/Barrier.h"
#include "support/NotificationLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

namespace agent::directory {
namespace {

using core::serviceutils::APIVersion;
using directoryinterfaces::ServiceNotification;
using namespace testing;
using Events = testsupport::NotificationLog;

// What a log holds once it has `count` entries (or the deadline passed), as "started X" / "stopped X".
std::vector<std::string> lines(Events& log, std::size_t count = 0) {
    return Events::lines(log.waitFor(count));
}

// An exchange on inproc:// (which hosts the directory) and containers dialling it, each
// with a directory client of its own.
class DirectoryServiceClientTest : public ::testing::Test {
protected:
    void SetUp() override { endpoint_ = exchange_.listen(inprocUrl()); }
    void TearDown() override {
        clients_.clear();
        containers_.clear();
        exchange_.close();
    }

    // A client on a container of its own.
    DirectoryServiceClient& client(std::chrono::milliseconds timeout = 5000ms) {
        auto container = makeContainer(endpoint_);
        containers_.push_back(container);
        clients_.push_back(std::make_unique<DirectoryServiceClient>(
            container->createContext(container->generateServiceInstance()), timeout));
        return *clients_.back();
    }

    nanomsgtransport::Exchange exchange_;
    std::string endpoint_;
    std::shared_ptr<DirectoryCore> directory_ = exchange_.directory();
    std::vector<std::shared_ptr<core::container::ServiceContainer>> containers_;
    std::vector<std::unique_ptr<DirectoryServiceClient>> clients_;
};

// Subscriptions by name pattern and metadata, retrospective or not, through a real exchange.
TEST_F(DirectoryServiceClientTest, SubscriptionsSeeRunningServicesFirstThenChangesInOrderUntilTheExchangeCloses) {
    auto& provider = client();
    auto first = instance("KeyValue", {{"tier", "gold"}});
    provider.registerServiceInstance(first);

    auto& watcher = client();
    Events all, goldKeys, onlyNew;
    watcher.registerForCallbacks(all.callback(), DirectoryServiceClient::Retrospectively, boost::none, boost::none);
    watcher.registerForCallbacks(goldKeys.callback(), DirectoryServiceClient::Retrospectively, std::string("Key*"),
                                 std::map<std::string, std::string>{{"tier", "gold"}});
    auto onlyNewId = watcher.registerForCallbacks(onlyNew.callback(), DirectoryServiceClient::OnlyNewChanges,
                                                  boost::none, boost::none);
    auto second = instance("KeyMirror", {{"tier", "silver"}});
    provider.registerServiceInstance(second);
    auto token = provider.getDeregistrationToken(first.instance);
    token.reset();
    EXPECT_FALSE(token);

    EXPECT_EQ(lines(all, 4), (std::vector<std::string>{"started KeyValue", "started directory", "started KeyMirror",
                                                        "stopped KeyValue"}));
    EXPECT_EQ(lines(goldKeys, 2), (std::vector<std::string>{"started KeyValue", "stopped KeyValue"}));
    EXPECT_EQ(lines(onlyNew, 2), (std::vector<std::string>{"started KeyMirror", "stopped KeyValue"}));
    EXPECT_EQ(watcher.queryDirectoryForServiceUUIDs("*").size(), 2u) << "exactly its instance went";

    EXPECT_TRUE(watcher.deregisterFromCallbacks(onlyNewId));
    EXPECT_FALSE(watcher.deregisterFromCallbacks(onlyNewId));
    provider.deregisterServiceInstance(second.instance);
    exchange_.close();  // only a notice sent before the connections closed can arrive now
    EXPECT_EQ(lines(all, 6), (std::vector<std::string>{"started KeyValue", "started directory", "started KeyMirror",
                                                        "stopped KeyValue", "stopped KeyMirror", "stopped directory"}));
    EXPECT_EQ(lines(goldKeys).size(), 2u);
    EXPECT_EQ(lines(onlyNew).size(), 2u);
    exchange_.close();  // idempotent
}

// Deregistered from another thread while notifications keep coming, or from its own
// callback, a subscription calls back no more.
TEST_F(DirectoryServiceClientTest, ADeregisteredSubscriptionCallsBackNoMore) {
    auto& watcher = client();
    auto& provider = client();
    for (const bool fromCallback : {false, true}) {
        SCOPED_TRACE(fromCallback ? "from its callback" : "from another thread");
        struct Calls {  // shared with the callback: a late call must not reach a later row's state
            std::atomic<int> count{0};
            std::mutex subscriptionMutex;  // guards subscription until it is known
            boost::uuids::uuid subscription;
        };
        const auto calls = std::make_shared<Calls>();
        std::unique_lock<std::mutex> known(calls->subscriptionMutex);
        calls->subscription = watcher.registerForCallbacks(
            [calls, fromCallback, &watcher](const ServiceNotification&) {
                if (++calls->count == 1 && fromCallback) {
                    std::lock_guard<std::mutex> lock(calls->subscriptionMutex);
                    EXPECT_TRUE(watcher.deregisterFromCallbacks(calls->subscription));
                }
                std::this_thread::yield();  // lets a queue build up behind it
            },
            DirectoryServiceClient::Retrospectively, boost::none, boost::none);
        known.unlock();
        std::thread producing([&] {
            for (int i = 0; i < 200; ++i) {
                provider.registerServiceInstance(instance("service" + std::to_string(i)));
            }
        });
        EXPECT_TRUE(eventually([&] { return calls->count.load() >= (fromCallback ? 1 : 5); }));
        EXPECT_TRUE(fromCallback || watcher.deregisterFromCallbacks(calls->subscription));
        const int atEnd = fromCallback ? 1 : calls->count.load();
        producing.join();
        provider.queryDirectoryForServiceUUIDs("*");  // one more round trip after the last change
        EXPECT_EQ(atEnd, calls->count.load());
    }
}

TEST_F(DirectoryServiceClientTest, AnUnreachableDirectoryIsAClearErrorWithinTheTimeout) {
    FakeExchange silent(FakeExchange::Silent);
    auto container = makeContainer(silent.url());
    DirectoryServiceClient lonely(container->createContext(container->generateServiceInstance()), 300ms);
    for (const auto& call : std::vector<std::function<void()>>{
             [&] { lonely.queryDirectoryForServiceUUIDs("*"); },
             [&] { lonely.lookupServiceInstance(randomId(), APIVersion(0)); },
             [&] { lonely.registerForCallbacks([](const ServiceNotification&) {},
                                               DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none); }}) {
        const auto failure = testsupport::ThrownText<std::runtime_error>(call);
        EXPECT_EQ(failure.rfind("Directory service request failed: ", 0), 0u) << failure;
    }
}

TEST_F(DirectoryServiceClientTest, AMalformedRequestIsRefusedAndTheDirectoryServesOn) {
    auto& consumer = client();
    auto reply = containers_.back()->getTransport()->sendRequest(core::transport::getWellKnowAddressFor(1),
                                                                 Message(std::string_view("junk")));
    ASSERT_EQ(reply.wait_until(deadline()), std::future_status::ready);
    EXPECT_EQ(testsupport::ThrownText<std::runtime_error>([&] { reply.get(); }),
              "Directory message has version 106; this directory speaks version 1");
    EXPECT_EQ(testsupport::ThrownText<std::runtime_error>([&] { consumer.registerServiceInstance(instance("")); }),
              "Directory service request failed: Service instance needs a name");
    EXPECT_EQ(consumer.queryDirectoryForServiceUUIDs("*").size(), 1u);
}

TEST_F(DirectoryServiceClientTest, ConcurrentRegistrationsReachSubscribersInTheDirectorysOrder) {
    Events directoryOrder, seen;
    const auto recording = directory_->subscribe(
        {}, false, [record = directoryOrder.callback()](const auto&, const ServiceNotification& n, auto) { record(n); });
    client().registerForCallbacks(seen.callback(), DirectoryServiceClient::OnlyNewChanges, boost::none, boost::none);
    constexpr int kThreads = 4, kEach = 50;
    std::vector<DirectoryServiceClient*> providers;
    for (int t = 0; t < kThreads; ++t) {
        providers.push_back(&client());
    }
    testsupport::RunConcurrently(kThreads, [&](int t) {
        for (int i = 0; i < kEach; ++i) {
            auto entry = instance("S" + std::to_string(t));
            providers[t]->registerServiceInstance(entry);
            if (i % 2 == 0) {
                providers[t]->deregisterServiceInstance(entry.instance);
            }
        }
    });
    const auto delivered = lines(seen, kThreads * kEach * 3 / 2);
    directory_->unsubscribe(recording);  // it records into this test's locals
    EXPECT_EQ(delivered.size(), kThreads * kEach * 3u / 2);
    EXPECT_EQ(delivered, lines(directoryOrder));
}

}  // namespace
}  // namespace agent::directory
