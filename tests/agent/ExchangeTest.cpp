#include "AgentTestSupport.h"

#include "foundation/log/CaptureSink.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

using namespace agent::testing;

TEST(ExchangeTest, MalformedFramesAreLoggedAndDroppedAndRoutingGoesOn) {
    auto capture = std::make_shared<foundation::log::capture_sink>("agent::nanomsgtransport::Exchange");
    foundation::log::addSink(capture);
    {
        Exchange exchange;
        const auto url = exchange.listen(inprocUrl());
        auto server = makeContainer(url);
        auto client = makeContainer(url);
        const Address address(randomId());
        server->getTransport()->registerHandler(address, echo);

        RawPeer attacker(url);
        std::vector<std::uint8_t> truncated(Envelope::kSize);
        agent::nanomsgtransport::encodeEnvelope(Envelope{}, truncated.data());
        auto wrongVersion = truncated;
        wrongVersion[0] = 9;
        truncated.resize(40);
        for (const auto& frame : {truncated, wrongVersion}) {
            attacker.sendBody(frame);
        }
        const auto malformed = [](const foundation::log::record& r) {
            return r.text.find("Dropped a malformed frame") != std::string::npos;
        };
        ASSERT_TRUE(capture->waitForCount(malformed, 2, deadline()));
        EXPECT_TRUE(capture->contains("Frame of 40 bytes is shorter than an envelope"));
        EXPECT_TRUE(capture->contains("Frame has envelope version 9; this exchange speaks version 1"));
        EXPECT_EQ(exchange.statistics().malformedFrames, 2u);

        auto future = client->getTransport()->sendRequest(address, text("still routing"));
        EXPECT_EQ(outcome(future), "still routing");
    }
    foundation::log::removeSink(capture);
}

TEST(ExchangeTest, StalledContainerGetsBackPressureAndNothingVanishes) {
    constexpr std::size_t kBacklog = 1000;
    Exchange exchange;
    exchange.setBacklogLimit(kBacklog);
    const auto url = exchange.listen(inprocUrl());
    auto client = makeContainer(url, 20000ms);
    auto server = makeContainer(url);
    const Address healthy(randomId());
    server->getTransport()->registerHandler(healthy, echo);

    RawPeer stalled(url);
    const Address stuck(randomId());
    stalled.registerAddress(stuck.getUUID());

    constexpr std::size_t kSent = Envelope::kCreditWindow + kBacklog + 100;
    std::vector<ReplyFuture> futures;
    for (std::size_t i = 0; i < kSent; ++i) {
        futures.push_back(client->getTransport()->sendRequest(stuck, text(std::to_string(i))));
    }
    // Those beyond the window and the backlog are refused at once ...
    std::size_t refused = 0;
    for (auto& future : futures) {
        if (future.wait_until(Clock::now()) == std::future_status::ready) {
            ++refused;
        }
    }
    ASSERT_TRUE(eventually([&] { return exchange.statistics().backlogRefusals == 100; }));
    // ... while everybody else is served.
    auto other = client->getTransport()->sendRequest(healthy, text("others go on"));
    EXPECT_EQ(outcome(other), "others go on");

    // The stalled container wakes up: it receives every frame that was not refused.
    std::size_t received = 0;
    while (auto frame = stalled.receive(500)) {
        ASSERT_EQ(frame->first.kind, FrameKind::Request);
        ++received;
        Envelope reply;
        reply.kind = FrameKind::Reply;
        reply.correlationId = frame->first.correlationId;
        reply.destinationAddress = frame->first.sourceNode;
        stalled.send(reply, frame->second);
    }
    EXPECT_EQ(received, kSent - 100);
    std::size_t replies = 0;
    std::size_t failures = 0;
    for (std::size_t i = 0; i < kSent; ++i) {
        const auto result = outcome(futures[i]);
        if (result == std::to_string(i)) {
            ++replies;
        } else if (result == "error: The service at address " + stuck.toString() +
                                 " is not keeping up with its requests") {
            ++failures;
        }
    }
    EXPECT_EQ(replies, received);
    EXPECT_EQ(failures, 100u);
    EXPECT_LE(refused, 100u);
}

TEST(ExchangeTest, IpcListenerStillAcceptsAfterARawConnectAndASecondListen) {
    TemporaryFolder folder;
    Exchange exchange;
    exchange.setListenerProbeInterval(50ms);
    const auto url = exchange.listen(folder.ipcUrl("x.sock"));
    auto server = makeContainer(url);
    const Address address(randomId());
    server->getTransport()->registerHandler(address, echo);

    // A peer that hangs up without a word.
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un unixAddress{};
    unixAddress.sun_family = AF_UNIX;
    std::strncpy(unixAddress.sun_path, (folder.path() / "x.sock").c_str(), sizeof(unixAddress.sun_path) - 1);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&unixAddress), sizeof(unixAddress)), 0);
    ::close(fd);
    // Somebody else trying to listen on the same path.
    nng_socket intruder;
    ASSERT_EQ(nng_rep0_open_raw(&intruder), 0);
    EXPECT_NE(nng_listen(intruder, url.c_str(), nullptr, 0), 0);
    nng_close(intruder);

    std::shared_ptr<agent::core::container::ServiceContainer> newcomer;
    ASSERT_TRUE(eventually([&] {
        try {
            newcomer = makeContainer(url);
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }));
    EXPECT_TRUE(eventually([&] { return outcome(newcomer->getTransport()->sendRequest(address, text("ping"), 500ms)) == "ping"; }));
}
