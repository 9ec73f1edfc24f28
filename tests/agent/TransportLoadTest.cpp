// Many requests at once between two containers through an exchange on every transport.

#include "AgentTestSupport.h"

#include "support/Barrier.h"

#include <gtest/gtest.h>

using namespace agent::testing;

namespace {

class TransportLoadTest : public ::testing::TestWithParam<std::string> {
protected:
    std::string requested() const {
        return GetParam() == "inproc" ? inprocUrl() : GetParam() == "ipc" ? folder_.ipcUrl("x.sock") : "tcp://127.0.0.1:0";
    }

    TemporaryFolder folder_;
    Exchange exchange_;
    const std::string url_ = exchange_.listen(requested());
    std::shared_ptr<agent::core::container::ServiceContainer> server_ = makeContainer(url_);
    std::shared_ptr<agent::core::container::ServiceContainer> client_ = makeContainer(url_, 20000ms);
};

}  // namespace

TEST_P(TransportLoadTest, TenThousandConcurrentRequestsFromEightThreadsAllGetTheirOwnReplies) {
    const Address address(randomId());
    server_->getTransport()->registerHandler(address, echo);
    constexpr int kThreads = 8;
    constexpr int kPerThread = 1250;
    std::atomic<int> right{0};
    testsupport::RunConcurrently(kThreads, [&](int t) {
        std::vector<ReplyFuture> futures;
        futures.reserve(kPerThread);
        for (int i = 0; i < kPerThread; ++i) {
            futures.push_back(
                client_->getTransport()->sendRequest(address, text(std::to_string(t) + "/" + std::to_string(i))));
        }
        for (int i = 0; i < kPerThread; ++i) {
            const auto result = outcome(futures[i], deadline(30s));
            if (result != std::to_string(t) + "/" + std::to_string(i)) {
                ADD_FAILURE() << "request " << t << "/" << i << ": " << result;
                return;
            }
            ++right;
        }
    });
    EXPECT_EQ(right.load(), kThreads * kPerThread);
}

INSTANTIATE_TEST_SUITE_P(Transports, TransportLoadTest, ::testing::Values("inproc", "ipc", "tcp"),
                         [](const auto& info) { return info.param; });
