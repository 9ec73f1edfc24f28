#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include "support/ContainerSupport.h"

#include "agent/core/service/NativeLegacyServiceBase.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "support/Barrier.h"
#include "support/WaitFor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace agent::spf::inprocessdiscovery {
namespace {

using core::transport::Message;
using directory::DirectoryServiceClient;
using namespace std::chrono_literals;
using namespace testsupport;

directoryinterfaces::ServiceInstanceInfo entry(const std::string& name) {
    directoryinterfaces::ServiceInstanceInfo info;
    info.name = name;
    info.instance = randomId();
    return info;
}

class Echo : public core::service::NativeLegacyServiceBase {
public:
    Echo() : NativeLegacyServiceBase("Echo", core::serviceutils::APIVersion(1), {}) {
        addMethod("echo", [](const Message& m) { return m; });
    }
};

class InProcessExchangeDiscoveryTest : public ::testing::Test {
protected:
    InProcessExchangeDiscovery discovery_;
};

TEST_F(InProcessExchangeDiscoveryTest, ClientsShareOneDirectoryOnOneContainer) {
    auto first = discovery_.getFrameworkDiscoveryService(3);
    auto second = discovery_.getFrameworkDiscoveryService(3);
    ASSERT_NE(first, nullptr);
    const auto& a = first->getAssociatedContext();
    const auto& b = second->getAssociatedContext();
    EXPECT_TRUE(a.isValid());
    EXPECT_NE(a.getServiceInstance(), b.getServiceInstance());
    EXPECT_EQ(a.getNodeID(), b.getNodeID());
    EXPECT_EQ(a.getTransport(), b.getTransport());

    auto alpha = entry("Alpha");
    first->registerServiceInstance(alpha);
    EXPECT_EQ(second->queryDirectoryForServiceUUIDs("Alpha"), std::vector<boost::uuids::uuid>{alpha.instance});
    EXPECT_EQ(second->lookupServiceInstance(alpha.instance, core::serviceutils::APIVersion(0)).getNodeID(),
              a.getNodeID());
}

TEST_F(InProcessExchangeDiscoveryTest, AContainerDiallingTheEndpointJoinsTheSameExchange) {
    auto client = discovery_.getFrameworkDiscoveryService(1);
    auto beta = entry("Beta");
    client->registerServiceInstance(beta);

    auto outsider = makeContainer(discovery_.endpoint());
    DirectoryServiceClient outside(outsider->createContext(randomId()), 5000ms);
    EXPECT_EQ(outside.queryDirectoryForServiceUUIDs("Beta"), std::vector<boost::uuids::uuid>{beta.instance});
}

TEST_F(InProcessExchangeDiscoveryTest, TwoInstancesRunSeparateExchanges) {
    InProcessExchangeDiscovery other;
    EXPECT_NE(other.endpoint(), discovery_.endpoint());
    EXPECT_EQ(other.endpoint().rfind("inproc://", 0), 0u);

    auto gamma = entry("Gamma");
    discovery_.getFrameworkDiscoveryService(1)->registerServiceInstance(gamma);
    EXPECT_TRUE(other.getFrameworkDiscoveryService(1)->queryDirectoryForServiceUUIDs("Gamma").empty());
}

// The publisher keeps a copy of a client's context, drops the client and starts services
// on the copy: the copy must stay fully usable.
TEST_F(InProcessExchangeDiscoveryTest, AServiceStartedOnAContextCopyOutlivingItsClientAnswers) {
    core::serviceutils::Context context;
    {
        auto client = discovery_.getFrameworkDiscoveryService(2);
        context = client->getAssociatedContext();
    }
    Echo echo;
    ASSERT_TRUE(echo.start({{}, context}));

    auto caller = discovery_.getFrameworkDiscoveryService(2);
    auto stub = caller->lookupServiceInstance(context.getServiceInstance(), core::serviceutils::APIVersion(1));
    ASSERT_TRUE(stub.isFound());
    EXPECT_EQ(outcome(stub.getMethod("echo")(Message(std::string_view("ping")))), "ping");
    echo.stop();
}

TEST_F(InProcessExchangeDiscoveryTest, SubscribersOfOneClientHearOfInstancesAnotherRegisters) {
    auto watcher = discovery_.getFrameworkDiscoveryService(3);
    std::mutex heardMutex;
    std::vector<std::string> heard;
    watcher->registerForCallbacks(
        directory::makeCallbackFunction(
            [&](const directoryinterfaces::ServiceStartedNotification& n) {
                std::lock_guard<std::mutex> lock(heardMutex);
                heard.push_back("started " + n.serviceName);
            },
            [&](const directoryinterfaces::ServiceStoppedNotification& n) {
                std::lock_guard<std::mutex> lock(heardMutex);
                heard.push_back("stopped " + n.serviceName);
            }),
        DirectoryServiceClient::OnlyNewChanges, std::string("Delta"), boost::none);

    auto registrar = discovery_.getFrameworkDiscoveryService(3);
    auto delta = entry("Delta");
    registrar->registerServiceInstance(delta);
    registrar->deregisterServiceInstance(delta.instance);
    auto snapshot = [&] {
        std::lock_guard<std::mutex> lock(heardMutex);
        return heard;
    };
    EXPECT_TRUE(testsupport::WaitFor([&] { return snapshot().size() == 2; }));
    EXPECT_EQ(snapshot(), (std::vector<std::string>{"started Delta", "stopped Delta"}));
}

// Items posted to a client's context run at most `concurrency` at once.
TEST_F(InProcessExchangeDiscoveryTest, AClientsContextRunsAtMostItsConcurrencyAtOnce) {
    for (unsigned limit : {1u, 3u}) {
        auto client = discovery_.getFrameworkDiscoveryService(limit);
        auto& pool = client->getAssociatedContext().getThreadPool();
        std::mutex gateMutex;
        std::condition_variable gate;
        bool open = false;
        std::atomic<unsigned> running{0};
        std::atomic<unsigned> most{0};
        std::atomic<unsigned> finished{0};
        constexpr unsigned kItems = 12;
        for (unsigned i = 0; i < kItems; ++i) {
            pool.postWork([&] {
                const unsigned now = ++running;
                unsigned seen = most.load();
                while (now > seen && !most.compare_exchange_weak(seen, now)) {
                }
                {
                    std::unique_lock<std::mutex> lock(gateMutex);
                    gate.wait_until(lock, deadline(), [&] { return open; });
                }
                --running;
                ++finished;
            });
        }
        EXPECT_TRUE(testsupport::WaitFor([&] { return running.load() == limit; }));
        {
            std::lock_guard<std::mutex> lock(gateMutex);
            open = true;
        }
        gate.notify_all();
        pool.wait();
        EXPECT_EQ(finished.load(), kItems);
        EXPECT_EQ(most.load(), limit);
    }
}

TEST_F(InProcessExchangeDiscoveryTest, ManyThreadsTakingClientsAtOnceAllShareTheDirectory) {
    constexpr int kThreads = 8;
    testsupport::Barrier start(kThreads);
    testsupport::Barrier registered(kThreads);
    std::atomic<int> sawEveryone{0};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.ArriveAndWait();
            std::unique_ptr<DirectoryServiceClient> client;
            try {
                client = discovery_.getFrameworkDiscoveryService(2);
                client->registerServiceInstance(entry("Worker-" + std::to_string(t)));
            } catch (const std::exception&) {
                ++failures;
            }
            registered.ArriveAndWait();
            try {
                if (client && client->queryDirectoryForServiceUUIDs("Worker-*").size() == kThreads) {
                    ++sawEveryone;
                }
            } catch (const std::exception&) {
                ++failures;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(sawEveryone.load(), kThreads);
}

}  // namespace
}  // namespace agent::spf::inprocessdiscovery
