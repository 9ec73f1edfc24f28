// Exchanges and containers created and torn down many times in one process, the way a
// long-lived host does it: no crash, no hang, nothing left behind, and every request
// that was in flight completes.

#include "AgentTestSupport.h"
#include "support/ChildProcess.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <boost/uuid/uuid_io.hpp>

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>

using namespace agent::testing;

namespace {

// Entries of a /proc/self folder: "task" counts threads, "fd" open descriptors.
std::size_t entriesOf(const char* folder) {
    const auto path = std::string("/proc/self/") + folder;
    return std::distance(std::filesystem::directory_iterator(path), std::filesystem::directory_iterator());
}

// Whether thread `tid` of this process is asleep (state S in its /proc stat line).
bool asleep(pid_t tid) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const auto end = line.rfind(')');  // the thread's name may hold spaces and parentheses
    return tid != 0 && end != std::string::npos && line.compare(end, 4, ") S ") == 0;
}

enum class TeardownOrder { ContainersFirst, ExchangeFirst, ServerFirst };

class ExchangeLifecycleTest : public ::testing::TestWithParam<std::string> {
protected:
    std::string url(int cycle) const {
        return GetParam() == "ipc" ? folder_.ipcUrl("x" + std::to_string(cycle) + ".sock") : inprocUrl();
    }

    // One exchange with a serving and a calling container; requests answered, held by a
    // handler, refused and still being sent while everything is torn down in `order`.
    void cycle(int number, TeardownOrder order) {
        SCOPED_TRACE("cycle " + std::to_string(number));
        auto exchange = std::make_unique<Exchange>();
        const auto endpoint = exchange->listen(url(number));
        auto server = makeContainer(endpoint, 20000ms);
        auto client = makeContainer(endpoint, 20000ms);
        std::promise<void> release;
        auto released = release.get_future().share();
        const Address echoing(randomId());
        const Address holding(randomId());
        server->getTransport()->registerHandler(echoing, echo);
        server->getTransport()->registerHandler(holding, [released](const Message& request) {
            released.wait_for(20s);
            return request;
        });

        std::vector<ReplyFuture> answered;
        std::vector<ReplyFuture> pending;
        for (int i = 0; i < 4; ++i) {
            answered.push_back(client->getTransport()->sendRequest(echoing, text(std::to_string(i)), boost::none));
            pending.push_back(client->getTransport()->sendRequest(holding, text("held"), boost::none));
        }
        pending.push_back(client->getTransport()->sendRequest(Address(randomId()), text("nobody"), boost::none));
        for (int i = 0; i < 4; ++i) {
            ASSERT_EQ(outcome(answered[i]), std::to_string(i));
        }

        // Keeps calling while the teardown runs, until the client's connection is gone.
        std::atomic<bool> stop{false};
        auto caller = std::async(std::launch::async, [&, transport = client->getTransport()] {
            std::vector<ReplyFuture> futures;
            while (!stop.load() && futures.size() < 2000) {
                futures.push_back(transport->sendRequest(echoing, text("late"), boost::none));
            }
            return futures;
        });

        release.set_value();  // held requests now race the teardown with their replies
        switch (order) {
            case TeardownOrder::ContainersFirst:
                client->forceDisconnectTransport();
                server.reset();
                break;
            case TeardownOrder::ExchangeFirst:
                exchange.reset();
                server.reset();
                client->forceDisconnectTransport();
                break;
            case TeardownOrder::ServerFirst:
                server.reset();
                exchange.reset();
                client->forceDisconnectTransport();
                break;
        }
        stop = true;
        auto late = caller.get();
        client.reset();
        exchange.reset();
        for (auto* futures : {&pending, &late}) {
            for (auto& future : *futures) {
                const auto result = outcome(future);
                ASSERT_NE(result, "no answer");
                if (result.rfind("error: ", 0) != 0) {
                    ASSERT_TRUE(result == "held" || result == "late") << result;
                }
            }
        }
    }

    TemporaryFolder folder_;
};

}  // namespace

TEST_P(ExchangeLifecycleTest, SetUpAndTearDownManyTimesWithRequestsInFlightLeavesNothingBehind) {
    // The first cycle starts nng's own threads; everything after it must come and go.
    cycle(0, TeardownOrder::ContainersFirst);
    ASSERT_FALSE(HasFatalFailure());
    const auto threads = entriesOf("task");
    const auto descriptors = entriesOf("fd");

    constexpr int kCycles = 24;
    for (int i = 1; i <= kCycles; ++i) {
        cycle(i, static_cast<TeardownOrder>(i % 3));
        ASSERT_FALSE(HasFatalFailure());
    }
    EXPECT_TRUE(eventually([&] { return entriesOf("task") <= threads; }))
        << entriesOf("task") << " threads alive, " << threads << " before";
    EXPECT_TRUE(eventually([&] { return entriesOf("fd") <= descriptors; }))
        << entriesOf("fd") << " descriptors open, " << descriptors << " before";
}

// A container whose exchange stops reading blocks its senders on back-pressure; tearing
// the connection down must release them at once rather than after the send timeout.
TEST_P(ExchangeLifecycleTest, DisconnectReleasesSendersBlockedOnBackPressure) {
    FakeExchange deaf(FakeExchange::Deaf, url(0));
    auto container = std::make_shared<agent::core::container::ServiceContainer>();
    // Sends would wait a minute for the exchange; only the disconnect can end them early.
    container->createTransport(agent::nanomsgtransport::getTransport(*container, 60000ms, 60000ms));
    container->connectTransport(deaf.url());

    std::atomic<int> returned{0};
    std::atomic<pid_t> senderThread{0};
    auto sender = std::async(std::launch::async, [&] {
        senderThread = static_cast<pid_t>(::syscall(SYS_gettid));
        const std::string large(64 * 1024, 'x');
        std::vector<ReplyFuture> futures;
        for (int i = 0; i < 1000 && container->getTransport()->isConnected(); ++i) {
            futures.push_back(container->getTransport()->sendRequest(Address(randomId()), text(large), boost::none));
            ++returned;
        }
        return futures;
    });
    // A few 64 KiB frames fill the queues and socket buffers between the two sockets; the sender
    // then waits on back-pressure: asleep, its count still, look after look. (A sender merely
    // descheduled that long would make the case weaker, never fail it.)
    int stillLooks = 0;
    int lastCount = -1;
    ASSERT_TRUE(eventually([&] {
        const int count = returned.load();
        stillLooks = count == lastCount && asleep(senderThread.load()) ? stillLooks + 1 : 0;
        lastCount = count;
        return stillLooks >= 100;
    }));
    container->forceDisconnectTransport();
    ASSERT_EQ(sender.wait_until(deadline()), std::future_status::ready);
    for (auto& future : sender.get()) {
        EXPECT_EQ(outcome(future, deadline(5s)).rfind("error: ", 0), 0u);
    }
    EXPECT_LT(returned.load(), 1000);
}

// nng 1.5.2 hangs for good when an ipc connection closes while a frame arrives on it
// (ExchangeRouter.h), and a busy peer in another process cannot be asked to stop sending.
// The exchange has its peers hang up instead; each close must finish, without falling
// back on closing connections that are still live.
TEST(ExchangeShutdownTest, ClosingAnIpcExchangeWhileAPeerProcessHammersItNeverHangs) {
    TemporaryFolder folder;
    const auto url = folder.ipcUrl("hammered.sock");
    auto capture = std::make_shared<foundation::log::capture_sink>("agent::nanomsgtransport::Exchange");
    foundation::log::addSink(capture);

    std::atomic<std::uint64_t> served{0};
    const Address address(randomId());
    std::shared_ptr<agent::core::container::ServiceContainer> server;
    std::unique_ptr<testsupport::ChildProcess> hammer;  // peer/AgentTestPeer.cpp
    for (int cycle = 0; cycle < 5; ++cycle) {
        SCOPED_TRACE("cycle " + std::to_string(cycle));
        Exchange exchange;
        exchange.listen(url);
        if (cycle == 0) {  // later cycles: both find the new exchange by themselves
            server = makeContainer(url);
            server->getTransport()->registerHandler(address, [&served](const Message& request) {
                ++served;
                return request;
            });
            hammer = std::make_unique<testsupport::ChildProcess>(
                AGENT_TEST_PEER, std::vector<std::string>{"hammer", url, boost::uuids::to_string(address.getUUID())});
            ASSERT_EQ(hammer->readLine(deadline()).value_or("(no line)"), "READY");
        }
        const auto before = served.load();
        ASSERT_TRUE(eventually([&] { return served.load() >= before + 200; }));
        exchange.close();
    }
    EXPECT_FALSE(capture->contains("did not hang up")) << "a close had to end live connections";
    hammer.reset();
    server.reset();
    foundation::log::removeSink(capture);
}

INSTANTIATE_TEST_SUITE_P(Transports, ExchangeLifecycleTest, ::testing::Values("inproc", "ipc"),
                         [](const auto& info) { return info.param; });
