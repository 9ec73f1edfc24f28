#include "AgentTestSupport.h"

#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <boost/uuid/uuid_io.hpp>

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

extern char** environ;

using namespace agent::testing;
using agent::core::transport::Address;
using agent::core::transport::ReplyFuture;

namespace {

// A child process running agent_test_peer, talking to us through its stdin and stdout.
// Closing its stdin ends it; the destructor kills it if it lingers.
class PeerProcess {
public:
    explicit PeerProcess(const std::vector<std::string>& arguments) {
        int toChild[2];
        int fromChild[2];
        if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0) {
            throw std::runtime_error("pipe failed");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, toChild[1]);
        posix_spawn_file_actions_addclose(&actions, fromChild[0]);
        std::vector<std::string> all{AGENT_TEST_PEER};
        all.insert(all.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& argument : all) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const int rv = posix_spawn(&pid_, AGENT_TEST_PEER, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(toChild[0]);
        ::close(fromChild[1]);
        stdin_ = toChild[1];
        stdout_ = fromChild[0];
        if (rv != 0) {
            throw std::runtime_error("posix_spawn failed");
        }
    }
    ~PeerProcess() {
        signal(SIGCONT);
        ::close(stdin_);
        if (!exited(deadline(5s))) {
            signal(SIGKILL);
            exited(deadline(5s));
        }
        ::close(stdout_);
    }

    // The next line of its output, or "" at the deadline or end of output.
    std::string readLine(Clock::time_point until = deadline()) {
        std::string line;
        while (Clock::now() < until) {
            pollfd readable{stdout_, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
            if (::poll(&readable, 1, static_cast<int>(std::max<long>(left.count(), 1))) <= 0) {
                continue;
            }
            char c;
            if (::read(stdout_, &c, 1) != 1) {
                return line;
            }
            if (c == '\n') {
                return line;
            }
            line += c;
        }
        return line;
    }
    void signal(int number) {
        if (pid_ > 0) {
            ::kill(pid_, number);
        }
    }
    bool exited(Clock::time_point until) {
        if (pid_ <= 0) {
            return true;
        }
        while (Clock::now() < until) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return true;
            }
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }

private:
    pid_t pid_ = -1;
    int stdin_ = -1;
    int stdout_ = -1;
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

INSTANTIATE_TEST_SUITE_P(Transports, MultiProcessTest, ::testing::Values("ipc", "tcp"),
                         [](const auto& info) { return info.param; });
