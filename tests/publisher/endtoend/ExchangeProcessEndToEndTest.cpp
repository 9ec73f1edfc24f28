// The publisher against exchanges in other processes: agent-exchange on an ipc:// endpoint with
// legacy-agent beside it, found literally or through the agent registry of either connector
// mode, stopped and killed under the publisher's feet.

#include "EndToEndFixture.h"

#include "e2e/ProcessFixture.h"

#include "agent/control/AgentInfo.h"
#include "agent/control/AgentRegistration.h"
#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"
#include "agent/spf/externalprocessdiscovery/UserStorageRootOverride.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/text/Utf.h"

#include <gmock/gmock.h>

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using agent::spf::core::APIVersion;
using agent::spf::servicepublisher::call;

class ExchangeProcessTest : public EndToEndFixture, protected e2e::Processes {
protected:
    void SetUp() override {
        foundation::log::addSink(log);
        EndToEndFixture::SetUp();
        for (const char* mode : {"korvexdrive", "desktopservices"}) {
            context.RegisterService<agent::spf::externalprocessdiscovery::UserStorageRootOverride>(
                std::make_shared<agent::spf::externalprocessdiscovery::FixedUserStorageRootOverride>(
                    boost::none, foundation::text::toUtf16(registry())),
                {{"mode", cppmicroservices::Any(std::string(mode))}});
        }
    }

    // The processes end after the framework has stopped.
    void TearDown() override {
        EndToEndFixture::TearDown();
        foundation::log::removeSink(log);
    }

    std::string url() const { return endpoint(); }

    // The names of the factories published for instances on url(), sorted.
    std::vector<std::string> factoriesOnTheExchange() {
        std::vector<std::string> names;
        for (const auto& factory : invokablePublisher()->getInvokableFactories()) {
            const auto endpoint = factory.endpointProperties.find("endpointAddress");
            const bool here = endpoint != factory.endpointProperties.end() &&
                              cppmicroservices::any_cast<std::string>(endpoint->second) == url();
            if (here) names.push_back(factory.name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    bool eventuallyPublished(const std::vector<std::string>& names) {
        return testsupport::WaitFor([&] { return factoriesOnTheExchange() == names; }, kDeadline);
    }

    std::size_t logged(const std::string& text) const {
        return log->count([&text](const auto& record) { return record.text == text; });
    }

    const std::vector<std::string> sampleServices{"Clock", "KeyValueStore", "RawEcho"};
    std::shared_ptr<foundation::log::capture_sink> log =
        std::make_shared<foundation::log::capture_sink>("agent::spf::legacyservicepublisher");
};

// Found through the korvexdrive registry; the stopping case finds its exchange through the
// desktopservices registry and the killed case by its literal url, and publishing and calling do
// not depend on the way.
TEST_F(ExchangeProcessTest, EveryInstanceOnAnExchangeFoundThroughTheRegistryIsPublishedOnceAndCallable) {
    startExchange("exchange", url(), {"--mode", "korvexdrive"});
    startLegacyAgent(url());
    configure("agents", {"korvexConnectorDiscovery"}, {{"e2e.Sum", 1, "sum"}});
    agent::spf::core::ServiceInterface sum("e2e.Sum", APIVersion(1, 1));
    sum.addMethod("add", [](std::int64_t a, std::int64_t b) { return a + b; });
    publisherService()->publishService(sum);

    // The publisher's own service and the agent's alike, each once; a call on each road there (the
    // agent's Avro in parts and its raw bytes, the publisher's own): legacy-agent's suite has the rest.
    ASSERT_TRUE(eventuallyPublished({"Clock", "KeyValueStore", "RawEcho", "e2e.Sum"}));
    auto store = getInvokable("KeyValueStore", 1);
    call<void>(*store, "put", kCallTimeout, std::string("colour"), std::string("teal")).get();
    EXPECT_EQ("teal", call<std::string>(*store, "get", kCallTimeout, std::string("colour")).get());
    const std::vector<std::uint8_t> raw{0, 1, 2, 255};
    EXPECT_EQ(raw, call<std::vector<std::uint8_t>>(*getInvokable("RawEcho", 1), "echo", kCallTimeout, raw).get());
    EXPECT_EQ(5, call<std::int64_t>(*getInvokable("e2e.Sum", 1), "add", kCallTimeout, std::int64_t{2}, std::int64_t{3})
                     .get());
}

TEST_F(ExchangeProcessTest, AnExchangeThatStopsIsTornDownVetoedOnceAndPublishedAgainOnceBack) {
    // The registry keeps listing the exchange while it restarts: the first entry is the test's own.
    const agent::control::AgentRegistration entry(
        registry(), agent::control::AgentInfo("host", url(), ::getpid(), agent::control::AgentMode::DesktopServices));
    startExchange("exchange", url(), {"--mode", "desktopservices"});
    startLegacyAgent(url());
    configure("agents", {"norbridgeServiceHostDiscovery"}, {});
    ASSERT_TRUE(eventuallyPublished(sampleServices));

    exchange().signal(SIGTERM);
    ASSERT_TRUE(exchange().waitForExit(e2e::deadline()));
    ASSERT_TRUE(eventuallyPublished({}));
    EXPECT_TRUE(testsupport::WaitFor(
        [&] { return logged("AgentConnection to " + url() + " vetoed once as it has just shutdown.") == 1; },
        kDeadline));
    EXPECT_EQ(1u, logged("Forcing teardown of exchange endpoint: " + url()));

    startExchange("exchange", url(), {"--mode", "desktopservices"});
    EXPECT_TRUE(eventuallyPublished(sampleServices));
}

TEST_F(ExchangeProcessTest, AKilledExchangeFailsCallsInFlightAtOnceAndLeavesNoFactoryBehind) {
    startExchange("exchange", url(), {"--mode", "desktopservices"});
    startLegacyAgent(url());
    auto gate = std::make_shared<Gate>();
    configure("agents", {url()}, {{"e2e.Slow", 1, "slow"}});
    agent::spf::core::ServiceInterface slow("e2e.Slow", APIVersion(1));
    slow.addMethod("wait", [gate]() -> std::int32_t {
        gate->pass();
        return 1;
    });
    publisherService()->publishService(slow);
    ASSERT_TRUE(eventuallyPublished({"Clock", "KeyValueStore", "RawEcho", "e2e.Slow"}));

    // Held: giving an invokable back waits for its calls to end.
    const auto slowInvokable = getInvokable("e2e.Slow", 1);
    auto inFlight = call<std::int32_t>(*slowInvokable, "wait", kCallTimeout);
    ASSERT_TRUE(gate->waitForPassers(1));
    exchange().signal(SIGKILL);
    ASSERT_TRUE(exchange().waitForExit(e2e::deadline()));

    // The reply cannot come while the gate is shut: a failure now is the lost connection's.
    ASSERT_EQ(std::future_status::ready, inFlight.wait_for(kDeadline));
    EXPECT_THAT([&] { inFlight.get(); }, ::testing::ThrowsMessage<std::exception>(::testing::Not(::testing::AnyOf(
                                             ::testing::HasSubstr("Timeout"), ::testing::HasSubstr("timed out")))));
    gate->open();
    // No directory tells of the kill: failed queries tear the connection down.
    EXPECT_TRUE(eventuallyPublished({}));
    EXPECT_EQ(1u, logged("Cleaning up Agent Connection for exchange endpoint: " + url()));
}

}  // namespace
}  // namespace publishertest
