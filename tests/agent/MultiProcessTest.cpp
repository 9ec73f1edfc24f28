#include "AgentTestSupport.h"
#include "PeerProcess.h"

#include "support/Barrier.h"

#include "agent/directory/DirectoryServiceClient.h"

#include <gtest/gtest.h>

#include <boost/uuid/uuid_io.hpp>

#include <signal.h>

#include <cstdlib>
#include <filesystem>

using namespace agent::testing;
using agent::core::transport::Address;
using agent::core::transport::ReplyFuture;
using agent::directory::DirectoryServiceClient;
using agent::directoryinterfaces::ServiceNotification;

namespace {

// A directory subscription's notifications as "started X" / "stopped X".
class Notifications {
public:
    agent::directory::DirectoryCallback callback() {
        return [this](const ServiceNotification& n) {
            const auto* started = boost::get<agent::directoryinterfaces::ServiceStartedNotification>(&n);
            std::lock_guard<std::mutex> lock(seenMutex_);
            seen_.push_back(started != nullptr
                                ? "started " + started->serviceName
                                : "stopped " + boost::get<agent::directoryinterfaces::ServiceStoppedNotification>(n)
                                                   .serviceName);
        };
    }
    bool saw(const std::vector<std::string>& expected) {
        return eventually([&] {
            std::lock_guard<std::mutex> lock(seenMutex_);
            return seen_ == expected;
        });
    }

private:
    std::mutex seenMutex_;
    std::vector<std::string> seen_;
};

class MultiProcessTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/agent-mp-XXXXXX";
        folder_ = ::mkdtemp(pattern);
        const std::string requested = GetParam() == "ipc" ? "ipc://" + folder_ + "/exchange.sock"
                                                           : "tcp://127.0.0.1:0";
        exchange_ = std::make_unique<PeerProcess>(std::vector<std::string>{"exchange", requested});
        const auto line = exchange_->readLine();
        ASSERT_EQ(line.rfind("LISTENING ", 0), 0u) << line;
        url_ = line.substr(10);
        address_ = Address(randomId());
        server_ = std::make_unique<PeerProcess>(
            std::vector<std::string>{"server", url_, boost::uuids::to_string(address_.getUUID())});
        ASSERT_EQ(server_->readLine(), "READY");
        client_ = makeContainer(url_, 20000ms);
    }
    void TearDown() override {
        client_.reset();
        server_.reset();
        exchange_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string folder_;
    std::string url_;
    Address address_;
    std::unique_ptr<PeerProcess> exchange_;
    std::unique_ptr<PeerProcess> server_;
    std::shared_ptr<agent::core::container::ServiceContainer> client_;
};

}  // namespace

TEST_P(MultiProcessTest, TenThousandConcurrentRequestsFromEightThreadsAllGetTheirOwnReplies) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 1250;
    testsupport::Barrier start(kThreads);
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.ArriveAndWait();
            std::vector<ReplyFuture> futures;
            futures.reserve(kPerThread);
            for (int i = 0; i < kPerThread; ++i) {
                futures.push_back(client_->getTransport()->sendRequest(
                    address_, text(std::to_string(t) + "/" + std::to_string(i))));
            }
            for (int i = 0; i < kPerThread; ++i) {
                const auto result = outcome(futures[i], deadline(30s));
                if (result == std::to_string(t) + "/" + std::to_string(i)) {
                    ++right;
                } else {
                    ADD_FAILURE() << "request " << t << "/" << i << ": " << result;
                    return;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right.load(), kThreads * kPerThread);
}

TEST_P(MultiProcessTest, KilledServerFailsItsCallersPendingRequestsWithinOneSecond) {
    auto warmup = client_->getTransport()->sendRequest(address_, text("up?"));
    ASSERT_EQ(outcome(warmup), "up?");
    auto pending = client_->getTransport()->sendRequest(address_, text("hang"));
    ASSERT_EQ(pending.wait_until(Clock::now() + 100ms), std::future_status::timeout);
    server_->signal(SIGKILL);
    const auto killed = Clock::now();
    EXPECT_EQ(outcome(pending, killed + 1s),
              "error: The service at address " + address_.toString() + " went away before replying");
}

TEST_P(MultiProcessTest, ForceDisconnectReturnsPromptlyWhenTheExchangeIsStopped) {
    auto warmup = client_->getTransport()->sendRequest(address_, text("up?"));
    ASSERT_EQ(outcome(warmup), "up?");
    auto pending = client_->getTransport()->sendRequest(address_, text("hang"));
    exchange_->signal(SIGSTOP);
    auto done = std::async(std::launch::async, [&] { client_->forceDisconnectTransport(); });
    EXPECT_EQ(done.wait_for(2s), std::future_status::ready);
    EXPECT_EQ(outcome(pending, deadline(1s)), "error: The transport was disconnected");
    exchange_->signal(SIGCONT);
    done.wait();
}

TEST_P(MultiProcessTest, AKilledContainersServicesLeaveTheDirectoryAndSubscribersHearOfIt) {
    DirectoryServiceClient watcher(client_->createContext(client_->generateServiceInstance()), 5000ms);
    Notifications notifications;
    watcher.registerForCallbacks(notifications.callback(), DirectoryServiceClient::Retrospectively,
                                 std::string("EchoPeer"), boost::none);
    ASSERT_TRUE(notifications.saw({"started EchoPeer"}));
    server_->signal(SIGKILL);
    EXPECT_TRUE(notifications.saw({"started EchoPeer", "stopped EchoPeer"}));
    EXPECT_TRUE(watcher.queryDirectoryForServiceUUIDs("EchoPeer").empty());
}

TEST_P(MultiProcessTest, AnExchangeShuttingDownTellsSubscribersItsDirectoryStopped) {
    DirectoryServiceClient watcher(client_->createContext(client_->generateServiceInstance()), 5000ms);
    Notifications notifications;
    watcher.registerForCallbacks(notifications.callback(), DirectoryServiceClient::OnlyNewChanges,
                                 std::string("directory"), boost::none);
    exchange_->closeInput();
    EXPECT_TRUE(notifications.saw({"stopped directory"}));
    EXPECT_TRUE(exchange_->exited(deadline()));
}

INSTANTIATE_TEST_SUITE_P(Transports, MultiProcessTest, ::testing::Values("ipc", "tcp"),
                         [](const auto& info) { return info.param; });
