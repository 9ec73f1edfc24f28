#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include "support/Barrier.h"
#include "support/ContainerSupport.h"
#include "support/Gate.h"

#include "agent/core/service/NativeLegacyServiceBase.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace agent::spf::inprocessdiscovery {
namespace {

using core::transport::Message;
using directory::DirectoryServiceClient;
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

// Clients taken on eight threads at once share one directory, which a container dialling the
// endpoint joins; another discovery runs an exchange of its own. The publisher keeps a copy of a
// client's context and drops the client: a service started on the copy must answer.
TEST(InProcessExchangeDiscoveryTest, ClientsOfManyThreadsShareOneExchangeAndAContextCopyOutlivesItsClient) {
    InProcessExchangeDiscovery discovery;
    constexpr int kThreads = 8;
    Barrier start(kThreads);
    Barrier registered(kThreads);
    std::atomic<int> sawEveryone{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.ArriveAndWait();
            auto client = discovery.getFrameworkDiscoveryService(2);
            client->registerServiceInstance(entry("Worker-" + std::to_string(t)));
            registered.ArriveAndWait();
            sawEveryone += client->queryDirectoryForServiceUUIDs("Worker-*").size() == kThreads;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(kThreads, sawEveryone.load());

    auto outsider = makeContainer(discovery.endpoint());
    DirectoryServiceClient outside(outsider->createContext(randomId()), std::chrono::milliseconds(5000));
    EXPECT_EQ(kThreads, outside.queryDirectoryForServiceUUIDs("Worker-*").size());
    InProcessExchangeDiscovery other;
    EXPECT_NE(other.endpoint(), discovery.endpoint());
    EXPECT_TRUE(other.getFrameworkDiscoveryService(1)->queryDirectoryForServiceUUIDs("Worker-*").empty());

    core::serviceutils::Context context = discovery.getFrameworkDiscoveryService(2)->getAssociatedContext();
    Echo echo;
    ASSERT_TRUE(echo.start({{}, context}));
    auto stub = outside.lookupServiceInstance(context.getServiceInstance(), core::serviceutils::APIVersion(1));
    ASSERT_TRUE(stub.isFound());
    EXPECT_EQ("ping", outcome(stub.getMethod("echo")(Message(std::string_view("ping")))));
    echo.stop();
}

// Items posted to a client's context run at most `concurrency` at once.
TEST(InProcessExchangeDiscoveryTest, AClientsContextRunsAtMostItsConcurrencyAtOnce) {
    InProcessExchangeDiscovery discovery;
    for (unsigned limit : {1u, 3u}) {
        auto client = discovery.getFrameworkDiscoveryService(limit);
        auto& pool = client->getAssociatedContext().getThreadPool();
        Gate gate;
        std::atomic<unsigned> running{0}, most{0};
        constexpr unsigned kItems = 12;
        for (unsigned i = 0; i < kItems; ++i) {
            pool.postWork([&] {
                const unsigned now = ++running;
                for (unsigned seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {
                }
                gate.pass();
                --running;
            });
        }
        EXPECT_TRUE(gate.waitForPassers(static_cast<int>(limit)));
        gate.open();
        pool.wait();
        EXPECT_EQ(limit, most.load());
    }
}

}  // namespace
}  // namespace agent::spf::inprocessdiscovery
